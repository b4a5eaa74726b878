/* SPDX-License-Identifier: MIT */
// How kelctl ends: its exit statuses, and what ends a verb with one of them.
#pragma once

#include <stdexcept>
#include <string>

namespace kelctl {

// Exit statuses; statusTable() says what each means.
inline constexpr int kDone = 0;
inline constexpr int kRefused = 1;
inline constexpr int kWrongUsage = 2;
inline constexpr int kNoAnswer = 3;
inline constexpr int kNoLink = 4;
inline constexpr int kNoTask = 5;
inline constexpr int kBusy = 6;

/// Lines of status and meaning, for the help and the pages that are made from it.
std::string statusTable();

/// What went wrong, and the status that the program ends with. `cause` is a word for scripts, or empty.
class Fault : public std::runtime_error {
 public:
  Fault(int status, const std::string& text, std::string cause = "")
      : std::runtime_error(text), mStatus(status), mCause(std::move(cause)) {}

  int status() const { return mStatus; }
  const std::string& cause() const { return mCause; }

 private:
  const int mStatus;
  const std::string mCause;
};

/// Nobody reads standard output any more, as behind `| head`: there is nothing left to do, and nothing to tell.
class ReaderGone : public std::runtime_error {
 public:
  ReaderGone() : std::runtime_error("nobody reads standard output") {}
};

/// Ctrl-C while something was waited for.
inline Fault interruption() { return {kRefused, "interrupted before the answer came.", "interrupted"}; }

}  // namespace kelctl
