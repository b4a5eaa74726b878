// SPDX-License-Identifier: MIT
// The road over the library in this process.
//
// The library runs its calls one at a time over all connections, and some of them last: a connect waits for the device,
// a disconnect for what is running, a version check for an answer. So those pass a gate alone, and a request that finds
// the gate closed is busy rather than stuck behind it.
//
// A callback of the library learns no more than the number of its request, and that of a broadcast not even this: so
// connections have slots, the slot is the upper part of each number, and each slot has a broadcast callback of its own.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "KELHandler.h"
#include "kel/detail/library_memory.hpp"
#include "kel/detail/road.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

/// Requests pass together and briefly; a call that lasts passes alone.
class Gate {
 public:
  /// False if a call that lasts is in it, or wants to be.
  bool tryEnter() {
    mInside.fetch_add(1);
    if (!mIsClosed.load()) return true;
    leave();
    return false;
  }

  void leave() {
    if (mInside.fetch_sub(1) != 1 || !mIsClosed.load()) return;
    const Lock lock(mMutex);
    mChanged.notifyAll();
  }

  void close() {
    Lock lock(mMutex);
    while (mIsClosed.load()) mChanged.wait(mMutex);
    mIsClosed.store(true);
    while (mInside.load() != 0) mChanged.wait(mMutex);
  }

  void open() {
    const Lock lock(mMutex);
    mIsClosed.store(false);
    mChanged.notifyAll();
  }

  void awaitOpen(Clock::time_point deadline) {
    const Lock lock(mMutex);
    while (mIsClosed.load() && Clock::now() < deadline) mChanged.waitUntil(mMutex, deadline);
  }

 private:
  std::atomic<std::uint32_t> mInside{0};
  std::atomic<bool> mIsClosed{false};  // changed under mMutex
  Mutex mMutex;
  Condition mChanged;
};

/// Holds the gate for a call that lasts.
class Alone {
 public:
  explicit Alone(Gate& gate) : mGate(gate) { mGate.close(); }
  ~Alone() { mGate.open(); }
  Alone(const Alone&) = delete;
  Alone& operator=(const Alone&) = delete;

 private:
  Gate& mGate;
};

/// The place of a connection. Callbacks pass its gate, which is open while there is a sink.
struct Slot {
  Slot() { gate.close(); }

  Gate gate;
  Sink* sink = nullptr;
};

/// What all connections of the process share. Never destroyed, since threads of the library may outlive a static
/// object.
struct Process {
  Gate gate;
  std::array<Slot, KEL_MAX_CONNECTIONS> slots;

  Mutex mutex;
  std::array<bool, KEL_MAX_CONNECTIONS> taken KEL_DETAIL_GUARDED_BY(mutex){};
  std::uint32_t users KEL_DETAIL_GUARDED_BY(mutex) = 0;  // of the pipe library

  static Process& get() {
    static Process& process = *new Process;
    return process;
  }
};

/// Keeps the pipe library started.
class PipeLibraryUse {
 public:
  PipeLibraryUse() {
    Process& process = Process::get();
    const Lock lock(process.mutex);
    if (process.users++ == 0) KEL_Init();
  }
  ~PipeLibraryUse() {
    Process& process = Process::get();
    const Lock lock(process.mutex);
    if (--process.users == 0) KEL_Finalize();
  }
  PipeLibraryUse(const PipeLibraryUse&) = delete;
  PipeLibraryUse& operator=(const PipeLibraryUse&) = delete;
};

struct FreeLibraryBlock {
  void operator()(const void* block) const noexcept { freeLibraryBlock(const_cast<void*>(block)); }
};

constexpr std::uint32_t kIdMask = (1u << kIdBits) - 1;

inline Form formBy(bool isRef) { return isRef ? Form::ref : Form::val; }

inline std::uint32_t idOf(std::uint32_t commandID) { return commandID & kIdMask; }

/// Runs what takes a message. One for which there is no memory is lost, as in the library: then `isEnd` tells whether
/// nothing more comes for its request.
template <class Delivery>
void deliver(std::uint32_t commandID, bool isEnd, Delivery delivery) noexcept {
  Slot& slot = Process::get().slots[commandID >> kIdBits];
  if (!slot.gate.tryEnter()) return;
  try {
    try {
      delivery(*slot.sink);
    } catch (const std::bad_alloc&) {
      if (isEnd) slot.sink->failed(idOf(commandID), Cause::noAnswer, KEL_OK);
    }
  } catch (const std::bad_alloc&) {
  }
  slot.gate.leave();
}

inline void takeAnswer(std::uint32_t errorCode, std::uint32_t commandID, std::uint32_t /*sequenceByte*/,
                       std::uint32_t isRef, void* data, std::uint32_t size, std::uint32_t seqTUI) noexcept {
  deliver(commandID, true, [&](Sink& sink) {
    if (errorCode != 0) return sink.failed(idOf(commandID), Cause::noAnswer, KEL_OK);
    sink.answered(idOf(commandID), Payload::copied(formBy(isRef != 0), seqTUI, data, size));
  });
}

