// SPDX-License-Identifier: MIT
/**
 * @file
 * KELHandler for C++17: a client that survives what a link does to it. The one header to include.
 *
 *     kel::Options options;
 *     options.supervision.heartbeat = "TASK_ID_APPLICATION_DEBUG_VAL";
 *     options.supervision.reconnect = true;
 *     kel::Client device = kel::Client::connect(options).value();
 *
 *     auto answer = device.task(kel::tasks::TASK_ID_APPLICATION_DEBUG_VAL, {7, 8, 9});
 *     if (answer) std::cout << answer->values().value()[0] << '\n';
 *     else std::cout << answer.error() << '\n';
 *
 *     for (const kel::Message& message : device.stream("MY_STREAMER", {100, 5, 0}).value()) show(message.bytes());
 *
 * Conventions
 *
 *  1. Results. A call gives a value or an Error with its Cause. Nothing throws but Result::value(), std::bad_alloc
 *     where memory ends, and std::system_error where the system gives no thread to begin a client, or for its first
 *     callback.
 *  2. Every call ends exactly once, with an answer or an error, and not later than its deadline: also if the link is
 *     lost, the client is closed or destroyed, and whatever the library still waits for. What comes afterwards is
 *     dropped and counted. Two things hold a call up beyond its deadline: a program that makes a synchronous call of
 *     KELHandler.h beside its clients keeps all of them waiting for as long, and so does a pipe library that does not
 *     return from sending.
 *  3. Ownership. What is passed in is not needed after the call returns. What comes back owns its memory.
 *  4. Threads and callbacks:
 *
 *     |                                            | any thread | in a callback | at once, from several threads |
 *     |--------------------------------------------|------------|---------------|-------------------------------|
 *     | Client: task, start, post, stream,         | yes        | yes           | yes                           |
 *     |   broadcasts, validateVersion, state, wait |            |               |                               |
 *     | Client::close                              | yes        | does not wait | yes                           |
 *     | Client: its end, moving it                 | yes        | not waiting   | no: nothing else beside it    |
 *     | Call, Subscription and Stream: one object  | yes        | yes           | yes, but its end and moving   |
 *
 *     Callbacks of a client run one at a time, on a thread of the client's own, with no lock held. One that waits or
 *     takes long holds up the client's other callbacks and nothing else. A callback must not throw: that ends the
 *     program.
 *  5. A process has 15 connections. Each client needs one, three threads at the most, and none of it after close().
 *  6. Settings. The library reads Brel.ini in the working directory at each connect: RxWaitTimeout, logs and dumps are
 *     those of the process and not of a client. Options::table, deadlines and limits are each client's own. By default
 *     the library keeps some 8 KB for each task: set KELHANDLER_RELEASE_BLOCKS=1 in the environment of a program that
 *     runs for long.
 *  7. fork. In the child the clients of the parent are of no use: nothing of them may be called there.
 */
#pragma once

#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "kel/detail/core.hpp"
#include "kel/detail/process_road.hpp"
#include "kel/library.hpp"
#include "kel/options.hpp"
#include "kel/payload.hpp"
#include "kel/result.hpp"
#include "kel/task.hpp"
#include "kel/task_table.hpp"
#include "kel/tasks.hpp"
#include "kel/version.hpp"

