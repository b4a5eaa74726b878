// SPDX-License-Identifier: MIT
#include "tour.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "clock.h"
#include "interrupt.h"

namespace kelctl {
namespace {

constexpr std::size_t kBarWidth = 20;
constexpr std::size_t kLineWidth = 79;

std::string numbersText(const std::vector<std::size_t>& numbers) {
  std::string text;
  for (const std::size_t number : numbers) text += (text.empty() ? "" : ", ") + std::to_string(number);
  return text;
}

}  // namespace

void Findings::expectCode(const std::string& call, std::uint32_t code, std::uint32_t expected) {
  note(call + " -> " + std::to_string(code));
  expect(code == expected, "this should have returned " + std::to_string(expected));
}

bool Tour::run() {
  std::vector<std::size_t> wrong;
  std::size_t done = 0;
  for (bool goOn = true; goOn && done < mSteps.size() && !interrupted();) {
    const Findings findings = runStep(done++);
    goOn = !findings.gaveUp();
    if (!findings.faults().empty()) wrong.push_back(done);
  }
  const std::string count = std::to_string(mSteps.size());
  if (mOutput.json()) {
    mOutput.object({{"verb", "demo"}, {"steps", mSteps.size()}, {"done", done}, {"wrong", wrong}});
  } else if (done == mSteps.size() && wrong.empty()) {
    mOutput.text('\n' + count + " steps, " + mOutput.good("all checked") + '\n');
  } else {
    mOutput.text('\n' + std::to_string(done) + " of " + count + " steps" +
                 (wrong.empty() ? "" : ", " + mOutput.bad("wrong: " + numbersText(wrong))) + '\n');
  }
  return done == mSteps.size() && wrong.empty();
}

Findings Tour::runStep(std::size_t index) {
  const Step& step = mSteps[index];
  Findings findings;
  if (mOutput.terminal()) showProgress(index, step.title);
  const Clock::time_point start = Clock::now();
  step.body(findings);
  const Clock::duration time = Clock::now() - start;
  const bool passed = findings.faults().empty();
  if (mOutput.json()) {
    mOutput.object({{"verb", "demo"},
                    {"step", index + 1},
                    {"title", step.title},
                    {"milliseconds", milliseconds(time)},
                    {"passed", passed},
                    {"notes", findings.notes()},
                    {"faults", findings.faults()}});
    return findings;
  }
  char line[96];
  std::snprintf(line, sizeof line, "%2zu  %-55s %10s  ", index + 1, step.title.c_str(), timeText(time).c_str());
  // Blanks take the bar away: every terminal can do that.
  std::string text = mOutput.terminal() ? '\r' + std::string(kLineWidth, ' ') + '\r' : "";
  text += line + (passed ? mOutput.good("ok") : mOutput.bad("WRONG")) + '\n';
  for (const std::string& note : findings.notes()) text += "      " + mOutput.faint(note) + '\n';
  for (const std::string& fault : findings.faults()) text += "    ! " + mOutput.bad(fault) + '\n';
  mOutput.text(text);
  return findings;
}

/// The bar is a line without an end.
void Tour::showProgress(std::size_t done, const std::string& title) {
  std::string bar(kBarWidth, '.');
  bar.replace(0, done * kBarWidth / mSteps.size(), done * kBarWidth / mSteps.size(), '#');
  char line[kLineWidth + 1];
  std::snprintf(line, sizeof line, "    [%s] %zu of %zu: %.40s", bar.c_str(), done + 1, mSteps.size(), title.c_str());
  mOutput.text(line);
}

}  // namespace kelctl
