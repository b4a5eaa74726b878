/**
 * @file
 * KELHandler for C++20: owners for what has to be given back, exceptions for errors, and any function as a callback.
 * A single header over KELHandler.h, to be copied into a program.
 *
 *     kelhandler::Library library;
 *     kelhandler::Connection device;
 *     const kelhandler::Answer answer = device.send("TASK_ID_APPLICATION_DEBUG_VAL", kelhandler::Values{7, 8, 9});
 *     std::cout << answer.values()[0];
 *
 * Conventions
 *
 *  1. Errors. A call that the library refuses throws Error, with the library's code. A callback must not throw: that
 *     ends the program.
 *  2. Threads. Connection::send and its sisters may be called from any thread, but not while the connection is closed
 *     or moved; only a callback may then still send. Which calls wait for which is the library's matter: see
 *     KELHandler.h, conventions 5 and 6.
 *  3. Callbacks run on threads of the library, one at a time per connection. Connection::disconnect and the destructor
 *     wait for the one that is running; once they have begun, none starts any more. Unlike KEL_Disconnect they wait
 *     before they keep others waiting, so that the running callback may still send tasks.
 *  4. A callback must not close its own connection. Connection::disconnect throws std::logic_error there, and the
 *     destructor ends the program; KEL_Disconnect would never return.
 *  5. Memory. What a callback captures lives until its answer or its stream's end has come, or the connection is
 *     closed. What a callback is shown is gone when it returns. The library's blocks are released by free(), so the
 *     program has to share the library's C runtime.
 */
#ifndef KELHANDLER_HPP
#define KELHANDLER_HPP

#include <array>
#include <atomic>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "KELHandler.h"

namespace kelhandler {

static_assert(std::endian::native == std::endian::little, "payloads are little-endian");

/** A call that the library refused. */
class Error : public std::runtime_error {
 public:
  Error(const std::string& call, std::uint32_t code)
      : std::runtime_error(call + ": " + std::to_string(code) + ", " + meaning(code)), mCode(code) {}

  /** KEL_E_CONNECTION, KEL_E_ASYNC_TASK or KEL_E_TASK. */
  std::uint32_t code() const noexcept { return mCode; }

 private:
  static const char* meaning(std::uint32_t code) {
    switch (code) {
      case KEL_E_CONNECTION:
        return "the connection is not open, or could not be opened or closed";
      case KEL_E_ASYNC_TASK:
        return "the task could not be sent";
      case KEL_E_TASK:
        return "the task could not be sent, or no answer came in time";
      default:
        return "a result of the pipe library's own";
    }
  }

  std::uint32_t mCode;
};

/** The payload of a VAL task, and of its answer. */
using Values = std::array<std::uint32_t, 3>;

/** A payload to send: three values, any bytes, a text without an end mark, or nothing. Refers to what it was made of.
 */
class Request {
 public:
  /** Nothing: three zeros for a VAL task. */
  Request() = default;
  Request(const Values& values) : mBytes(std::as_bytes(std::span(values))) {}
  template <std::convertible_to<std::span<const std::byte>> Bytes>
  Request(const Bytes& bytes) : mBytes(bytes) {}
  template <std::convertible_to<std::string_view> Text>
  Request(const Text& text) : mBytes(std::as_bytes(std::span(std::string_view(text)))) {}

  const void* data() const { return mBytes.data(); }
  std::uint32_t size() const { return static_cast<std::uint32_t>(mBytes.size()); }

 private:
  std::span<const std::byte> mBytes;
};

/** A payload that came, read as what its task makes of it. Owns nothing. */
class Payload {
 public:
  Payload(const void* data, std::uint32_t size) : mBytes(static_cast<const std::byte*>(data), size) {}

  std::span<const std::byte> bytes() const { return mBytes; }

  /** The bytes as a text, zero bytes at its end included. */
  std::string_view text() const { return {reinterpret_cast<const char*>(mBytes.data()), mBytes.size()}; }

  /** The three values of a VAL payload. Throws std::length_error if it does not have their size. */
  Values values() const {
    Values values{};
    if (mBytes.size() != sizeof values) throw std::length_error("the payload does not hold three values");
    std::memcpy(values.data(), mBytes.data(), sizeof values);
    return values;
  }

