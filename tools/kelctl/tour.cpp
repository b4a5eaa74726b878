#include "tour.h"

#include <cstdio>

#include "clock.h"

namespace kelctl {
namespace {

constexpr std::size_t kBarWidth = 20;
constexpr int kLineWidth = 79;

}  // namespace

void Findings::expectCode(const std::string& call, std::uint32_t code, std::uint32_t expected) {
  note(call + " -> " + std::to_string(code));
  expect(code == expected, "this should have returned " + std::to_string(expected));
}

bool Tour::run() {
  std::string wrong;
  std::size_t done = 0;
  for (bool goOn = true; goOn && done < mSteps.size();) {
    const Findings findings = runStep(done++);
    goOn = !findings.gaveUp();
    if (!findings.faults().empty()) wrong += (wrong.empty() ? "" : ", ") + std::to_string(done);
  }
  if (wrong.empty()) {
    std::printf("\n%zu steps, all checked\n", done);
  } else {
    std::printf("\n%zu of %zu steps, wrong: %s\n", done, mSteps.size(), wrong.c_str());
  }
  return wrong.empty();
}

Findings Tour::runStep(std::size_t index) {
  const Step& step = mSteps[index];
  Findings findings;
  showProgress(index, step.title);
  const Clock::time_point start = Clock::now();
  step.body(findings);
  const std::string time = timeText(Clock::now() - start);
  clearProgress();
  std::printf("%2zu  %-55s %10s  %s\n", index + 1, step.title.c_str(), time.c_str(),
              findings.faults().empty() ? "ok" : "WRONG");
  for (const std::string& line : findings.notes()) std::printf("      %s\n", line.c_str());
  for (const std::string& line : findings.faults()) std::printf("    ! %s\n", line.c_str());
  std::fflush(stdout);
  return findings;
}

// The bar is a line without an end, and blanks take it away: every terminal can do that.
void Tour::showProgress(std::size_t done, const std::string& title) const {
  if (!mProgress) return;
  std::string bar(kBarWidth, '.');
  bar.replace(0, done * kBarWidth / mSteps.size(), done * kBarWidth / mSteps.size(), '#');
  std::printf("    [%s] %zu of %zu: %.40s", bar.c_str(), done + 1, mSteps.size(), title.c_str());
  std::fflush(stdout);
}

void Tour::clearProgress() const {
  if (mProgress) std::printf("\r%*s\r", kLineWidth, "");
}

}  // namespace kelctl
