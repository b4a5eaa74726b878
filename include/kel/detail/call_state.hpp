// SPDX-License-Identifier: MIT
// One call, from its making to its end.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kel/detail/callback_thread.hpp"
#include "kel/detail/message_queue.hpp"
#include "kel/detail/sync.hpp"
#include "kel/payload.hpp"
#include "kel/result.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

using StreamQueue = MessageQueue<Message>;
using OnAnswer = std::function<void(Result<Payload>)>;

/// Why a stream ends that is ended from this side.
inline End endBy(Cause cause) { return cause == Cause::linkLost ? End::linkLost : End::closed; }

/// One call. What is not constant is guarded by the core's mutex. Its job is to tell its end.
struct CallState final : Job {
  enum class Stage : std::uint8_t {
    waiting,  // in the core's queue
    sent,     // has an entry, if it takes one
    doubted,  // refused, and a heartbeat tells whether for the loss of the link
    done,
  };

  // Constant once the call is made.
  std::string task;
  Clock::time_point deadline;
  bool expectsAnswer = true;
  bool takesEntry = true;  // something comes back for it
  bool isRepeatable = false;
  bool isHeartbeat = false;
  std::uint32_t sequenceWord = 0;
  std::shared_ptr<StreamQueue> stream;  // null: no stream
  Clock::duration idle = kForever;
  Clock::duration duration = kForever;

  std::vector<std::uint8_t> payload;  // of a call that was not sent at once, or may be sent again
  OnAnswer onAnswer;                  // may be empty
  Stage stage = Stage::waiting;
  std::uint32_t id = 0;       // of its entry, in Stage::sent
  std::uint32_t tries = 0;    // for which the library may have had no number
  Clock::time_point nextTry;  // not before
  std::uint32_t waiters = 0;  // threads that wait for `done`
  std::optional<Result<Payload>> outcome;
  Condition done;

  /// Once, if it has ended and onAnswer is not empty. What the function keeps ends with its call.
  void run() override { std::exchange(onAnswer, nullptr)(*outcome); }
};

using CallRef = std::shared_ptr<CallState>;

/// Calls that have ended, whose waiting threads are woken behind the lock.
class Finished {
 public:
  Finished() = default;
  ~Finished() {
    if (mFirst) mFirst->done.notifyAll();
    for (const CallRef& call : mMore) call->done.notifyAll();
    for (const CallRef& call : mUntold) call->run();
  }
  Finished(const Finished&) = delete;
  Finished& operator=(const Finished&) = delete;

  void add(CallRef call) {
    if (mFirst) {
      mMore.push_back(std::move(call));
    } else {
      mFirst = std::move(call);
    }
  }
  /// The callback thread is gone: the caller's own thread has to do.
  void addUntold(CallRef call) { mUntold.push_back(std::move(call)); }

 private:
  CallRef mFirst;
  std::vector<CallRef> mMore;
  std::vector<CallRef> mUntold;
};

}  // namespace detail
}  // namespace v1
}  // namespace kel
