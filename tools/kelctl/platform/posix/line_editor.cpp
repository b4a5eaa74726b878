// SPDX-License-Identifier: MIT
#include "platform/line_editor.h"

#include <histedit.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>

namespace kelctl {
namespace {

constexpr int kLines = 1000;

/// What all of the words begin with.
std::string commonStart(const std::vector<std::string>& words) {
  std::string start = words.front();
  for (const std::string& word : words) {
    const auto [end, unused] = std::mismatch(start.begin(), start.end(), word.begin(), word.end());
    start.erase(end, start.end());
  }
  return start;
}

}  // namespace

struct LineEditor::Inside {
  EditLine* editor;
  History* history;
  HistEvent event;
  std::string prompt;
  std::string historyFile;
  Complete complete;

  static Inside& of(EditLine* editor) {
    void* inside = nullptr;
    el_get(editor, EL_CLIENTDATA, &inside);
    return *static_cast<Inside*>(inside);
  }

  static char* promptOf(EditLine* editor) { return of(editor).prompt.data(); }

  static unsigned char completeWord(EditLine* editor, int /*key*/) {
    const LineInfo* line = el_line(editor);
    const std::string beginning(line->buffer, line->cursor);
    const std::vector<std::string> words = of(editor).complete(beginning);
    if (words.empty()) return CC_REFRESH_BEEP;
    const std::size_t blank = beginning.find_last_of(" \t");
    const std::size_t typed = beginning.size() - (blank == std::string::npos ? 0 : blank + 1);
    const std::string more = commonStart(words).substr(typed) + (words.size() == 1 ? " " : "");
    if (!more.empty()) return el_insertstr(editor, more.c_str()) == 0 ? CC_REFRESH : CC_REFRESH_BEEP;
    std::putchar('\n');
    for (const std::string& word : words) std::printf("%s\n", word.c_str());
    return CC_REDISPLAY;
  }
};

LineEditor::LineEditor(const std::string& prompt, const std::string& historyFile, Complete complete)
    : mInside(new Inside{nullptr, nullptr, {}, prompt, historyFile, std::move(complete)}) {
  std::setlocale(LC_CTYPE, "");  // so that characters of several bytes are edited as one
  mInside->history = history_init();
  history(mInside->history, &mInside->event, H_SETSIZE, kLines);
  history(mInside->history, &mInside->event, H_SETUNIQUE, 1);
  if (!historyFile.empty()) history(mInside->history, &mInside->event, H_LOAD, historyFile.c_str());

  EditLine* editor = mInside->editor = el_init("kelctl", stdin, stdout, stderr);
  el_set(editor, EL_CLIENTDATA, mInside);
  el_set(editor, EL_PROMPT, &Inside::promptOf);
  el_set(editor, EL_EDITOR, "emacs");
  el_set(editor, EL_HIST, history, mInside->history);
  el_set(editor, EL_ADDFN, "complete-word", "Complete the word", &Inside::completeWord);
  el_set(editor, EL_BIND, "^I", "complete-word", nullptr);
  // While a line is typed, Ctrl-C clears it and ends nothing.
  el_set(editor, EL_SETTY, "-d", "-isig", nullptr);
  el_set(editor, EL_BIND, "^C", "em-kill-line", nullptr);
}

LineEditor::~LineEditor() {
  if (!mInside->historyFile.empty()) {
    history(mInside->history, &mInside->event, H_SAVE, mInside->historyFile.c_str());
  }
  el_end(mInside->editor);
  history_end(mInside->history);
  delete mInside;
}

std::optional<std::string> LineEditor::next() {
  int count = 0;
  const char* text = el_gets(mInside->editor, &count);
  if (text == nullptr || count <= 0) return std::nullopt;
  std::string line(text, static_cast<std::size_t>(count));
  if (line.back() == '\n') line.pop_back();
  if (!line.empty()) history(mInside->history, &mInside->event, H_ENTER, line.c_str());
  return line;
}

std::string historyFile() {
  const char* home = std::getenv("HOME");
  return home == nullptr || *home == '\0' ? "" : std::string(home) + "/.kelctl_history";
}

}  // namespace kelctl
