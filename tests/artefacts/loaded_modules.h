/* SPDX-License-Identifier: MIT */
// Which libraries this process has.
#pragma once

namespace kel::test {

/// Whether the library of that name, without the platform's "lib" and ".so" or ".dll", is in the process.
bool IsLoaded(const char* library);

}  // namespace kel::test
