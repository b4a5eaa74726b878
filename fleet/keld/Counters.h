/* SPDX-License-Identifier: MIT */
// What a worker counts: for its presence, the services protocol and the metrics.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

#include "kel/result.hpp"

namespace kel::fleet {

/// One endpoint's requests. Any thread.
class EndpointCounters {
 public:
  struct Snapshot {
    std::uint64_t requests = 0;
    std::uint64_t errors = 0;
    std::chrono::nanoseconds time{0};  ///< From a request to the end of its work, of all requests together.
    std::string lastError;
    std::array<std::uint64_t, 16> byCause{};  ///< Errors by the number of their cause.
  };

  void add(std::chrono::nanoseconds time, const Error* error) {
    const std::lock_guard<std::mutex> lock(mMutex);
    ++mCounts.requests;
    mCounts.time += time;
    if (error == nullptr) return;
    ++mCounts.errors;
    ++mCounts.byCause[static_cast<std::size_t>(error->cause) % mCounts.byCause.size()];
    mCounts.lastError = error->text();
  }

  Snapshot snapshot() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mCounts;
  }

 private:
  mutable std::mutex mMutex;
  Snapshot mCounts;
};

struct Counters {
  EndpointCounters tasks;
  EndpointCounters streams;
  std::atomic<std::uint64_t> streamMessages{0};
  std::atomic<std::uint32_t> openStreams{0};
  std::atomic<std::uint64_t> broadcasts{0};
  std::atomic<std::uint64_t> unpublished{0};  ///< Messages that no server took.
};

}  // namespace kel::fleet
