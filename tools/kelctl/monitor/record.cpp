// SPDX-License-Identifier: MIT
#include "monitor/record.h"

#include <algorithm>
#include <cmath>

namespace kelctl::monitor {
namespace {

constexpr std::size_t kLatencies = 1000;

std::int64_t secondOf(Clock::time_point time) {
  return std::chrono::floor<std::chrono::seconds>(time.time_since_epoch()).count();
}

Clock::duration medianOf(std::vector<Clock::duration> times) {
  const auto middle = times.begin() + static_cast<std::ptrdiff_t>((times.size() - 1) / 2);
  std::nth_element(times.begin(), middle, times.end());
  return *middle;
}

}  // namespace

void Rate::advance(std::int64_t second) {
  const auto slots = static_cast<std::int64_t>(mCounts.size());
  for (std::int64_t passed = std::min(second - mSecond, slots); passed > 0; --passed) {
    mCounts[static_cast<std::size_t>((second - passed + 1) % slots)] = 0;
  }
  mSecond = std::max(mSecond, second);
}

void Rate::count(Clock::time_point now) {
  advance(secondOf(now));
  if (!mFirst) mFirst = now;
  ++mCounts[static_cast<std::size_t>(mSecond) % mCounts.size()];
}

double Rate::perSecond(Clock::time_point now) const {
  if (!mFirst) return 0;
  Rate rate = *this;
  rate.advance(secondOf(now));
  double sum = 0;
  for (std::size_t back = 1; back <= kSeconds; ++back) {
    sum += rate.mCounts[(static_cast<std::size_t>(rate.mSecond) - back) % rate.mCounts.size()];
  }
  const std::chrono::duration<double> time = Clock::time_point(std::chrono::seconds(rate.mSecond)) - *mFirst;
  if (time.count() >= 1) return sum / std::min<double>(time.count(), kSeconds);
  // There is no whole second yet: what has come so far.
  return sum + rate.mCounts[static_cast<std::size_t>(rate.mSecond) % rate.mCounts.size()];
}

void Latencies::add(Clock::duration time, Clock::time_point now) {
  mLongest = std::max(mLongest, time);
  mLast.push_back(time);
  if (mLast.size() > kLatencies) mLast.pop_front();
  const std::int64_t second = secondOf(now);
  if (mSeconds.empty() || mSeconds.back().number < second) mSeconds.push_back({second, {}});
  mSeconds.back().times.push_back(time);
  if (mSeconds.size() > kSeconds + 1) mSeconds.pop_front();
}

Clock::duration Latencies::percentile(double percent) const {
  std::vector<Clock::duration> sorted(mLast.begin(), mLast.end());
  std::sort(sorted.begin(), sorted.end());
  const auto rank = static_cast<std::size_t>(std::ceil(percent / 100 * static_cast<double>(sorted.size())));
  return sorted[std::max<std::size_t>(rank, 1) - 1];
}

std::vector<std::optional<Clock::duration>> Latencies::medians(Clock::time_point now) const {
  std::vector<std::optional<Clock::duration>> medians(kSeconds);
  for (const Second& second : mSeconds) {
    const std::int64_t age = secondOf(now) - second.number;
    if (age >= 1 && age <= static_cast<std::int64_t>(kSeconds)) {
      medians[kSeconds - static_cast<std::size_t>(age)] = medianOf(second.times);
    }
  }
  return medians;
}

void Record::changed(const kel::StateChange& change, Clock::time_point now) {
  const std::lock_guard lock(mMutex);
  if (change.state != mState) mSince = now;
  mState = change.state;
  mReason = change.reason;
}

void Record::answered(Clock::time_point sent, Clock::time_point now) {
  const std::lock_guard lock(mMutex);
  ++mAnswered;
  mTasks.count(now);
  mLatencies.add(now - sent, now);
}

void Record::failed(kel::Cause cause) {
  const std::lock_guard lock(mMutex);
  ++mFailures[cause];
}

void Record::broadcast(const kel::Broadcast& broadcast, Clock::time_point now) {
  const std::lock_guard lock(mMutex);
  Source& source = mBroadcasts[{broadcast.task, broadcast.sequenceWord()}];
  source.name = broadcast.task;
  source.sequenceWord = broadcast.sequenceWord();
  ++source.count;
  source.rate.count(now);
  source.last = broadcast;
}

std::size_t Record::openStream(const std::string& task) {
  const std::lock_guard lock(mMutex);
  mStreams.emplace_back().name = task;
  return mStreams.size() - 1;
}

void Record::opened(std::size_t stream) {
  const std::lock_guard lock(mMutex);
  mStreams[stream].end = kel::End::none;
}

void Record::message(std::size_t stream, const kel::Message& message, Clock::time_point now) {
  const std::lock_guard lock(mMutex);
  Source& source = mStreams[stream];
  ++source.count;
  source.rate.count(now);
  source.last = message;
}

void Record::ended(std::size_t stream, kel::End end) {
  const std::lock_guard lock(mMutex);
  mStreams[stream].end = end;
}

Picture Record::picture(const kel::Statistics& statistics, Clock::time_point now) const {
  const std::lock_guard lock(mMutex);
  Picture picture;
  picture.now = now;
  picture.start = mStart;
  picture.state = mState;
  picture.since = mSince;
  picture.reason = mReason;
  picture.statistics = statistics;
  picture.failures = mFailures;
  picture.answered = mAnswered;
  picture.tasksPerSecond = mTasks.perSecond(now);
  picture.latencies = mLatencies;
  for (const auto& [key, source] : mBroadcasts) picture.broadcasts.push_back(source);
  picture.streams = mStreams;
  return picture;
}

}  // namespace kelctl::monitor
