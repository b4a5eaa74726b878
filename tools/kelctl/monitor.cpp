// SPDX-License-Identifier: MIT
#include <algorithm>
#include <atomic>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "files.h"
#include "interrupt.h"
#include "monitor/record.h"
#include "monitor/screen.h"
#include "options.h"
#include "platform/terminal.h"
#include "session.h"
#include "settings.h"
#include "task_names.h"

namespace kelctl {
namespace {

using monitor::Order;
using monitor::Picture;
using monitor::Record;
using monitor::View;

constexpr std::uint32_t kRate = 1;
constexpr std::uint32_t kHighestRate = 10000;
constexpr std::uint32_t kMostInFlight = 32;
constexpr std::chrono::milliseconds kFrame{250};
constexpr std::chrono::seconds kLine{1};

struct MonitorOptions {
  WhichDevice device;
  std::string task;
  std::string table;
  PayloadOptions payload;
  std::optional<std::uint32_t> rate;
  std::vector<std::string> streams;
  std::optional<double> seconds;
};

/// Sends a task again and again, so many times a second, as long as answers come.
class Sender {
 public:
  Sender(kel::Client& client, const MonitorOptions& options, Bytes payload, Record& record)
      : mClient(client),
        mTask(options.task),
        mPayload(std::move(payload)),
        mPause(std::chrono::duration_cast<Clock::duration>(std::chrono::seconds(1)) / options.rate.value_or(kRate)),
        mNext(options.task.empty() ? Clock::time_point::max() : Clock::now()),
        mRecord(record) {}

  Clock::time_point next() const { return mNext; }

  /// Sends what is due. What could not be sent in time is left out.
  void send(Clock::time_point now) {
    if (mNext > now) return;
    mNext = std::max(mNext + mPause, now - kFrame);
    if (*mInFlight >= kMostInFlight) return;
    ++*mInFlight;
    mClient.start(mTask, kel::Request(mPayload),
                  [inFlight = mInFlight, &record = mRecord, now](const kel::Result<kel::Payload>& answer) {
                    --*inFlight;
                    if (answer) {
                      record.answered(now, Clock::now());
                    } else {
                      record.failed(answer.cause());
                    }
                  });
  }

 private:
  kel::Client& mClient;
  const std::string mTask;
  const Bytes mPayload;
  const Clock::duration mPause;
  Clock::time_point mNext;
  Record& mRecord;
  const std::shared_ptr<std::atomic<std::uint32_t>> mInFlight = std::make_shared<std::atomic<std::uint32_t>>(0);
};

/// Reads a stream to its end, and opens it again after each loss of the link, on a thread of its own until the client
/// is closed.
class StreamReader {
 public:
  StreamReader(kel::Client& client, const std::string& task, Record& record)
      : mThread([&client, task, &record, number = record.openStream(task)] {
          while (read(client, task, record, number) == kel::End::linkLost) {
            client.waitFor(kel::State::connected, kel::Milliseconds::max());
          }
        }) {}
  ~StreamReader() { mThread.join(); }
  StreamReader(const StreamReader&) = delete;
  StreamReader& operator=(const StreamReader&) = delete;

 private:
  static kel::End read(kel::Client& client, const std::string& task, Record& record, std::size_t number) {
    kel::Result<kel::Stream> stream = client.stream(task);
    kel::End end = kel::End::closed;
    if (stream) {
      record.opened(number);
      for (const kel::Message& message : *stream) record.message(number, message, Clock::now());
      end = stream->reason();
    } else if (stream.cause() == kel::Cause::linkLost || stream.cause() == kel::Cause::notConnected) {
      end = kel::End::linkLost;
    } else {
      record.failed(stream.cause());
    }
    record.ended(number, end);
    return end;
  }

  std::thread mThread;
};

/// The screen of a terminal, in place of what it showed before.
class Screen {
 public:
  explicit Screen(Output& output) : mOutput(output) { mOutput.text("\x1b[?1049h\x1b[?25l"); }
  ~Screen() {
    try {
      mOutput.text("\x1b[?25h\x1b[?1049l");
    } catch (const std::exception&) {
      // The terminal is gone.
    }
  }
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  void show(const Picture& picture, const View& view) {
    const TerminalSize size = terminalSize();
    std::string text = "\x1b[H";
    const std::vector<std::string> lines = linesOf(picture, view, {size.columns, size.rows}, mOutput);
    for (std::size_t i = 0; i < lines.size(); ++i) text += (i == 0 ? "" : "\r\n") + lines[i] + "\x1b[K";
    mOutput.text(text + "\x1b[J");
  }

 private:
  Output& mOutput;
};

/// Takes a key in. False for the end.
bool press(char key, View& view) {
  if (view.editing) {
    if (key == '\r' || key == '\n') {
      view.editing = false;
    } else if (key == '\x1b') {
      view.editing = false;
      view.filter.clear();
    } else if (key == '\x7f' || key == '\b') {
      if (!view.filter.empty()) view.filter.pop_back();
    } else if (key >= ' ') {
      view.filter += key;
    }
    return true;
  }
  switch (key) {
    case 'q':
      return false;
    case 'p':
    case ' ':
      view.paused = !view.paused;
      break;
    case 's':
      view.order = view.order == Order::byName   ? Order::byRate
                   : view.order == Order::byRate ? Order::byCount
                                                 : Order::byName;
      break;
    case '/':
      view.editing = true;
      break;
    default:
      break;
  }
  return true;
}

/// Until Ctrl-C, the key for it, or the end of the time.
class Loop {
 public:
  Loop(kel::Client& client, Record& record, Sender& sender, Clock::time_point end)
      : mClient(client), mRecord(record), mSender(sender), mEnd(end) {}

