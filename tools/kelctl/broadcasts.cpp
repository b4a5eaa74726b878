#include "broadcasts.h"

#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <utility>

namespace kelctl {
namespace {

std::mutex gLock;
std::condition_variable gArrived;
std::deque<Broadcast> gQueue;  // guarded by gLock

}  // namespace

void queueBroadcast(char* name, std::uint32_t isRef, void* payload, std::uint32_t size, std::uint32_t /*seqTui*/) {
  const auto* bytes = static_cast<const std::uint8_t*>(payload);
  Broadcast broadcast{name, isRef != 0, Bytes(bytes, bytes + size), Clock::now()};
  // Both blocks are this side's from now on.
  std::free(name);
  std::free(payload);
  {
    const std::lock_guard lock(gLock);
    gQueue.push_back(std::move(broadcast));
  }
  gArrived.notify_one();
}

std::optional<Broadcast> nextBroadcast(Clock::time_point deadline) {
  std::unique_lock lock(gLock);
  if (!gArrived.wait_until(lock, deadline, [] { return !gQueue.empty(); })) return std::nullopt;
  Broadcast broadcast = std::move(gQueue.front());
  gQueue.pop_front();
  return broadcast;
}

}  // namespace kelctl
