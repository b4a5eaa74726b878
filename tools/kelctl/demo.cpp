// SPDX-License-Identifier: MIT
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>

#include "bare_calls.h"
#include "interrupt.h"
#include "kel/tasks.hpp"
#include "options.h"
#include "tour.h"
#include "version.h"

namespace kelctl {
namespace {

using namespace std::chrono_literals;

constexpr const char* kEchoVal = kel::tasks::TASK_ID_APPLICATION_DEBUG_VAL.name;
constexpr const char* kEchoRef = kel::tasks::TASK_ID_APPLICATION_DEBUG_REF.name;
constexpr const char* kBroadcaster = kel::tasks::TASK_ID_APPLICATION_DEBUG_BROADCASTER.name;
constexpr const char* kStreamer = kel::tasks::TASK_ID_APPLICATION_DEBUG_STREAMER.name;
constexpr const char* kTracePath = kel::tasks::TASK_ID_TRACE_UTIL_PATH_GET.name;
constexpr const char* kShutdown = kel::tasks::TASK_ID_HOST_FRAMEWORK_SHUTDOWN.name;

constexpr std::uint32_t kInFlight = 64;  // as many as a connection has sequence numbers
constexpr std::uint32_t kBroadcasts = 3;
constexpr std::uint32_t kBroadcastInterval = 20;
constexpr std::uint32_t kMessages = 5;
constexpr std::uint32_t kMessageInterval = 10;
constexpr auto kPatience = 5s;

/// With no time to wait, an answer counts only if it is quicker than the call that sent the task: next to never.
constexpr char kNoTimeToWait[] = "[Common]\nRxWaitTimeout=0\n";
constexpr int kAttempts = 1000;

/// An empty working directory, so that no settings and no task table of the user's have a say.
class EmptyFolder {
 public:
  EmptyFolder()
      : mFormer(std::filesystem::current_path()),
        mFolder(std::filesystem::temp_directory_path() / ("kelctl-demo-" + std::to_string(std::random_device()()))) {
    std::filesystem::create_directory(mFolder);
    std::filesystem::current_path(mFolder);
  }
  ~EmptyFolder() {
    std::error_code ignored;
    std::filesystem::current_path(mFormer, ignored);
    std::filesystem::remove_all(mFolder, ignored);
  }
  EmptyFolder(const EmptyFolder&) = delete;
  EmptyFolder& operator=(const EmptyFolder&) = delete;

