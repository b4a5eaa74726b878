#include <cstdio>
#include <functional>
#include <iostream>

#include "broadcasts.h"
#include "commands.h"
#include "session.h"

namespace kelctl {
namespace {

using namespace std::chrono_literals;

constexpr char kVal[] = "TASK_ID_APPLICATION_DEBUG_VAL";
constexpr char kRef[] = "TASK_ID_APPLICATION_DEBUG_REF";
constexpr char kTracePath[] = "TASK_ID_TRACE_UTIL_PATH_GET";
constexpr char kShutdown[] = "TASK_ID_HOST_FRAMEWORK_SHUTDOWN";

constexpr std::uint32_t kBroadcasts = 3;
constexpr std::uint32_t kBroadcastInterval = 20;
constexpr auto kBroadcastPatience = 5s;

std::string timeText(Clock::duration time) {
  const double us = std::chrono::duration<double, std::micro>(time).count();
  char text[32];
  std::snprintf(text, sizeof text, us < 1000 ? "%.0f us" : "%.2f ms", us < 1000 ? us : us / 1000);
  return text;
}

/// What one step of the tour saw: lines to print, and what was not as it should be.
class Findings {
 public:
  void note(const std::string& line) { mNotes.push_back(line); }
  void expect(bool holds, const std::string& what) {
    if (!holds) mFaults.push_back(what);
  }
  void expectCode(const std::string& call, std::uint32_t code, std::uint32_t expected = KEL_OK) {
    note(call + " -> " + std::to_string(code));
    expect(code == expected, "this should have returned " + std::to_string(expected));
  }
  const std::vector<std::string>& notes() const { return mNotes; }
  const std::vector<std::string>& faults() const { return mFaults; }

 private:
  std::vector<std::string> mNotes;
  std::vector<std::string> mFaults;
};

/// Runs steps one after the other, times them and prints what they saw.
class Tour {
 public:
  /// False if something was wrong.
  bool step(const std::string& title, const std::function<void(Findings&)>& body) {
    Findings findings;
    const Clock::time_point start = Clock::now();
    body(findings);
    const std::string time = timeText(Clock::now() - start);
    const bool good = findings.faults().empty();
    ++mSteps;
    if (!good) mWrong += (mWrong.empty() ? "" : ", ") + std::to_string(mSteps);
    std::printf("%2d  %-55s %10s  %s\n", mSteps, title.c_str(), time.c_str(), good ? "ok" : "WRONG");
    for (const std::string& line : findings.notes()) std::printf("      %s\n", line.c_str());
    for (const std::string& line : findings.faults()) std::printf("    ! %s\n", line.c_str());
    std::fflush(stdout);
    return good;
  }

  int finish() const {
    if (mWrong.empty()) {
      std::printf("\n%d steps, all checked\n", mSteps);
      return 0;
    }
    std::printf("\n%d steps, wrong: %s\n", mSteps, mWrong.c_str());
    return 1;
  }

 private:
  int mSteps = 0;
  std::string mWrong;
};

void echo(Findings& findings, std::uint64_t connection, const char* task, const Bytes& question,
          const std::string& text, std::string (*toWords)(const Bytes&)) {
  const Reply reply = sendTask(connection, task, question);
  findings.expectCode(task, reply.code);
  if (!reply.payload) return findings.expect(reply.code != KEL_OK, "there was no answer");
  findings.note("sent " + text + ", got " + toWords(*reply.payload));
  findings.expect(*reply.payload == question, "the answer is not what was sent");
}

std::string valuesWords(const Bytes& payload) {
  const std::optional<Values> values = toValues(payload);
  return values ? valuesText(*values) : std::to_string(payload.size()) + " bytes";
}

std::string textWords(const Bytes& payload) { return '"' + toText(payload) + '"'; }

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
    const std::optional<Broadcast> broadcast = nextBroadcast(start + kBroadcastPatience);
    if (!broadcast) return findings.expect(false, "only " + std::to_string(i) + " broadcasts came");
    findings.note(broadcast->name + (broadcast->isRef ? "  REF  " : "  VAL  ") + valuesWords(broadcast->payload) +
                  "  after " + timeText(broadcast->arrival - start));
    const Values expected{i, kBroadcasts, kBroadcastInterval};
    findings.expect(broadcast->name == "UNKNOWN_TASK" && !broadcast->isRef && toValues(broadcast->payload) == expected,
                    "this broadcast should be UNKNOWN_TASK, VAL, " + valuesText(expected));
  }
}

void lostLink(Findings& findings, std::uint64_t connection) {
  const Reply goodbye = sendTask(connection, kShutdown, {});
  findings.expectCode(kShutdown, goodbye.code);
  findings.expect(goodbye.payload.has_value(), "the shutdown was not answered");
  findings.expectCode(std::string(kVal) + ", next", sendTask(connection, kVal, {}).code, KEL_E_TASK);
}

}  // namespace

int demo() {
  std::cout << "kelctl demo: a tour of KELHandler " << libraryVersion() << "\n\n" << std::flush;
  Tour tour;
  std::uint64_t connection = 0;
  tour.step("Start the pipe library", [](Findings& findings) { findings.expectCode("KEL_Init", KEL_Init()); });
  const bool connected = tour.step("Connect to the device", [&](Findings& findings) {
    findings.expectCode("KEL_Connect", KEL_Connect(nullptr, queueBroadcast, &connection));
  });
  if (!connected) {
    std::cout << '\n' << meaning(KEL_E_CONNECTION) << '\n';
    return tour.finish();
  }

  tour.step("Ask a VAL task: three numbers, echoed", [&](Findings& findings) {
    const Values values{7, 8, 9};
    echo(findings, connection, kVal, fromValues(values), valuesText(values), valuesWords);
  });
  tour.step("Ask a REF task: raw bytes, echoed", [&](Findings& findings) {
    const Bytes question = fromText("Hello, device.");
    echo(findings, connection, kRef, question, textWords(question), textWords);
  });
  tour.step("Ask for the trace path", [&](Findings& findings) { tracePath(findings, connection); });
  tour.step("Receive broadcasts", [&](Findings& findings) { broadcasts(findings, connection); });
  tour.step("Lose the link: the next task is refused", [&](Findings& findings) { lostLink(findings, connection); });
  tour.step("Disconnect",
            [&](Findings& findings) { findings.expectCode("KEL_Disconnect", KEL_Disconnect(connection)); });
  tour.step("Send on the closed connection: refused", [&](Findings& findings) {
    findings.expectCode(kVal, sendTask(connection, kVal, {}).code, KEL_E_CONNECTION);
  });
  tour.step("End the pipe library", [](Findings& findings) { findings.expectCode("KEL_Finalize", KEL_Finalize()); });
  return tour.finish();
}

}  // namespace kelctl
