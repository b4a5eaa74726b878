// SPDX-License-Identifier: MIT
#include "Device.h"

#include <pybind11/stl.h>

#include <optional>
#include <utility>

namespace kel::python {
namespace {

using MailboxRef = std::shared_ptr<Mailbox>;

Options optionsOf(const py::object& options) {
  const auto seconds = [&](const char* name) { return millisecondsOf(options.attr(name).cast<double>()); };
  const auto number = [&](const char* name) { return options.attr(name).cast<std::uint32_t>(); };
  Options result;
  const auto path = py::reinterpret_steal<py::object>(PyOS_FSPath(py::object(options.attr("table")).ptr()));
  if (!path) throw py::error_already_set();
  result.table = path.cast<std::string>();
  result.timeout = seconds("timeout");
  result.connectTimeout = seconds("connect_timeout");
  result.maxInFlight = number("max_in_flight");
  result.maxQueued = number("max_queued");
  Supervision& supervision = result.supervision;
  supervision.heartbeat = options.attr("heartbeat").cast<std::string>();
  supervision.heartbeatValues = valuesOf(options.attr("heartbeat_values"));
  supervision.interval = seconds("heartbeat_interval");
  supervision.misses = number("heartbeat_misses");
  supervision.refusals = number("refusals");
  supervision.reconnect = options.attr("reconnect").cast<bool>();
  supervision.firstPause = seconds("first_pause");
  supervision.longestPause = seconds("longest_pause");
  supervision.attempts = number("attempts");
  supervision.renewAt = number("renew_at");
  return result;
}

WhenFull whenFullOf(bool waits) { return waits ? WhenFull::wait : WhenFull::dropOldest; }

std::string copyOf(const Request& request) { return {static_cast<const char*>(request.data()), request.size()}; }

/// A call under way.
class PendingCall {
 public:
  explicit PendingCall(Call call) : mCall(std::move(call)) {}

  /// Waits for the answer, and cancels the call if the waiting is broken off.
  Payload result() {
    const Call& call = *mCall;
    try {
      await([&](Milliseconds time) { return call.waitFor(time); });
    } catch (const py::error_already_set&) {
      call.cancel();
      throw;
    }
    Result<Payload> result = call.get();
    if (!result) raise(result.error());
    return std::move(*result);
  }

  bool waitFor(double timeout) {
    const Call& call = *mCall;
    await([&](Milliseconds time) { return call.waitFor(time); }, detail::after(millisecondsOf(timeout)));
    return call.isDone();
  }

  bool isDone() const { return mCall->isDone(); }
  bool cancel() const { return mCall->cancel(); }

 private:
  Forked<Call> mCall;
};

/// The outcome of a job, for threads that wait for it.
template <class Outcome>
class Job {
 public:
  void finish(Outcome outcome) {
    {
      const detail::Lock lock(mMutex);
      mOutcome.emplace(std::move(outcome));
    }
    mDone.notifyAll();
  }

  bool waitFor(Milliseconds time) {
    const Clock::time_point until = detail::after(time);
    const detail::Lock lock(mMutex);
    while (!mOutcome && Clock::now() < until) mDone.waitUntil(mMutex, until);
    return mOutcome.has_value();
  }

  Outcome take() {
    const detail::Lock lock(mMutex);
    return std::move(*mOutcome);
  }

 private:
  detail::Mutex mMutex;
  detail::Condition mDone;
  std::optional<Outcome> mOutcome KEL_DETAIL_GUARDED_BY(mMutex);
};

/// Tells changes of state to `on_state` or to a mailbox.
class StateTeller {
 public:
  /// `onState`: None or a function of Python's; under the interpreter's lock.
  StateTeller(py::object onState, MailboxRef mailbox, std::uint64_t addressee)
      : mCalls(!onState.is_none()), mMailbox(std::move(mailbox)), mAddressee(addressee) {
    if (mCalls) mOnState = std::move(onState);
  }

  /// Python is not called any more; under its lock.
  void stop() { mOnState.reset(); }