inline void takeStreamMessage(std::uint32_t /*errorCode*/, std::uint32_t commandID, std::uint32_t /*sequenceByte*/,
                              std::uint32_t streamEnd, std::uint32_t isRef, void* data, std::uint32_t size,
                              std::uint32_t seqTUI) noexcept {
  deliver(commandID, streamEnd != 0, [&](Sink& sink) {
    sink.streamed(idOf(commandID), {Payload::copied(formBy(isRef != 0), seqTUI, data, size), streamEnd != 0});
  });
}

template <std::size_t kSlot>
void takeBroadcast(char* name, std::uint32_t isRef, void* payload, std::uint32_t size, std::uint32_t seqTUI) noexcept {
  const std::unique_ptr<char, FreeLibraryBlock> ownedName(name);
  std::unique_ptr<void, FreeLibraryBlock> ownedPayload(payload);
  deliver(static_cast<std::uint32_t>(kSlot) << kIdBits, false, [&](Sink& sink) {
    sink.broadcast({Payload::shared(formBy(isRef != 0), seqTUI, std::move(ownedPayload), size), name});
  });
}

template <std::size_t... kSlots>
KEL_BroadcastCallback broadcastCallback(std::size_t slot, std::index_sequence<kSlots...>) {
  static constexpr KEL_BroadcastCallback kCallbacks[] = {takeBroadcast<kSlots>...};
  return kCallbacks[slot];
}

class ProcessRoad final : public Road {
 public:
  std::optional<TaskTable> table(const std::string& path) const override { return TaskTable::inForce(path); }
  bool confirmsPosts() const override { return false; }
  std::string failure() const override { return "connecting failed"; }
  void listen() override {}

  bool open(const std::string& table, Sink& sink) override {
    Process& process = Process::get();
    if (!takeSlot(process)) return false;
    process.slots[mSlot].sink = &sink;
    process.slots[mSlot].gate.open();
    {
      const Alone alone(process.gate);
      if (KEL_Connect(table.empty() ? nullptr : table.c_str(),
                      broadcastCallback(mSlot, std::make_index_sequence<KEL_MAX_CONNECTIONS>()),
                      &mConnection) == KEL_OK) {
        return true;
      }
    }
    process.slots[mSlot].gate.close();
    giveBackSlot(process);
    return false;
  }

  void close() override {
    Process& process = Process::get();
    bool isClosed = false;
    {
      const Alone alone(process.gate);
      // What could not be closed may be closed again.
      for (int attempt = 0; attempt < 2 && !isClosed; ++attempt) isClosed = KEL_Disconnect(mConnection) == KEL_OK;
    }
    // The library may be in a call for a connection that it could not close, and go on calling. So calls that are
    // inside are waited for, later ones find the gate closed, and the slot stays taken.
    process.slots[mSlot].gate.close();
    if (isClosed) giveBackSlot(process);
  }

  Sent send(const Outgoing& request) override {
    Gate& gate = Process::get().gate;
    if (!gate.tryEnter()) return Sent::busy;
    std::uint32_t sequenceNumber = 0;
    const std::uint32_t code = KEL_SendReceiveAsyncKELEx(
        mConnection, request.task, static_cast<std::uint32_t>(mSlot) << kIdBits | request.id, request.data,
        static_cast<std::uint32_t>(request.size), request.sequenceWord, request.expectsAnswer ? 1 : 0,
        request.expectsAnswer ? &sequenceNumber : nullptr, request.expectsAnswer ? takeAnswer : nullptr,
        request.isStream ? takeStreamMessage : nullptr);
    gate.leave();
    switch (code) {
      case KEL_OK:
        return Sent::sent;
      case KEL_E_CONNECTION:
        return Sent::notConnected;
      default:
        return Sent::refused;
    }
  }

  void awaitTurn(Clock::time_point deadline) override { Process::get().gate.awaitOpen(deadline); }

  Result<bool> validateVersion(std::string file, const void* content, std::uint32_t size, std::uint64_t userVersion,
                               const std::string& vectors) override {
    const Alone alone(Process::get().gate);
    const std::uint32_t verdict =
        KEL_ValidateVersion(mConnection, file.data(), content, size, &userVersion, vectors.c_str());
    if (verdict == KEL_E_CONNECTION) return Error{Cause::notConnected, verdict, std::move(file)};
    return verdict == KEL_VERSION_VALID;
  }

  std::uint32_t codeOf(Sent sent) const override {
    switch (sent) {
      case Sent::refused:
        return KEL_E_ASYNC_TASK;
      case Sent::notConnected:
        return KEL_E_CONNECTION;
      default:
        return KEL_OK;
    }
  }

 private:
  bool takeSlot(Process& process) {
    const Lock lock(process.mutex);
    for (mSlot = 0; mSlot < KEL_MAX_CONNECTIONS; ++mSlot) {
      if (process.taken[mSlot]) continue;
      return process.taken[mSlot] = true;
    }
    return false;
  }

  void giveBackSlot(Process& process) {
    const Lock lock(process.mutex);
    process.taken[mSlot] = false;
  }

  const PipeLibraryUse mUse;
  std::size_t mSlot = 0;
  std::uint64_t mConnection = 0;
};

}  // namespace detail
}  // namespace v1
}  // namespace kel
