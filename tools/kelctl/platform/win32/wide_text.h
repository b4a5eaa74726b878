/* SPDX-License-Identifier: MIT */
// Text of Windows in UTF-8, and back.
#pragma once

#include <string>

namespace kelctl {

std::string toUtf8(const std::wstring& text);
std::wstring toWide(const std::string& text);

}  // namespace kelctl