 private:
  const std::filesystem::path mFormer;
  const std::filesystem::path mFolder;
};

std::string valuesWords(const Bytes& payload) {
  const std::optional<Values> values = toValues(payload);
  return values ? valuesText(*values) : std::to_string(payload.size()) + " bytes";
}

std::string textWords(const Bytes& payload) { return '"' + toText(payload) + '"'; }

void echo(Findings& findings, std::uint64_t connection, const char* task, const Bytes& question,
          std::string (*toWords)(const Bytes&)) {
  const Reply reply = sendTask(connection, task, question);
  findings.expectCode(task, reply.code);
  if (!reply.payload) return findings.expect(reply.code != KEL_OK, "there was no answer");
  findings.note("sent " + toWords(question) + ", got " + toWords(*reply.payload));
  findings.expect(*reply.payload == question, "the answer is not what was sent");
}

void tracePath(Findings& findings, std::uint64_t connection) {
  const Reply reply = sendTask(connection, kTracePath, {});
  findings.expectCode(kTracePath, reply.code);
  if (!reply.payload) return findings.expect(reply.code != KEL_OK, "there was no answer");
  findings.note("got " + textWords(*reply.payload));
  findings.expect(!toText(*reply.payload).empty(), "the path is empty");
}

void broadcasts(Findings& findings, std::uint64_t connection) {
  const Clock::time_point start = Clock::now();
  const Reply reply = sendTask(connection, kBroadcaster, fromValues({kBroadcasts, kBroadcastInterval, 0}));
  findings.expectCode(kBroadcaster, reply.code);
  findings.expect(reply.payload && reply.payload->size() == sizeof(Values), "the answer is not 12 bytes");
  if (reply.code != KEL_OK) return;
  for (std::uint32_t i = 0; i < kBroadcasts; ++i) {
    const std::optional<Broadcast> broadcast = nextBroadcast(start + kPatience);
    if (!broadcast) return findings.expect(false, "only " + std::to_string(i) + " broadcasts came");
    findings.note(broadcast->name + (broadcast->isRef ? "  REF  " : "  VAL  ") + valuesWords(broadcast->payload) +
                  "  after " + timeText(broadcast->arrival - start));
    const Values expected{i, kBroadcasts, kBroadcastInterval};
    findings.expect(broadcast->name == "UNKNOWN_TASK" && !broadcast->isRef && toValues(broadcast->payload) == expected,
                    "this broadcast should be UNKNOWN_TASK, VAL, " + valuesText(expected));
  }
}

void streamed(Findings& findings, std::uint64_t connection) {
  const Clock::time_point start = Clock::now();
  const Reply reply = sendTask(connection, kStreamer, fromValues({kMessages, kMessageInterval, 0}), queueStreamMessage);
  findings.expectCode(kStreamer, reply.code);
  findings.expect(reply.payload && reply.payload->size() == sizeof(Values), "the opening is not 12 bytes");
  if (reply.code != KEL_OK) return;
  // The end is a message of its own, behind the others.
  for (std::uint32_t i = 0; i <= kMessages; ++i) {
    const std::optional<StreamMessage> message = nextStreamMessage(start + kPatience);
    if (!message) return findings.expect(false, "only " + std::to_string(i) + " messages came");
    findings.note((message->isEnd ? "end      " : "message  ") + valuesWords(message->payload));
    const Values expected{i, kMessages, kMessageInterval};
    findings.expect(
        message->isEnd == (i == kMessages) && toValues(message->payload) == expected,
        std::string("this should be ") + (i == kMessages ? "the end, " : "a message, ") + valuesText(expected));
  }
}

void inFlight(Findings& findings, std::uint64_t connection) {
  const auto question = [](std::uint32_t number) { return fromValues({number, kInFlight, 0}); };
  const InFlight outcome = sendInFlight(connection, kEchoVal, kInFlight, question);
  findings.note(summary(outcome.tally));
  findings.expect(outcome.tally.answered == kInFlight, "not all of them were answered");
  for (const Answer& answer : outcome.answers) {
    findings.expect(answer.errorCode != 0 || answer.payload == question(answer.commandID),
                    "task " + std::to_string(answer.commandID) + " got the answer of another one");
  }
}

void versionCheck(Findings& findings, std::uint64_t connection) {
  const auto check = [&](const char* name, bool expected) {
    const Bytes content = fromText("its content");
    std::string file = name;
    std::uint64_t userVersion = 0;
    const bool valid =
        KEL_ValidateVersion(connection, file.data(), content.data(), static_cast<std::uint32_t>(content.size()),
                            &userVersion, ".") == KEL_VERSION_VALID;
    findings.note("KEL_ValidateVersion, " + file + " -> " + (valid ? "valid" : "not valid"));
    findings.expect(valid == expected, std::string("this should be ") + (expected ? "valid" : "not valid"));
  };
  check("statistics/Statistics.bm", true);
  check("statistics/", false);  // names no file
}

void timeOut(Findings& findings) {
  std::ofstream("Brel.ini") << kNoTimeToWait;
  std::uint64_t connection = 0;
  const std::uint32_t connected = KEL_Connect(nullptr, nullptr, &connection);
  std::filesystem::remove("Brel.ini");
  findings.expectCode("KEL_Connect, with RxWaitTimeout=0", connected);
  if (connected != KEL_OK) return;
  Reply reply;
  for (int i = 0; i < kAttempts && reply.code == KEL_OK; ++i) reply = sendTask(connection, kEchoVal, {});
  findings.expectCode(kEchoVal, reply.code, KEL_E_TASK);
  findings.expect(!reply.payload, "there is an answer all the same");
  findings.expectCode("KEL_Disconnect", KEL_Disconnect(connection));
}

void lostLink(Findings& findings, std::uint64_t connection) {
  const Reply goodbye = sendTask(connection, kShutdown, {});
  findings.expectCode(kShutdown, goodbye.code);
  findings.expect(goodbye.payload.has_value(), "the shutdown was not answered");
  findings.expectCode(std::string(kEchoVal) + ", next", sendTask(connection, kEchoVal, {}).code, KEL_E_TASK);
}

int demo(Output& output) {
  if (!output.json()) output.text("kelctl demo: a tour of KELHandler " + libraryVersion() + "\n\n");
  catchInterrupt();
  const EmptyFolder folder;
  std::uint64_t connection = 0;
  // Whatever ends the tour ahead of its last step, the connection is given back.
  const auto giveBack = [](const std::uint64_t* open) {
    KEL_Disconnect(*open);
    KEL_Finalize();
  };
  std::unique_ptr<std::uint64_t, decltype(giveBack)> early(&connection, giveBack);
  Tour tour(output);
  tour.add("Start the pipe library", [](Findings& findings) { findings.expectCode("KEL_Init", KEL_Init()); });
  tour.add("Connect to the device", [&](Findings& findings) {
    const std::uint32_t code = KEL_Connect(nullptr, queueBroadcast, &connection);
    findings.expectCode("KEL_Connect", code);
    if (code == KEL_OK) return;
    findings.note(meaning(code));
    findings.giveUp();
  });
  tour.add("Ask a VAL task: three numbers, echoed", [&](Findings& findings) {
    echo(findings, connection, kEchoVal, fromValues({7, 8, 9}), valuesWords);
  });
  tour.add("Ask a REF task: raw bytes, echoed",
           [&](Findings& findings) { echo(findings, connection, kEchoRef, fromText("Hello, device."), textWords); });
  tour.add("Ask for the trace path", [&](Findings& findings) { tracePath(findings, connection); });
  // Ahead of the stream: a stream gives its number back some time behind its end, and this takes all 64.
  tour.add("Have 64 asynchronous tasks in flight", [&](Findings& findings) { inFlight(findings, connection); });
  tour.add("Receive broadcasts", [&](Findings& findings) { broadcasts(findings, connection); });
  tour.add("Receive a stream", [&](Findings& findings) { streamed(findings, connection); });
  tour.add("Check a file's version", [&](Findings& findings) { versionCheck(findings, connection); });
  tour.add("Wait no longer than told: a time-out", timeOut);
  tour.add("Lose the link: the next task is refused", [&](Findings& findings) { lostLink(findings, connection); });
  tour.add("Disconnect",
           [&](Findings& findings) { findings.expectCode("KEL_Disconnect", KEL_Disconnect(connection)); });
  tour.add("Send on the closed connection: refused", [&](Findings& findings) {
    findings.expectCode(kEchoVal, sendTask(connection, kEchoVal, {}).code, KEL_E_CONNECTION);
  });
  tour.add("End the pipe library", [&](Findings& findings) {
    findings.expectCode("KEL_Finalize", KEL_Finalize());
    early.release();
  });
  return tour.run() ? kDone : kRefused;
}

}  // namespace

void addDemo(CLI::App& app, Plan& plan) {
  addVerb(app, plan, "demo",
          "Tour the library against the stand-in device\n"
          "Each step is shown with what it found, and checked.",
          "kelctl demo\n", demo);
}

}  // namespace kelctl