  void onScreen(Output& output, View view) {
    SingleKeys keys;
    Screen screen(output);
    Picture picture = now();
    Clock::time_point frame = picture.now;
    while (goesOn()) {
      if (frame <= Clock::now()) {
        if (!view.paused) picture = now();
        screen.show(picture, view);
        frame = Clock::now() + kFrame;
      }
      if (const std::optional<char> key = keys.next(until(frame))) {
        if (!press(*key, view)) break;
        frame = Clock::now();
      }
      mSender.send(Clock::now());
    }
  }

  void inLines(Output& output) {
    Clock::time_point line = Clock::now() + kLine;
    while (goesOn()) {
      std::this_thread::sleep_for(until(line));
      mSender.send(Clock::now());
      if (line > Clock::now()) continue;
      tell(output);
      line += kLine;
    }
  }

  void tell(Output& output) {
    if (output.json()) {
      output.object(jsonOf(now()));
    } else {
      output.text(lineOf(now()));
    }
  }

 private:
  bool goesOn() const { return !interrupted() && Clock::now() < mEnd && mClient.state() != kel::State::closed; }
  Picture now() const { return mRecord.picture(mClient.statistics(), Clock::now()); }
  std::chrono::milliseconds until(Clock::time_point time) const {
    const Clock::duration left = std::min({time, mSender.next(), mEnd}) - Clock::now();
    return std::clamp(std::chrono::ceil<std::chrono::milliseconds>(left), std::chrono::milliseconds(0),
                      std::chrono::milliseconds(kLook));
  }

  kel::Client& mClient;
  Record& mRecord;
  Sender& mSender;
  const Clock::time_point mEnd;
};

/// The same options with the names of their tasks in full. Throws Fault.
MonitorOptions withNames(MonitorOptions options, const TaskNames& names) {
  if (!options.task.empty()) options.task = names.find(options.task);
  for (std::string& task : options.streams) task = names.find(task);
  return options;
}

int monitorDevice(const MonitorOptions& given, Output& output) {
  const TaskNames names(given.table);
  const MonitorOptions options = withNames(given, names);
  const Bytes payload = payloadOf(options.payload);
  names.check(options.task, options.payload, payload);
  const Clock::time_point start = Clock::now();
  Record record(start);
  kel::Options how;
  how.table = libraryFile(tableOf(options.table));
  how.checksForm = !options.payload.force;
  how.supervision.heartbeat = options.task;
  how.supervision.reconnect = true;
  how.onState = [&record](const kel::StateChange& change) { record.changed(change, Clock::now()); };
  kel::Client client = beginClient(options.device, std::move(how));
  const kel::Subscription broadcasts =
      client.broadcasts([&record](const kel::Broadcast& broadcast) { record.broadcast(broadcast, Clock::now()); });
  std::vector<std::unique_ptr<StreamReader>> streams;
  for (const std::string& task : options.streams)
    streams.push_back(std::make_unique<StreamReader>(client, task, record));
  Sender sender(client, options, payload, record);
  Loop loop(client, record, sender,
            options.seconds ? start + toMilliseconds(*options.seconds) : Clock::time_point::max());
  if (output.screen()) {
    loop.onScreen(output, {options.device.uri, options.task});
  } else {
    loop.inLines(output);
  }
  loop.tell(output);
  client.close();
  return kDone;
}

}  // namespace

void addMonitor(CLI::App& app, Plan& plan) {
  auto [verb, options] =
      addVerb<MonitorOptions>(app, plan, "monitor",
                              "Watch a device: its link, answers, streams and broadcasts\n"
                              "On a terminal it fills the screen: p or the space bar pauses it, s sorts,\n"
                              "/ filters by a part of the name, q ends it. Elsewhere it prints a line every\n"
                              "second. Without TASK nothing is sent to the device, and a link that is lost is\n"
                              "not noticed. With TASK that is sent again and again; if its answers stay out,\n"
                              "the link counts as lost, and it connects again.",
                              "kelctl monitor TASK_ID_APPLICATION_DEBUG_VAL\n"
                              "kelctl monitor TASK_ID_APPLICATION_DEBUG_VAL --rate 50\n"
                              "kelctl monitor --stream TASK_ID_APPLICATION_DEBUG_STREAMER\n"
                              "kelctl monitor --for 10 --json\n",
                              monitorDevice);
  addOptionalTask(verb, options.task, "Task to send again and again");
  addDevice(verb, options.device);
  addTable(verb, options.table);
  addNumber(verb, "--rate", "N", options.rate, "Send it N times a second (1)", 1, kHighestRate);
  addTasks(verb, "--stream", options.streams, "Read the stream of this task too; may be given again");
  addSeconds(verb, "--for", options.seconds, "End after so many seconds");
  addPayload(verb, options.payload);
}

}  // namespace kelctl