namespace kel {
inline namespace v1 {

/** Gets the end of a call. */
using OnAnswer = detail::OnAnswer;
/** Gets each message of a stream. */
using OnMessage = std::function<void(const Message&)>;
/** Gets each broadcast. */
using OnBroadcast = std::function<void(const Broadcast&)>;
/** Gets the end of a stream or subscription, as its last call. */
using OnEnd = std::function<void(End)>;

namespace detail {

template <class Task>
struct RequestOf {
  using Type = Request;
};
template <Form kForm>
struct RequestOf<TypedTask<kForm>> {
  using Type = TypedRequest<kForm>;
};

inline const char* nameOf(const char* task) { return task; }
inline const char* nameOf(const std::string& task) { return task.c_str(); }
template <Form kForm>
const char* nameOf(const TypedTask<kForm>& task) {
  return task.name;
}

}  // namespace detail

/** What fits a task as its payload: for a VAL task that the compiler knows three values or nothing, else a Request. */
template <class Task>
using RequestFor = typename detail::RequestOf<Task>::Type;

/** A call under way, or what became of it. A handle: copies are of the same call. To drop it does not end the call. */
class Call {
 public:
  /** Waits for the end of the call, which comes at its deadline at the latest. */
  Result<Payload> get() const {
    mCore->await(mCall);
    return *mCall->outcome;
  }

  /** Waits for it so long at most. False if it has not ended. */
  bool waitFor(Milliseconds time) const { return mCore->awaitUntil(mCall, detail::after(time)); }

  bool isDone() const { return mCore->isDone(mCall); }

  /** Ends the call with Cause::cancelled, if it has not ended. The device is not told. */
  bool cancel() const { return mCore->cancel(mCall); }

 private:
  friend class Client;
  Call(std::shared_ptr<detail::Core> core, detail::CallRef call) : mCore(std::move(core)), mCall(std::move(call)) {}

  std::shared_ptr<detail::Core> mCore;
  detail::CallRef mCall;
};

namespace detail {

/// The reading side that streams and subscriptions have in common.
template <class Item>
class Reader {
 public:
  Reader(Reader&&) noexcept = default;

  /** Waits for the next one. None at the end. */
  std::optional<Item> next() { return mQueue->pop(kNever); }

  /** Waits for the next one so long at most. None at the end too: see reason(). */
  std::optional<Item> next(Milliseconds time) { return mQueue->pop(after(time)); }

  /** All that wait to be read, as they came. Does not wait. */
  std::deque<Item> nextBatch() { return mQueue->popAll(); }

  /**
   * Has a function called, which must not block and may be called with locks held, when there is something to read, or
   * the end, and the reader has found nothing in nextBatch() before. For programs with an event loop of their own.
   */
  void tellWhenReady(std::function<void()> ready) { mQueue->tellWhenReady(std::move(ready)); }

  /** Why no more come. End::none while there is something to read, or may be. */
  End reason() const { return mQueue->end(); }

  /** So many found no room, or were lost on the way. */
  std::uint64_t dropped() const { return mQueue->dropped(); }

  /** Waits at ++, and is equal to end() at the end. */
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Item;
    using difference_type = std::ptrdiff_t;
    using pointer = const Item*;
    using reference = const Item&;

    Iterator() = default;
    explicit Iterator(MessageQueue<Item>& queue) : mQueue(&queue), mItem(queue.pop(kNever)) {}

    reference operator*() const { return *mItem; }
    pointer operator->() const { return &*mItem; }
    Iterator& operator++() {
      mItem = mQueue->pop(kNever);
      return *this;
    }
    void operator++(int) { ++*this; }
    friend bool operator==(const Iterator& a, const Iterator& b) { return a.mItem.has_value() == b.mItem.has_value(); }
    friend bool operator!=(const Iterator& a, const Iterator& b) { return !(a == b); }

   private:
    MessageQueue<Item>* mQueue = nullptr;
    std::optional<Item> mItem;
  };

  Iterator begin() { return Iterator(*mQueue); }
  Iterator end() const { return {}; }

 private:
  struct Handlers {
    std::function<void(const Item&)> onItem;
    OnEnd onEnd;
    bool isOver = false;
  };

  /// So many are handed over before other callbacks have their turn.
  static constexpr std::size_t kBatch = 32;

  static void handOverBatch(const std::shared_ptr<MessageQueue<Item>>& queue, const std::shared_ptr<Handlers>& handlers,
                            Core* core) {
    if (handlers->isOver) return;
    const std::deque<Item> items = queue->popBatch(kBatch);
    for (const Item& item : items) {
      if (!queue->isStopped()) handlers->onItem(item);
    }
    if (!items.empty()) return core->post([queue, handlers, core] { handOverBatch(queue, handlers, core); });
    const End end = queue->end();
    if (end == End::none) return;
    handlers->isOver = true;
    if (handlers->onEnd) handlers->onEnd(end);
  }

 protected:
  Reader(std::shared_ptr<Core> core, std::shared_ptr<MessageQueue<Item>> queue)
      : mCore(std::move(core)), mQueue(std::move(queue)) {}
  ~Reader() = default;

  /// Has the callback thread hand over what comes, and at last the end.
  void handOver(std::function<void(const Item&)> onItem, OnEnd onEnd) {
    const auto handlers = std::make_shared<Handlers>(Handlers{std::move(onItem), std::move(onEnd)});
    // The queue must not own itself, nor the core, whose callback thread outlives all of it.
    const std::weak_ptr<MessageQueue<Item>> weak = mQueue;
    Core* const core = mCore.get();
    core->beginCallbacks();
    mQueue->tellWhenReady([weak, handlers, core] {
      if (auto queue = weak.lock()) core->post([queue, handlers, core] { handOverBatch(queue, handlers, core); });
    });
  }

  std::shared_ptr<Core> mCore;
  std::shared_ptr<MessageQueue<Item>> mQueue;
};

}  // namespace detail

/**
 * A stream, to be read by a loop over it or by next(). Its end stops it: the messages that still come are dropped, and
 * its number stays taken until the device ends the stream or the connection is renewed.
 */
class Stream : public detail::Reader<Message> {
 public:
  Stream(Stream&&) noexcept = default;
  ~Stream() {
    if (mCore) stop();
  }

