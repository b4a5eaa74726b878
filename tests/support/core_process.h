/* SPDX-License-Identifier: MIT */
// What a program that has the library's inside linked in owes it.
#pragma once

#include "adapter/Dorv.h"

namespace kel::test {

/// Does what the library's entry point does for the library itself. A fixture has it as its first member.
struct CoreProcess {
  CoreProcess() { CreateSluiceHubLock(); }
  ~CoreProcess() { DeleteSluiceHubLock(); }
  CoreProcess(const CoreProcess&) = delete;
  CoreProcess& operator=(const CoreProcess&) = delete;
};

}  // namespace kel::test