  /// By the client's callback thread.
  void tell(const StateChange& change) {
    if (mMailbox) mMailbox->post(mAddressee, [change] { return tupleOf(change); });
    if (!mCalls) return;
    const py::gil_scoped_acquire acquire;
    if (!mOnState) return;
    try {
      const py::object onState = *mOnState;
      onState(tupleOf(change));
    } catch (py::error_already_set& error) {
      error.discard_as_unraisable("on_state");
    }
  }

 private:
  static py::object tupleOf(const StateChange& change) {
    return py::make_tuple(text(change.state), change.reason, change.attempt,
                          std::chrono::duration<double>(change.pause).count());
  }

  const bool mCalls;
  const MailboxRef mMailbox;  // may be null
  const std::uint64_t mAddressee;
  std::optional<py::object> mOnState;  // guarded by the interpreter's lock
};

class Device {
 public:
  /// Begins to connect, and does not wait.
  Device(const py::object& options, py::object onState, MailboxRef mailbox, std::uint64_t addressee)
      : mTeller(std::make_shared<StateTeller>(std::move(onState), std::move(mailbox), addressee)) {
    checkMayConnect();
    Options own = optionsOf(options);
    const auto uri = options.attr("device").cast<std::string>();
    const auto reservation = options.attr("reservation").cast<std::string>();
    own.onState = [teller = mTeller](const StateChange& change) { teller->tell(change); };
    std::optional<Error> failure;
    {
      const Waiting waiting;
      Result<Client> client = kel::begin(uri, std::move(own), reservation);
      if (client) {
        *mClient = std::make_shared<Client>(std::move(*client));
      } else {
        failure = client.error();
      }
    }
    if (failure) raise(*failure);
    registerClient(*mClient);
  }

  /// Closes the client elsewhere: whoever drops an object does not expect to wait.
  ~Device() {
    mTeller->stop();
    if (!mClient.isOurs() || !*mClient) return;
    if (isEnding()) {
      leaveToEnd(std::move(*mClient));
      return;
    }
    runJob([client = std::move(*mClient)] { client->close(); });
  }

  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // ---- Tasks ----

  std::unique_ptr<PendingCall> start(const std::string& task, py::handle payload, py::handle values,
                                     std::optional<double> timeout, bool repeatable, const MailboxRef& mailbox,
                                     std::uint64_t addressee) {
    const OutgoingPayload outgoing(payload, values);
    const CallOptions options{millisecondsOf(timeout), repeatable};
    Client& client = theClient();
    const auto begin = [&] {
      const Waiting waiting;
      if (!mailbox) return client.start(task, outgoing.request(), options);
      const auto tell = [mailbox, addressee](const Result<Payload>& result) {
        mailbox->post(addressee, [result] { return result ? py::cast(*result) : exceptionOf(result.error()); });
      };
      return client.start(task, outgoing.request(), tell, options);
    };
    return std::make_unique<PendingCall>(begin());
  }

  Payload task(const std::string& task, py::handle payload, py::handle values, std::optional<double> timeout,
               bool repeatable) {
    return start(task, payload, values, timeout, repeatable, {}, 0)->result();
  }

  py::object post(const std::string& task, py::handle payload, py::handle values, std::optional<double> timeout,
                  std::uint32_t sequenceWord, const MailboxRef& mailbox, std::uint64_t addressee) {
    const OutgoingPayload outgoing(payload, values);
    const CallOptions options{millisecondsOf(timeout), false, sequenceWord};
    return run(
        [task, content = copyOf(outgoing.request()), options](Client& client) {
          return client.post(task, content, options);
        },
        [](const Result<void>&) -> py::object { return py::none(); }, mailbox, addressee);
  }

  // ---- Messages ----