  /** Reads no more. What waits to be read may still be read. */
  void stop() { mCore->stopStream(mQueue, End::stopped); }

  /** The answer by which the device opened the stream; empty if a message overtook it. */
  const Payload& opening() const { return mOpening; }

 private:
  friend class Client;
  Stream(std::shared_ptr<detail::Core> core, std::shared_ptr<detail::StreamQueue> queue, Payload opening)
      : Reader(std::move(core), std::move(queue)), mOpening(std::move(opening)) {}

  Payload mOpening;
};

/** Broadcasts, to be read by a loop over them or by next(). Its end ends the subscription. */
class Subscription : public detail::Reader<Broadcast> {
 public:
  Subscription(Subscription&&) noexcept = default;
  ~Subscription() {
    if (mCore) stop();
  }

  /** Reads no more. What waits to be read may still be read. */
  void stop() { mCore->unsubscribe(mQueue); }

 private:
  friend class Client;
  Subscription(std::shared_ptr<detail::Core> core, std::shared_ptr<detail::BroadcastQueue> queue)
      : Reader(std::move(core), std::move(queue)) {}
};

/**
 * A connection to a device, which comes back if the options say so.
 *
 *     begin -> connecting -> connected -> lost -> connecting -> ...      with Supervision::reconnect
 *                                      -> lost                           without
 *              connecting -> closed                                      if it cannot be had
 *     each state -> closed                                               by close()
 *
 * Calls made while it is connecting, or lost and about to come back, wait to be sent until their deadline.
 */
class Client {
 public:
  /**
   * Connects, and waits for it Options::connectTimeout at most. Without Supervision::reconnect the first failure is
   * final. Errors: notConnected.
   */
  static Result<Client> connect(Options options = {}) {
    return connect(std::move(options), std::make_unique<detail::ProcessRoad>());
  }
  /** Likewise, over another road than the library in this process. */
  static Result<Client> connect(Options options, std::unique_ptr<detail::Road> road) {
    const Milliseconds time = options.connectTimeout;
    Client client = begin(std::move(options), std::move(road));
    if (client.mCore->awaitState(State::connected, detail::after(time))) return client;
    const bool isOver = client.mCore->state() == State::closed;
    Error error{Cause::notConnected, KEL_E_CONNECTION, isOver ? client.mCore->reason() : "connecting took too long"};
    client.mCore->abandon();
    client.mCore->endCallbacks();
    client.mCore.reset();
    return error;
  }

