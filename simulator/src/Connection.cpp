// SPDX-License-Identifier: MIT
#include "Connection.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "Hub.h"
#include "SluiceHubSim.h"
#include "adapter/TaskRecord.h"

namespace kel::sim {
namespace {

/// Orders the heap: what is due first, and of equals what was posted first, stands in front.
bool IsLater(const std::unique_ptr<Delivery>& a, const std::unique_ptr<Delivery>& b) {
  return a->due != b->due ? a->due > b->due : a->order > b->order;
}

std::string_view WhyDisconnected(std::uint32_t reason) {
  if (reason == L5_RESULT_USER_REQUESTED_DISCONNECT) return "its owner closed the connection";
  return reason == SLUICEHUBSIM_REASON_SHUTDOWN ? "the device was shut down" : "the link was lost";
}

}  // namespace

void Connection::Start(const std::shared_ptr<Connection>& self) {
  mThread = std::thread([self] { self->Run(); });
}

void Connection::Push(std::unique_ptr<Delivery> delivery) {
  mQueue.push_back(std::move(delivery));
  std::push_heap(mQueue.begin(), mQueue.end(), IsLater);
}

void Connection::Post(std::unique_ptr<Delivery> delivery) {
  if (mClosing || mHub.halted) {
    Finish(std::move(delivery));
    return;
  }
  delivery->order = ++mLastOrder;
  if (delivery->holdBack != 0) {
    mHeld.push_back(std::move(delivery));
  } else {
    Push(std::move(delivery));
  }
}

void Connection::Finish(std::unique_ptr<Delivery> delivery) {
  if (delivery->completion != nullptr) --delivery->completion->pending;
  mHub.Recycle(std::move(delivery));
}

void Connection::DropAll() {
  for (Queue* queue : {&mQueue, &mHeld}) {
    for (auto& delivery : *queue) Finish(std::move(delivery));
    queue->clear();
  }
  mHub.NotifyWaiters();
}

void Connection::LoseLink() {
  mLost = true;
  DropAll();
}

void Connection::HangUp() {
  auto event = mHub.NewDelivery(Delivery::Kind::kEvent, L5_EVENT_DISCONNECTED);
  event->reason = SLUICEHUBSIM_REASON_SHUTDOWN;
  Post(std::move(event));
  mLost = true;
}

void Connection::EndStreams(std::uint32_t TUI) {
  const auto end = [&](Delivery& delivery) {
    if (delivery.kind != Delivery::Kind::kSeries || delivery.series.TUI != TUI || delivery.series.isBroadcast) return;
    delivery.series.EndNow();
    delivery.due = std::min(delivery.due, Clock::now());
  };
  if (mCurrent != nullptr) end(*mCurrent);
  for (auto& delivery : mQueue) end(*delivery);
  std::make_heap(mQueue.begin(), mQueue.end(), IsLater);
}

void Connection::Close(std::unique_lock<std::mutex>& lock) {
  mClosing = true;
  DropAll();
  if (OnOwnThread()) {
    mThread.detach();
    mDisconnectReported = true;
    RecordEvent(L5_EVENT_DISCONNECTED, L5_RESULT_USER_REQUESTED_DISCONNECT);
    lock.unlock();
    HandOwnDisconnect();
    return;
  }
  std::thread thread = std::move(mThread);
  lock.unlock();
  Wake();
  if (thread.joinable()) thread.join();
}

void Connection::Run() {
  std::unique_lock lock(mHub.mutex);
  ++mHub.runningThreads;
  while (!mClosing && !mHub.halted) {
    if (mQueue.empty()) {
      mSleepsUntil = Clock::time_point::max();
      mWake.wait(lock);
    } else if (const auto due = mQueue.front()->due; due > Clock::now()) {
      mSleepsUntil = due;
      mWake.wait_until(lock, due);
    } else {
      DeliverNext(lock);
    }
    mSleepsUntil = Clock::time_point::min();
  }
  DropAll();
  if (mClosing && !mDisconnectReported) {
    RecordEvent(L5_EVENT_DISCONNECTED, L5_RESULT_USER_REQUESTED_DISCONNECT);
    lock.unlock();
    HandOwnDisconnect();
    lock.lock();
  }
  // At the end of the process nobody is left to join it.
  if (mHub.halted && mThread.joinable()) mThread.detach();
  --mHub.runningThreads;
}

void Connection::DeliverNext(std::unique_lock<std::mutex>& lock) {
  std::pop_heap(mQueue.begin(), mQueue.end(), IsLater);
  std::unique_ptr<Delivery> delivery = std::move(mQueue.back());
  mQueue.pop_back();
  const bool isSeries = delivery->kind == Delivery::Kind::kSeries;
  if (isSeries && !delivery->series.Next(row, delivery->body)) {
    Finish(std::move(delivery));
    if (mQueue.empty()) mHub.NotifyWaiters();
    return;
  }

  if (delivery->kind == Delivery::Kind::kLinkLoss) {
    LoseLink();
    delivery->kind = Delivery::Kind::kEvent;
  }
  Record(*delivery);
  mCurrent = delivery.get();
  lock.unlock();
  Hand(*delivery);
  lock.lock();
  mCurrent = nullptr;

  if (delivery->kind != Delivery::Kind::kEvent) {
    ++mHub.counts.responses;
    mHub.counts.responseBytes += delivery->body.size();
    if (!mHeld.empty()) CountTowardsHeld(delivery->order);
  }
  if (isSeries && !mClosing && !mLost) {
    // What follows at once lines up behind everything that has become due meanwhile, and keeps nothing else waiting.
    const std::uint32_t interval = delivery->series.TimeToNext();
    delivery->due = interval != 0 ? delivery->due + std::chrono::milliseconds(interval) : Clock::now();
    delivery->order = ++mLastOrder;
    Push(std::move(delivery));
  } else {
    Finish(std::move(delivery));
  }
  mHub.NotifyWaiters();
}

void Connection::CountTowardsHeld(std::uint64_t deliveredOrder) {
  for (auto held = mHeld.begin(); held != mHeld.end();) {
    if ((*held)->order < deliveredOrder && --(*held)->holdBack == 0) {
      Push(std::move(*held));
      held = mHeld.erase(held);
    } else {
      ++held;
    }
  }
}

void Connection::Record(const Delivery& delivery) const {
  if (!mHub.capture.IsOn()) return;
  if (delivery.kind == Delivery::Kind::kEvent) {
    RecordEvent(delivery.ID, delivery.reason);
    return;
  }
  mHub.capture.Add({.kind = CaptureKind::kMessage,
                    .connection = mNumber,
                    .agent = L5_AGENT_KELPROXY,
                    .ID = delivery.ID,
                    .body = delivery.body,
                    .comment = mMessages != nullptr ? "" : "there is no handler for it"});
}

void Connection::RecordEvent(std::uint32_t event, std::uint32_t reason) const {
  if (!mHub.capture.IsOn()) return;
  std::string_view comment;
  if (event == L5_EVENT_DISCONNECTED) comment = WhyDisconnected(reason);
  mHub.capture.Add(
      {.kind = CaptureKind::kEvent, .connection = mNumber, .ID = event, .status = reason, .comment = comment});
}

void Connection::Hand(const Delivery& delivery) const {
  if (delivery.kind == Delivery::Kind::kEvent) {
    if (mEvents != nullptr) mEvents(mValue, delivery.ID, &delivery.reason, mContext);
    return;
  }
  if (mMessages == nullptr) return;
  std::array<std::uint8_t, sizeof(KelRequestReply)> reply{};
  std::uint32_t replyID = 0;
  auto replySize = static_cast<std::uint32_t>(reply.size());
  mMessages(mValue, L5_AGENT_KELPROXY, delivery.ID, delivery.body.data(),
            static_cast<std::uint32_t>(delivery.body.size()), &replyID, reply.data(), &replySize, nullptr, nullptr);
}

void Connection::HandOwnDisconnect() const {
  const std::uint32_t reason = L5_RESULT_USER_REQUESTED_DISCONNECT;
  if (mEvents != nullptr) mEvents(mValue, L5_EVENT_DISCONNECTED, &reason, mContext);
}

}  // namespace kel::sim
