// SPDX-License-Identifier: MIT
#include "platform/text.h"

#include <windows.h>
// Behind windows.h.
#include <shellapi.h>

#include <memory>

#include "platform/win32/wide_text.h"

namespace kelctl {
namespace {

int lengthOf(const std::string& text) { return static_cast<int>(text.size()); }
int lengthOf(const std::wstring& text) { return static_cast<int>(text.size()); }

}  // namespace

std::string toUtf8(const std::wstring& wide) {
  std::string text(wide.size() * 3, '\0');
  text.resize(static_cast<std::size_t>(
      WideCharToMultiByte(CP_UTF8, 0, wide.data(), lengthOf(wide), text.data(), lengthOf(text), nullptr, nullptr)));
  return text;
}

std::wstring toWide(const std::string& text) {
  std::wstring wide(text.size(), L'\0');
  wide.resize(static_cast<std::size_t>(
      MultiByteToWideChar(CP_UTF8, 0, text.data(), lengthOf(text), wide.data(), lengthOf(wide))));
  return wide;
}

std::vector<std::string> arguments(int /*argc*/, char** /*argv*/) {
  int count = 0;
  const std::unique_ptr<LPWSTR, decltype(&LocalFree)> words(CommandLineToArgvW(GetCommandLineW(), &count), &LocalFree);
  std::vector<std::string> arguments;
  for (int i = 1; i < count; ++i) arguments.push_back(toUtf8(words.get()[i]));
  return arguments;
}

TerminalText::TerminalText() : mFormer(GetConsoleOutputCP()) { SetConsoleOutputCP(CP_UTF8); }
TerminalText::~TerminalText() {
  if (mFormer != 0) SetConsoleOutputCP(mFormer);
}

std::filesystem::path pathOf(const std::string& name) { return toWide(name); }

std::optional<std::string> libraryName(const std::string& name) {
  const std::wstring wide = toWide(name);
  std::string text(wide.size() * 4, '\0');
  BOOL isLossy = FALSE;
  text.resize(static_cast<std::size_t>(WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.data(), lengthOf(wide),
                                                           text.data(), lengthOf(text), nullptr, &isLossy)));
  return isLossy ? std::nullopt : std::optional(text);
}

}  // namespace kelctl