  /** Begins to connect, and does not wait. */
  static Client begin(Options options = {}) {
    return begin(std::move(options), std::make_unique<detail::ProcessRoad>());
  }
  static Client begin(Options options, std::unique_ptr<detail::Road> road) {
    Client client(std::make_shared<detail::Core>(std::move(options), std::move(road)));
    client.mCore->begin();
    return client;
  }

  Client(Client&&) noexcept = default;
  Client& operator=(Client&& other) noexcept {
    if (this != &other) {
      end();
      mCore = std::move(other.mCore);
    }
    return *this;
  }

  /** Closes the client and waits for that; in a callback of its own it does not wait. */
  ~Client() { end(); }

  /**
   * Ends all calls and streams with Cause::closed and End::closed, disconnects, and waits until all of it is done and
   * the last callback has returned. In a callback it only begins with it. May be called again.
   */
  void close() { mCore->close(); }

  // ---- Tasks ----

  /**
   * Sends a task and waits for its answer. `task` is a name (const char* or std::string), or a constant of kel::tasks,
   * for which the compiler checks the payload's form.
   */
  template <class Task>
  Result<Payload> task(const Task& task, const RequestFor<Task>& request = {}, const CallOptions& options = {}) {
    const detail::CallRef call = mCore->start(whatOf(detail::nameOf(task), request, options), {}, true);
    mCore->await(call);
    return std::move(*call->outcome);
  }
  Result<Payload> task(const char* task, const Request& request = {}, const CallOptions& options = {}) {
    return this->task<const char*>(task, request, options);
  }

  /** Sends a task and returns at once. */
  template <class Task>
  Call start(const Task& task, const RequestFor<Task>& request = {}, const CallOptions& options = {}) {
    return {mCore, mCore->start(whatOf(detail::nameOf(task), request, options), {}, false)};
  }
  Call start(const char* task, const Request& request = {}, const CallOptions& options = {}) {
    return this->start<const char*>(task, request, options);
  }

  /**
   * Sends a task and returns at once. `onAnswer` is called exactly once, with the answer or an error, as a callback;
   * only if the client was closed before is it called in here.
   */
  template <class Task>
  Call start(const Task& task, const RequestFor<Task>& request, OnAnswer onAnswer, const CallOptions& options = {}) {
    return {mCore, mCore->start(whatOf(detail::nameOf(task), request, options), std::move(onAnswer), false)};
  }
  Call start(const char* task, const Request& request, OnAnswer onAnswer, const CallOptions& options = {}) {
    return this->start<const char*>(task, request, std::move(onAnswer), options);
  }

  /** Sends a task that wants no answer. Waits until it was sent. */
  template <class Task>
  Result<void> post(const Task& task, const RequestFor<Task>& request = {}, const CallOptions& options = {}) {
    detail::Core::What what = whatOf(detail::nameOf(task), request, options);
    what.expectsAnswer = false;
    const detail::CallRef call = mCore->start(what, {}, true);
    mCore->await(call);
    if (!call->outcome->ok()) return call->outcome->error();
    return {};
  }
  Result<void> post(const char* task, const Request& request = {}, const CallOptions& options = {}) {
    return this->post<const char*>(task, request, options);
  }

  // ---- Streams ----

  /** Sends a task that answers with a stream, and waits for the stream's opening or its first message. */
  template <class Task>
  Result<Stream> stream(const Task& task, const RequestFor<Task>& request = {}, const StreamOptions& options = {}) {
    return open(detail::nameOf(task), request, options, {}, {});
  }
  Result<Stream> stream(const char* task, const Request& request = {}, const StreamOptions& options = {}) {
    return open(task, request, options, {}, {});
  }