  py::object stream(const std::string& task, py::handle payload, py::handle values, std::optional<double> timeout,
                    std::optional<double> idle, std::optional<double> duration, std::size_t limit, bool waitsWhenFull,
                    const MailboxRef& mailbox, std::uint64_t addressee) {
    const OutgoingPayload outgoing(payload, values);
    const StreamOptions options{millisecondsOf(timeout), millisecondsOf(idle), millisecondsOf(duration), limit,
                                whenFullOf(waitsWhenFull)};
    return run(
        [task, content = copyOf(outgoing.request()), options](Client& client) {
          return client.stream(task, content, options);
        },
        [](Result<Stream> stream) { return py::cast(std::make_unique<StreamReader>(std::move(*stream))); }, mailbox,
        addressee);
  }

  std::unique_ptr<BroadcastReader> broadcasts(const std::string& task, std::optional<std::uint32_t> sequenceWord,
                                              std::size_t limit, bool waitsWhenFull) {
    return std::make_unique<BroadcastReader>(
        theClient().broadcasts({task, sequenceWord, limit, whenFullOf(waitsWhenFull)}));
  }

  // ---- The rest ----

  py::object validateVersion(const std::string& file, const py::bytes& content, const std::string& vectors,
                             std::uint64_t userVersion, std::optional<double> timeout, const MailboxRef& mailbox,
                             std::uint64_t addressee) {
    return run(
        [=, bytes = std::string(content), time = millisecondsOf(timeout)](Client& client) {
          return client.validateVersion(file, {bytes.data(), bytes.size()}, vectors, userVersion, time);
        },
        [](const Result<bool>& verdict) -> py::object { return py::bool_(*verdict); }, mailbox, addressee);
  }

  void close() {
    const std::shared_ptr<Client> client = *mClient;
    {
      const Waiting waiting;
      client->close();
    }
    mTeller->stop();
  }

  /// Closes without waiting; a letter comes when it is done.
  void beginClosing(const MailboxRef& mailbox, std::uint64_t addressee) {
    runJob([client = *mClient, mailbox, addressee] {
      client->close();
      mailbox->post(addressee, [] { return py::none(); });
    });
  }

  const char* state() const { return text(theClient().state()); }
  std::string reason() const { return theClient().reason(); }

  bool waitFor(const std::string& name, std::optional<double> timeout) {
    const State state = stateOf(name);
    Client& client = theClient();
    await([&](Milliseconds time) { return client.waitFor(state, time) || client.state() == State::closed; },
          timeout ? detail::after(millisecondsOf(*timeout)) : Clock::time_point::max());
    return client.state() == state;
  }

  py::dict statistics() const {
    const Statistics counts = theClient().statistics();
    using namespace py::literals;
    return py::dict("answered"_a = counts.answered, "failed"_a = counts.failed, "late_answers"_a = counts.lateAnswers,
                    "repeated"_a = counts.repeated, "stream_messages"_a = counts.streamMessages,
                    "broadcasts"_a = counts.broadcasts, "dropped_messages"_a = counts.droppedMessages,
                    "dropped_broadcasts"_a = counts.droppedBroadcasts, "connections"_a = counts.connections,
                    "losses"_a = counts.losses, "heartbeats"_a = counts.heartbeats, "in_flight"_a = counts.inFlight,
                    "queued"_a = counts.queued, "held_numbers"_a = counts.heldNumbers);
  }

  /// (name, TUI, form, target) of each task, in the table's order.
  py::list table() const {
    py::list list;
    for (const TaskTable::Row& row : theClient().table().rows()) {
      list.append(py::make_tuple(row.name, row.tui, text(formOf(row.tui)), static_cast<int>(targetOf(row.tui))));
    }
    return list;
  }

 private:
  Client& theClient() const { return **mClient; }

  static State stateOf(const std::string& name) {
    for (const State state : {State::connecting, State::connected, State::lost, State::closed}) {
      if (name == text(state)) return state;
    }
    throw py::value_error("there is no state " + name);
  }