 private:
  std::span<const std::byte> mBytes;
};

/** The answer to a task that was waited for: a payload with its memory. */
class Answer : public Payload {
 public:
  Answer(void* block, std::uint32_t size) : Payload(block, size), mBlock(block) {}

 private:
  struct Free {
    void operator()(void* block) const { std::free(block); }
  };
  std::unique_ptr<void, Free> mBlock;
};

/** What a callback is shown of a message. */
struct Message {
  Payload payload;
  bool isRef;            ///< The payload is REF, else VAL.
  bool isLast;           ///< The last message of a stream.
  std::uint32_t seqTUI;  ///< A word of the device's own.
};

/** Gets the answer to an asynchronous task, or null if none came in time. Called once at most. */
using OnAnswer = std::function<void(const Message* answer)>;

/** Gets each message of a stream. */
using OnMessage = std::function<void(const Message& message)>;

/** Gets each broadcast, with its task's name. */
using OnBroadcast = std::function<void(std::string_view task, const Message& message)>;

namespace detail {

/**
 * What the library's callbacks find of an open connection. They are told no more than a commandID, and for broadcasts
 * nothing: so the slots are numbered, the number is the upper part of each commandID, and each slot has a broadcast
 * callback of its own. There are as many slots as there may be connections.
 */
class Slot {
 public:
  static constexpr std::uint32_t kCountBits = 28;
  static_assert(KEL_MAX_CONNECTIONS <= 1u << (32 - kCountBits));

  void open(std::uint32_t number, OnBroadcast onBroadcast) {
    mNumber = number;
    mOnBroadcast = std::move(onBroadcast);
    const std::lock_guard<std::mutex> running(mRunning);
    mOpen = true;
  }

  /** Waits for the callback that is running, and lets no other one start. */
  void close() {
    if (mCaller == std::this_thread::get_id()) throw std::logic_error("a callback closes its own connection");
    const std::lock_guard<std::mutex> running(mRunning);
    mOpen = false;
  }

  /** Drops the callbacks. To be called when the library calls no more. */
  void clear() {
    mOnBroadcast = nullptr;
    const std::lock_guard<std::mutex> filing(mFiling);
    mPending.clear();
  }

  /** Files the callback of a task. Returns the commandID to send the task with. */
  std::uint32_t expect(OnAnswer callback) {
    const std::lock_guard<std::mutex> filing(mFiling);
    std::uint32_t commandID = 0;
    do {
      commandID = mNumber << kCountBits | (mCount++ & ((1u << kCountBits) - 1));
    } while (mPending.contains(commandID));
    mPending[commandID] = std::make_shared<const OnAnswer>(std::move(callback));
    return commandID;
  }

  /** Takes it back. */
  void forget(std::uint32_t commandID) {
    const std::lock_guard<std::mutex> filing(mFiling);
    mPending.erase(commandID);
  }

  void deliver(std::uint32_t commandID, const Message* message, bool isLast) {
    run([&] {
      std::shared_ptr<const OnAnswer> callback;
      {
        const std::lock_guard<std::mutex> filing(mFiling);
        const auto found = mPending.find(commandID);
        if (found == mPending.end()) return;
        callback = found->second;
        if (isLast) mPending.erase(found);
      }
      (*callback)(message);
    });
  }

  void deliverBroadcast(std::string_view task, const Message& message) {
    run([&] { mOnBroadcast(task, message); });
  }

 private:
  /** Runs a client's function, unless the connection is being closed. */
  template <typename Function>
  void run(Function function) {
    const std::lock_guard<std::mutex> running(mRunning);
    if (!mOpen) return;
    mCaller = std::this_thread::get_id();
    function();
    mCaller = std::thread::id();
  }

  // Constant while the connection is open.
  std::uint32_t mNumber = 0;
  OnBroadcast mOnBroadcast;

  std::mutex mRunning;                   // Held while a callback runs, which may take mFiling and call the library.
  bool mOpen = false;                    // Guarded by mRunning.
  std::atomic<std::thread::id> mCaller;  // The thread that a callback runs on.

