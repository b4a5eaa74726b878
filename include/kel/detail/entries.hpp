// SPDX-License-Identifier: MIT
// The numbers of a connection, by our own count.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>

#include "kel/detail/call_state.hpp"
#include "kel/detail/road.hpp"
#include "kel/detail/sync.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

/// One request that was sent and may still be answered.
struct Entry {
  std::uint32_t generation = 0;  // tells the requests apart that have had this entry
  bool isTaken = false;
  bool isStream = false;
  bool isLive = false;                  // somebody still waits for something of it
  CallRef call;                         // null: it has ended
  Clock::duration idle{}, duration{};   // of a stream
  std::shared_ptr<StreamQueue> stream;  // null: no stream, or one that nobody reads any more
  Clock::time_point opened;             // of a stream whose call has ended
};

/// When a stream that is open is over unless something comes.
inline Clock::time_point overAt(const Entry& entry) {
  const Clock::time_point last = (std::max)(entry.opened, entry.stream->cameLast());
  return (std::min)(at(entry.opened, entry.duration), at(last, entry.idle));
}

/// As many entries as a connection has numbers.
class Entries {
 public:
  static constexpr std::uint32_t kCount = 64;

  Entries() {
    for (std::uint32_t i = 0; i < kCount; ++i) mFree[i] = kCount - 1 - i;
  }

  std::uint32_t free() const { return mFreeCount; }
  std::uint32_t live() const { return mLive; }
  std::uint32_t held() const { return kCount - mFreeCount - mLive; }

  /// One that is taken or was so recently is perhaps still taken in the library, which frees a number only when the
  /// callback of its answer has returned.
  bool mayBeShort() const {
    const Clock::time_point recent = Clock::now() - kReturnTime;
    const auto isRecent = [&](Clock::time_point returned) { return returned > recent; };
    return kCount - mFreeCount + std::count_if(mReturned.begin(), mReturned.end(), isRecent) >= kCount;
  }

  /// Takes a free one. Returns its id, which comes back with the answer.
  std::uint32_t take(const CallRef& call) {
    const std::uint32_t index = mFree[--mFreeCount];
    Entry& entry = mEntries[index];
    entry.isTaken = true;
    entry.isStream = call->stream != nullptr;
    entry.isLive = true;
    entry.call = call;
    entry.stream = call->stream;
    entry.idle = call->idle;
    entry.duration = call->duration;
    ++mLive;
    return entry.generation << kIndexBits | index;
  }

  /// The entry of that id, or null if it has been released.
  Entry* find(std::uint32_t id) {
    Entry& entry = mEntries[id % kCount];
    return entry.isTaken && entry.generation == id / kCount ? &entry : nullptr;
  }

  /// The entry of a call that was sent and has not ended, if it takes one.
  Entry* find(const CallState& call) {
    Entry* const entry = call.stage == CallState::Stage::sent && call.takesEntry ? find(call.id) : nullptr;
    return entry != nullptr && entry->call.get() == &call ? entry : nullptr;
  }

  /// Nobody waits for anything of it any more, but it stays taken.
  void hold(Entry& entry) {
    if (entry.isLive) --mLive;
    entry.isLive = false;
  }

  /// The library had no number for it.
  void takeBack(Entry& entry) {
    hold(entry);
    entry.isTaken = false;
    entry.generation = (entry.generation + 1) % kGenerations;
    entry.call = nullptr;
    entry.stream = nullptr;
    mFree[mFreeCount++] = static_cast<std::uint32_t>(&entry - mEntries.data());
  }

  void release(Entry& entry) {
    takeBack(entry);
    mReturned[mNextReturned++ % kCount] = Clock::now();
  }

  /// The connection is gone, and all its numbers with it.
  void releaseAll() {
    for (Entry& entry : mEntries) {
      if (entry.isTaken) release(entry);
    }
    mReturned.fill({});
  }

  auto begin() { return mEntries.begin(); }
  auto end() { return mEntries.end(); }
  auto begin() const { return mEntries.begin(); }
  auto end() const { return mEntries.end(); }

 private:
  static constexpr std::uint32_t kIndexBits = 6;
  static_assert(kCount == 1u << kIndexBits);
  static constexpr std::uint32_t kGenerations = 1u << (kIdBits - kIndexBits);
  /// After its answer a number is free again within this time, also where the system is busy.
  static constexpr std::chrono::milliseconds kReturnTime{1000};

  std::array<Entry, kCount> mEntries;
  std::array<std::uint32_t, kCount> mFree{};  // the first mFreeCount are indices of free ones
  std::uint32_t mFreeCount = kCount;
  std::uint32_t mLive = 0;
  std::array<Clock::time_point, kCount> mReturned{};  // when the last ones were released
  std::uint32_t mNextReturned = 0;
};

}  // namespace detail
}  // namespace v1
}  // namespace kel
