/* SPDX-License-Identifier: MIT */
// What the monitor has seen of a device so far. The client's callbacks write it, and the screen reads it.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "clock.h"
#include "kel/client.hpp"

namespace kelctl::monitor {

/// Events a second, over the last few whole seconds.
class Rate {
 public:
  void count(Clock::time_point now);
  double perSecond(Clock::time_point now) const;

 private:
  static constexpr std::size_t kSeconds = 5;

  void advance(std::int64_t second);

  std::array<std::uint32_t, kSeconds + 1> mCounts{};  ///< of the second under way and those before it, in a ring
  std::int64_t mSecond = 0;
  std::optional<Clock::time_point> mFirst;  ///< when the first event was
};

/// Times of answers: the last thousand, and the median of each of the last sixty seconds.
class Latencies {
 public:
  static constexpr std::size_t kSeconds = 60;

  void add(Clock::duration time, Clock::time_point now);

  bool empty() const { return mLast.empty(); }
  /// The least time that so many percent of the last thousand did not exceed.
  Clock::duration percentile(double percent) const;
  Clock::duration longest() const { return mLongest; }
  /// The medians from the oldest second to the last whole one. None for a second without an answer.
  std::vector<std::optional<Clock::duration>> medians(Clock::time_point now) const;

 private:
  struct Second {
    std::int64_t number;
    std::vector<Clock::duration> times;
  };

  std::deque<Clock::duration> mLast;
  std::deque<Second> mSeconds;
  Clock::duration mLongest{};
};

/// Broadcasts with one name and sequence word, or the messages of one stream.
struct Source {
  std::string name;
  std::uint32_t sequenceWord = 0;
  std::uint64_t count = 0;
  Rate rate;
  kel::Payload last;
  std::optional<kel::End> end;  ///< of a stream: none while it is being opened
};

/// One moment of it, for the screen.
struct Picture {
  Clock::time_point now;
  Clock::time_point start;
  kel::State state = kel::State::connecting;
  Clock::time_point since;  ///< when that state began
  std::string reason;       ///< of that state
  kel::Statistics statistics;
  std::map<kel::Cause, std::uint64_t> failures;
  std::uint64_t answered = 0;
  double tasksPerSecond = 0;
  Latencies latencies;
  std::vector<Source> broadcasts;
  std::vector<Source> streams;
};

class Record {
 public:
  explicit Record(Clock::time_point start) : mStart(start), mSince(start) {}

  // As the client tells of it, from any thread.
  void changed(const kel::StateChange& change, Clock::time_point now);
  void answered(Clock::time_point sent, Clock::time_point now);
  void failed(kel::Cause cause);
  void broadcast(const kel::Broadcast& broadcast, Clock::time_point now);
  /// A stream that is about to be opened. Its number is for the calls below.
  std::size_t openStream(const std::string& task);
  void opened(std::size_t stream);
  void message(std::size_t stream, const kel::Message& message, Clock::time_point now);
  void ended(std::size_t stream, kel::End end);

  Picture picture(const kel::Statistics& statistics, Clock::time_point now) const;

 private:
  mutable std::mutex mMutex;  ///< guards all of it
  const Clock::time_point mStart;
  kel::State mState = kel::State::connecting;
  Clock::time_point mSince;
  std::string mReason;
  std::uint64_t mAnswered = 0;
  std::map<kel::Cause, std::uint64_t> mFailures;
  Rate mTasks;
  Latencies mLatencies;
  std::map<std::pair<std::string, std::uint32_t>, Source> mBroadcasts;
  std::vector<Source> mStreams;
};

}  // namespace kelctl::monitor