  std::mutex mFiling;  // Guards what follows.
  std::map<std::uint32_t, std::shared_ptr<const OnAnswer>> mPending;
  std::uint32_t mCount = 0;
};

/** All slots. Never destroyed, since threads of the library may outlive a static object. */
struct Slots {
  std::array<Slot, KEL_MAX_CONNECTIONS> slots;
  std::mutex lock;
  std::array<bool, KEL_MAX_CONNECTIONS> taken{};  // Guarded by the lock.

  static Slots& all() {
    static Slots& all = *new Slots;
    return all;
  }
};

/** Takes a free slot and opens it. Returns its number, or KEL_MAX_CONNECTIONS if none is free. */
inline std::uint32_t takeSlot(OnBroadcast onBroadcast) {
  Slots& all = Slots::all();
  const std::lock_guard<std::mutex> taking(all.lock);
  std::uint32_t number = 0;
  while (number < KEL_MAX_CONNECTIONS && all.taken[number]) ++number;
  if (number == KEL_MAX_CONNECTIONS) return number;
  all.taken[number] = true;
  all.slots[number].open(number, std::move(onBroadcast));
  return number;
}

/** Gives a closed slot back. To be called when the library calls no more. */
inline void giveBackSlot(std::uint32_t number) {
  Slots& all = Slots::all();
  all.slots[number].clear();
  const std::lock_guard<std::mutex> taking(all.lock);
  all.taken[number] = false;
}

inline Slot& slotOf(std::uint32_t commandID) { return Slots::all().slots[commandID >> Slot::kCountBits]; }

inline void onAnswer(std::uint32_t errorCode, std::uint32_t commandID, std::uint32_t /*sequenceByte*/,
                     std::uint32_t isRef, void* data, std::uint32_t size, std::uint32_t seqTUI) noexcept {
  const Message message{Payload(data, size), isRef != 0, true, seqTUI};
  slotOf(commandID).deliver(commandID, errorCode == 0 ? &message : nullptr, true);
}

inline void onStreamMessage(std::uint32_t /*errorCode*/, std::uint32_t commandID, std::uint32_t /*sequenceByte*/,
                            std::uint32_t streamEnd, std::uint32_t isRef, void* data, std::uint32_t size,
                            std::uint32_t seqTUI) noexcept {
  const Message message{Payload(data, size), isRef != 0, streamEnd != 0, seqTUI};
  slotOf(commandID).deliver(commandID, &message, message.isLast);
}

template <std::size_t kNumber>
void onBroadcast(char* name, std::uint32_t isRef, void* payload, std::uint32_t size, std::uint32_t seqTUI) noexcept {
  const Answer ownedName(name, 0), ownedPayload(payload, size);  // Both blocks are the client's.
  Slots::all().slots[kNumber].deliverBroadcast(name, Message{ownedPayload, isRef != 0, false, seqTUI});
}

template <std::size_t... kNumbers>
KEL_BroadcastCallback broadcastCallback(std::uint32_t number, std::index_sequence<kNumbers...>) {
  static constexpr KEL_BroadcastCallback kCallbacks[] = {onBroadcast<kNumbers>...};
  return kCallbacks[number];
}

}  // namespace detail

/** The pipe library, started and ended. Has to live longer than every connection; one per process. */
class Library {
 public:
  Library() { KEL_Init(); }
  ~Library() { KEL_Finalize(); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
};

/** An open connection to the device. Can be moved, which callbacks do not notice. */
class Connection {
 public:
  /** Connects. `table` is the path of a task table in place of the one that the settings name; empty for none. */
  explicit Connection(OnBroadcast onBroadcast = {}, const std::string& table = {}) {
    const bool listens = onBroadcast != nullptr;
    mSlot = detail::takeSlot(std::move(onBroadcast));
    if (mSlot == kNoSlot) throw Error("KEL_Connect", KEL_E_CONNECTION);
    const std::uint32_t result = KEL_Connect(
        table.empty() ? nullptr : table.c_str(),
        listens ? detail::broadcastCallback(mSlot, std::make_index_sequence<KEL_MAX_CONNECTIONS>()) : nullptr,
        &mConnection);
    if (result == KEL_OK) return;
    slot().close();
    detail::giveBackSlot(mSlot);
    throw Error("KEL_Connect", result);
  }

  Connection(Connection&& other) noexcept
      : mSlot(std::exchange(other.mSlot, kNoSlot)), mConnection(std::exchange(other.mConnection, 0)) {}

