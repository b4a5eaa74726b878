/* SPDX-License-Identifier: MIT */
// A sequence of steps that are run, timed, checked and reported.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "KELHandler.h"
#include "output.h"

namespace kelctl {

/// What one step saw: lines to print, and what was not as it should be.
class Findings {
 public:
  void note(const std::string& line) { mNotes.push_back(line); }
  void expect(bool holds, const std::string& fault) {
    if (!holds) mFaults.push_back(fault);
  }
  /// Notes what a call returned, which should be `expected`.
  void expectCode(const std::string& call, std::uint32_t code, std::uint32_t expected = KEL_OK);
  /// No step behind this one makes sense.
  void giveUp() { mGaveUp = true; }

  const std::vector<std::string>& notes() const { return mNotes; }
  const std::vector<std::string>& faults() const { return mFaults; }
  bool gaveUp() const { return mGaveUp; }

 private:
  std::vector<std::string> mNotes;
  std::vector<std::string> mFaults;
  bool mGaveUp = false;
};

class Tour {
 public:
  using Body = std::function<void(Findings&)>;

  /// A terminal gets a bar under the steps so far.
  explicit Tour(Output& output) : mOutput(output) {}

  void add(const std::string& title, Body body) { mSteps.push_back({title, std::move(body)}); }

  /// Runs the steps in their order, up to Ctrl-C where that is caught. False if anything was wrong, or is missing.
  bool run();

 private:
  struct Step {
    std::string title;
    Body body;
  };

  Findings runStep(std::size_t index);
  void showProgress(std::size_t done, const std::string& title);

  Output& mOutput;
  std::vector<Step> mSteps;
};

}  // namespace kelctl