  /**
   * Likewise, and has each message handed to `onMessage`, then the end to `onEnd`, which may be empty. The stream is
   * not to be read otherwise then, and is stopped when the Stream ends: what then waits is handed over no more.
   */
  template <class Task>
  Result<Stream> stream(const Task& task, const RequestFor<Task>& request, OnMessage onMessage, OnEnd onEnd = {},
                        const StreamOptions& options = {}) {
    return open(detail::nameOf(task), request, options, std::move(onMessage), std::move(onEnd));
  }
  Result<Stream> stream(const char* task, const Request& request, OnMessage onMessage, OnEnd onEnd = {},
                        const StreamOptions& options = {}) {
    return open(task, request, options, std::move(onMessage), std::move(onEnd));
  }

  // ---- Broadcasts ----

  /** Subscribes to broadcasts, from now on. The subscription survives reconnects. */
  Subscription broadcasts(const BroadcastOptions& options = {}) {
    const auto queue = std::make_shared<detail::BroadcastQueue>(options.limit, options.whenFull);
    Subscription subscription(mCore, queue);
    mCore->subscribe(queue, options);
    return subscription;
  }

  /** Likewise, and has each broadcast handed to `onBroadcast`, then the end to `onEnd`, which may be empty. */
  Subscription broadcasts(OnBroadcast onBroadcast, OnEnd onEnd = {}, const BroadcastOptions& options = {}) {
    const auto queue = std::make_shared<detail::BroadcastQueue>(options.limit, options.whenFull);
    Subscription subscription(mCore, queue);
    subscription.handOver(std::move(onBroadcast), std::move(onEnd));
    mCore->subscribe(queue, options);
    return subscription;
  }

  // ---- The rest ----

  /**
   * Asks whether a file belongs to the software generation that runs on the device; see KEL_ValidateVersion. While it
   * waits for the device, nobody else's tasks are sent in this process. Errors: notConnected, linkLost, noAnswer,
   * closed.
   */
  Result<bool> validateVersion(const std::string& file, Bytes content, const std::string& versionsVectors,
                               std::uint64_t userVersion = 0, std::optional<Milliseconds> timeout = {}) {
    return mCore->validateVersion(file, {content.begin(), content.end()}, userVersion, versionsVectors,
                                  timeout.value_or(mCore->options().timeout));
  }

  State state() const { return mCore->state(); }

  /** Why it is in that state, in words: that of the last StateChange. */
  std::string reason() const { return mCore->reason(); }

  /** Waits until the client is in that state, so long at most. False if it is not, or was closed. */
  bool waitFor(State state, Milliseconds time) const { return mCore->awaitState(state, detail::after(time)); }

  Statistics statistics() const { return mCore->statistics(); }

  /** The task table in force, as far as this program can read it; one without rows where only the device's side can. */
  const TaskTable& table() const { return mCore->table(); }

 private:
  explicit Client(std::shared_ptr<detail::Core> core) : mCore(std::move(core)) {}

  void end() {
    if (!mCore) return;
    if (mCore->isCallbackThread()) {
      mCore->abandon();
    } else {
      mCore->close();
    }
  }

  detail::Core::What whatOf(const char* task, const Request& request, const CallOptions& options) const {
    detail::Core::What what{task, request, options.timeout.value_or(mCore->options().timeout)};
    what.isRepeatable = options.repeatable;
    what.sequenceWord = options.sequenceWord;
    return what;
  }

  Result<Stream> open(const char* task, const Request& request, const StreamOptions& options, OnMessage onMessage,
                      OnEnd onEnd) {
    detail::Core::What what{task, request, options.timeout.value_or(mCore->options().timeout)};
    what.stream = std::make_shared<detail::StreamQueue>(options.limit, options.whenFull);
    if (options.idle) what.idle = *options.idle;
    if (options.duration) what.duration = *options.duration;
    Stream stream(mCore, what.stream, {});
    const detail::CallRef call = mCore->start(what, {}, true);
    mCore->await(call);
    if (!call->outcome->ok()) return call->outcome->error();
    stream.mOpening = **call->outcome;
    if (onMessage) stream.handOver(std::move(onMessage), std::move(onEnd));
    return stream;
  }

  std::shared_ptr<detail::Core> mCore;
};

}  // namespace v1
}  // namespace kel