  Connection& operator=(Connection other) noexcept {
    std::swap(mSlot, other.mSlot);
    std::swap(mConnection, other.mConnection);
    return *this;
  }

  ~Connection() {
    try {
      disconnect();
    } catch (const Error&) {
      // Nothing is left to be done about it.
    }
  }

  /** Closes the connection; does nothing if it is closed or moved from. Callbacks that wait for an answer are dropped.
   */
  void disconnect() {
    if (mSlot == kNoSlot) return;
    slot().close();
    const std::uint32_t number = std::exchange(mSlot, kNoSlot);
    const std::uint32_t result = KEL_Disconnect(std::exchange(mConnection, 0));
    // The library may still call for a connection that it could not close: then its slot stays taken.
    if (result != KEL_OK) throw Error("KEL_Disconnect", result);
    detail::giveBackSlot(number);
  }

  /** Sends a task and waits for its answer. */
  Answer send(const std::string& task, const Request& request = {}) { return invoke(task, 0, request, true, nullptr); }

  /** Sends a task that asks for no answer. */
  void post(const std::string& task, const Request& request = {}) { invoke(task, 0, request, false, nullptr); }

  /** Sends a task and returns at once. Where it throws, `onAnswer` is not called. */
  void sendAsync(const std::string& task, const Request& request, OnAnswer onAnswer) {
    const std::uint32_t commandID = slot().expect(std::move(onAnswer));
    std::uint32_t sequenceNumber = 0;
    const std::uint32_t result = KEL_SendReceiveAsyncKEL(mConnection, task.c_str(), commandID, request.data(),
                                                         request.size(), &sequenceNumber, detail::onAnswer, nullptr);
    if (result == KEL_OK) return;
    slot().forget(commandID);
    throw Error("KEL_SendReceiveAsyncKEL", result);
  }

  /**
   * Sends a task that answers with a stream, and waits for the stream's opening. Messages go to `onMessage`, also
   * before this returns, up to the last one or the end of the connection; where it throws, none follows.
   */
  Answer stream(const std::string& task, const Request& request, OnMessage onMessage) {
    const std::uint32_t commandID =
        slot().expect([onMessage = std::move(onMessage)](const Message* message) { onMessage(*message); });
    try {
      return invoke(task, commandID, request, true, detail::onStreamMessage);
    } catch (const Error&) {
      slot().forget(commandID);
      throw;
    }
  }

  /** Whether a file belongs to the software generation that runs on the device; see KEL_ValidateVersion. */
  bool validateVersion(std::string fileName, std::span<const std::byte> content, const std::string& vectorsFolder) {
    std::uint64_t userVersion = 0;
    const std::uint32_t result =
        KEL_ValidateVersion(handle(), fileName.data(), content.data(), static_cast<std::uint32_t>(content.size()),
                            &userVersion, vectorsFolder.c_str());
    if (result == KEL_E_CONNECTION) throw Error("KEL_ValidateVersion", result);
    return result == KEL_VERSION_VALID;
  }

  /** The connection for the functions of KELHandler.h; stays this object's. */
  std::uint64_t handle() const {
    slot();
    return mConnection;
  }

 private:
  static constexpr std::uint32_t kNoSlot = KEL_MAX_CONNECTIONS;

  /** Throws if the connection is closed. */
  detail::Slot& slot() const {
    if (mSlot == kNoSlot) throw Error("Connection", KEL_E_CONNECTION);
    return detail::Slots::all().slots[mSlot];
  }

  Answer invoke(const std::string& task, std::uint32_t commandID, const Request& request, bool isAnswered,
                KEL_StreamCallback onMessage) {
    void* block = nullptr;
    std::uint32_t size = 0;
    const std::uint32_t result =
        KEL_SendReceiveKELEx(handle(), task.c_str(), commandID, request.data(), request.size(), 0, isAnswered ? 1 : 0,
                             nullptr, &block, &size, nullptr, onMessage);
    Answer answer(block, size);
    if (result != KEL_OK) throw Error("KEL_SendReceiveKELEx", result);
    return answer;
  }

  std::uint32_t mSlot = kNoSlot;  // kNoSlot when closed.
  std::uint64_t mConnection = 0;
};

}  // namespace kelhandler

#endif
