/* SPDX-License-Identifier: MIT */
// The history: tasks that were sent, with their answers.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

#include "Journal.h"
#include "Json.h"
#include "kel/client.hpp"

namespace kel::console {

/// A task to send.
struct Order {
  std::string task;
  Form form = Form::ref;  ///< of the task, and so of the payload
  Octets payload;
  Milliseconds timeout{10000};
  bool wantsAnswer = true;

  Bytes bytes() const { return {payload.data(), payload.size()}; }
};

/// What was sent last, up to a number of calls and of bytes. Each change goes to the journal as well, as
/// {"kind": "call", "call": {...}} with the whole call. Every function may be called by any thread.
class Calls {
 public:
  explicit Calls(Journal& journal) : mJournal(journal) {}

  /// A call begins. Returns its number, from 1.
  std::uint64_t begin(Order order);
  /// It has ended.
  void end(std::uint64_t id, const Result<Payload>& outcome);

  /// All of them, oldest first.
  Json json() const;
  /// What was sent, and what was answered. Nothing for a call that is too old, or has no answer.
  std::optional<Order> order(std::uint64_t id) const;
  std::optional<Payload> answer(std::uint64_t id) const;

 private:
  struct Call {
    std::uint64_t id;
    double time;
    std::chrono::steady_clock::time_point start;
    Order order;
    std::optional<Result<Payload>> outcome;
    double milliseconds = 0;
  };

  static Json jsonOf(const Call& call);
  static std::size_t bytesOf(const Call& call);
  const Call* find(std::uint64_t id) const;
  void tell(const Call& call) const;
  void forgetOld();

  Journal& mJournal;
  mutable std::mutex mMutex;
  std::deque<Call> mCalls;  // by id, which are without a gap
  std::uint64_t mLastId = 0;
  std::size_t mBytes = 0;
};

}  // namespace kel::console
