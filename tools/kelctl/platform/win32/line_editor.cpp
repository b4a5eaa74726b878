// SPDX-License-Identifier: MIT
#include "platform/line_editor.h"

#include <iostream>

namespace kelctl {

struct LineEditor::Inside {
  std::string prompt;
};

LineEditor::LineEditor(const std::string& prompt, const std::string& /*historyFile*/, Complete /*complete*/)
    : mInside(new Inside{prompt}) {}

LineEditor::~LineEditor() { delete mInside; }

std::optional<std::string> LineEditor::next() {
  std::cout << mInside->prompt << std::flush;
  std::string line;
  if (!std::getline(std::cin, line)) return std::nullopt;
  return line;
}

std::string historyFile() { return ""; }

}  // namespace kelctl
