// SPDX-License-Identifier: MIT
#include "Calls.h"

#include <utility>

namespace kel::console {
namespace {

constexpr std::size_t kMostCalls = 500;
constexpr std::size_t kMostBytes = std::size_t{16} << 20;

}  // namespace

std::uint64_t Calls::begin(Order order) {
  const std::lock_guard lock(mMutex);
  mCalls.push_back({++mLastId, now(), std::chrono::steady_clock::now(), std::move(order), {}});
  mBytes += bytesOf(mCalls.back());
  tell(mCalls.back());
  forgetOld();
  return mLastId;
}

void Calls::end(std::uint64_t id, const Result<Payload>& outcome) {
  const std::lock_guard lock(mMutex);
  Call* const call = const_cast<Call*>(find(id));
  if (call == nullptr) return;
  call->milliseconds =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - call->start).count();
  mBytes -= bytesOf(*call);
  call->outcome = outcome;
  mBytes += bytesOf(*call);
  tell(*call);
  forgetOld();
}

Json Calls::json() const {
  const std::lock_guard lock(mMutex);
  Json calls = Json::array();
  for (const Call& call : mCalls) calls.push_back(jsonOf(call));
  return calls;
}

std::optional<Order> Calls::order(std::uint64_t id) const {
  const std::lock_guard lock(mMutex);
  const Call* const call = find(id);
  return call != nullptr ? std::optional(call->order) : std::nullopt;
}

std::optional<Payload> Calls::answer(std::uint64_t id) const {
  const std::lock_guard lock(mMutex);
  const Call* const call = find(id);
  if (call == nullptr || !call->outcome || !call->outcome->ok()) return std::nullopt;
  return **call->outcome;
}

Json Calls::jsonOf(const Call& call) {
  Json json{{"id", call.id},
            {"time", call.time},
            {"task", call.order.task},
            {"wantsAnswer", call.order.wantsAnswer},
            {"request", console::jsonOf(call.order.form, call.order.bytes())}};
  if (!call.outcome) {
    json["state"] = "waiting";
    return json;
  }
  json["milliseconds"] = call.milliseconds;
  if (!call.outcome->ok()) {
    json["state"] = "failed";
    json["cause"] = word(call.outcome->cause());
    json["text"] = text(call.outcome->cause());
  } else if (call.order.wantsAnswer) {
    json["state"] = "answered";
    json["answer"] = console::jsonOf((*call.outcome)->form(), (*call.outcome)->bytes());
  } else {
    json["state"] = "sent";
  }
  return json;
}

std::size_t Calls::bytesOf(const Call& call) {
  return call.order.payload.size() + (call.outcome && call.outcome->ok() ? (*call.outcome)->size() : 0);
}

const Calls::Call* Calls::find(std::uint64_t id) const {
  if (mCalls.empty() || id < mCalls.front().id || id > mCalls.back().id) return nullptr;
  return &mCalls[id - mCalls.front().id];
}

void Calls::tell(const Call& call) const { mJournal.add(textOf({{"kind", "call"}, {"call", jsonOf(call)}})); }

void Calls::forgetOld() {
  while (mCalls.size() > kMostCalls || (mBytes > kMostBytes && mCalls.size() > 1)) {
    mBytes -= bytesOf(mCalls.front());
    mCalls.pop_front();
  }
}

}  // namespace kel::console
