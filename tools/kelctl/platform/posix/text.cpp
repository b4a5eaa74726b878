// SPDX-License-Identifier: MIT
#include "platform/text.h"

namespace kelctl {

std::vector<std::string> arguments(int argc, char** argv) { return {argv + 1, argv + argc}; }

TerminalText::TerminalText() : mFormer(0) {}
TerminalText::~TerminalText() = default;

std::filesystem::path pathOf(const std::string& name) { return name; }
std::optional<std::string> libraryName(const std::string& name) { return name; }

}  // namespace kelctl