  /// Runs a function of the client's on another thread, since it may wait for long and cannot be broken off.
  template <class Function, class Convert>
  py::object run(Function function, Convert convert, const MailboxRef& mailbox, std::uint64_t addressee) {
    using Outcome = decltype(function(theClient()));
    if (mailbox) {
      runJob([client = *mClient, function, convert, mailbox, addressee] {
        const auto outcome = std::make_shared<Outcome>(function(*client));
        mailbox->post(addressee, [outcome, convert] {
          return *outcome ? convert(std::move(*outcome)) : exceptionOf(outcome->error());
        });
      });
      return py::none();
    }
    const auto job = std::make_shared<Job<Outcome>>();
    runJob([client = *mClient, function, job] { job->finish(function(*client)); });
    await([&](Milliseconds time) { return job->waitFor(time); });
    Outcome outcome = job->take();
    if (!outcome) raise(outcome.error());
    return convert(std::move(outcome));
  }

  const std::shared_ptr<StateTeller> mTeller;
  const Forked<std::shared_ptr<Client>> mClient;  // shared with jobs
};

template <class Reader>
py::class_<Reader> bindReader(py::module_& module, const char* name) {
  return py::class_<Reader>(module, name)
      .def("next", &Reader::next, py::arg("timeout"))
      .def("batch", &Reader::batch)
      .def_property_readonly("reason", &Reader::reason)
      .def_property_readonly("dropped", &Reader::dropped)
      .def("stop", &Reader::stop)
      .def("tell_when_ready", &Reader::tellWhenReady, py::arg("mailbox"), py::arg("addressee"));
}

}  // namespace

void bindDevice(py::module_& module) {
  const py::arg_v noMailbox = py::arg("mailbox") = py::none();
  const py::arg_v noAddressee = py::arg("addressee") = 0;

  py::class_<Mailbox, MailboxRef>(module, "Mailbox")
      .def(py::init<>())
      .def("fileno", &Mailbox::descriptor)
      .def("take", &Mailbox::take);

  py::class_<PendingCall>(module, "Call")
      .def("result", &PendingCall::result)
      .def("wait", &PendingCall::waitFor, py::arg("timeout"))
      .def("done", &PendingCall::isDone)
      .def("cancel", &PendingCall::cancel);

  bindReader<StreamReader>(module, "Stream").def_property_readonly("opening", &StreamReader::opening);
  bindReader<BroadcastReader>(module, "Subscription");

  py::class_<Device>(module, "Client")
      .def(py::init<const py::object&, py::object, MailboxRef, std::uint64_t>(), py::arg("options"),
           py::arg("on_state"), noMailbox, noAddressee)
      .def("task", &Device::task, py::arg("task"), py::arg("payload"), py::arg("values"), py::arg("timeout"),
           py::arg("repeatable"))
      .def("start", &Device::start, py::arg("task"), py::arg("payload"), py::arg("values"), py::arg("timeout"),
           py::arg("repeatable"), noMailbox, noAddressee)
      .def("post", &Device::post, py::arg("task"), py::arg("payload"), py::arg("values"), py::arg("timeout"),
           py::arg("sequence_word"), noMailbox, noAddressee)
      .def("stream", &Device::stream, py::arg("task"), py::arg("payload"), py::arg("values"), py::arg("timeout"),
           py::arg("idle"), py::arg("duration"), py::arg("limit"), py::arg("waits_when_full"), noMailbox, noAddressee)
      .def("broadcasts", &Device::broadcasts, py::arg("task"), py::arg("sequence_word"), py::arg("limit"),
           py::arg("waits_when_full"))
      .def("validate_version", &Device::validateVersion, py::arg("file"), py::arg("content"), py::arg("vectors"),
           py::arg("user_version"), py::arg("timeout"), noMailbox, noAddressee)
      .def("close", &Device::close)
      .def("begin_closing", &Device::beginClosing, py::arg("mailbox"), py::arg("addressee"))
      .def_property_readonly("state", &Device::state)
      .def_property_readonly("reason", &Device::reason)
      .def("wait_for", &Device::waitFor, py::arg("state"), py::arg("timeout"))
      .def("statistics", &Device::statistics)
      .def("table", &Device::table);
}

}  // namespace kel::python
