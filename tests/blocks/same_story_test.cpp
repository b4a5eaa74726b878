// SPDX-License-Identifier: MIT
// One story told with kept blocks and with released ones: nobody outside can tell the two apart.
#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>

#include "async/async_test.h"
#include "dumps/dump_test.h"
#include "support/platform_calls.h"

namespace kel::test {
namespace {

constexpr std::uint32_t kBroadcastTui = 0x5000;

Noted<std::string> gBroadcasts;

void TakeBroadcast(char* name, std::uint32_t isRef, void* payload, std::uint32_t size, std::uint32_t seqTUI) {
  std::string noted = std::string(name) + " " + std::to_string(isRef) + " " + std::to_string(seqTUI) + " ";
  noted.append(static_cast<const char*>(payload), size);
  std::free(name);
  std::free(payload);
  gBroadcasts.add(std::move(noted));
}

/// All that the world sees of a story, each outlet whole and in order. The listeners' threads have a part of the
/// console to themselves, since their lines fall between the others as it happens.
struct Seen {
  std::map<std::string, std::string> texts;
  std::vector<Call> calls;

  bool operator==(const Seen&) const = default;
  friend void PrintTo(const Seen& seen, std::ostream* out) {
    for (const auto& [name, text] : seen.texts) *out << "\n--- " << name << "\n" << text;
    for (const Call& call : seen.calls) PrintTo(call, &(*out << "\n"));
  }
};

class SameStory : public AsyncTest {
 protected:
  Seen tell(const std::string& setting) {
    ::testing::internal::CaptureStdout();
    mSeen = {};
    mCalls = gCalls.waitFor(0).size();
    mBroadcasts = gBroadcasts.waitFor(0).size();
    answeredStory(setting);
    unansweredStory(setting);
    const std::string console = ::testing::internal::GetCapturedStdout();
    if (HasFailure()) std::fputs(console.c_str(), stderr);  // with what failed
    takeConsole(console);
    for (auto& [name, log] : mLogs) mSeen.texts[name] = withoutHandles(log.fresh());
    const std::vector<Call> calls = gCalls.waitFor(0);
    mSeen.calls.assign(calls.begin() + static_cast<std::ptrdiff_t>(mCalls), calls.end());
    const std::vector<std::string> broadcasts = gBroadcasts.waitFor(0);
    for (; mBroadcasts < broadcasts.size(); ++mBroadcasts) mSeen.texts["broadcasts"] += broadcasts[mBroadcasts] + "\n";
    return mSeen;
  }

 private:
  void connect(const std::string& settings) {
    std::string all = "LogToConsole=1\n" + settings;
    for (const char* name : kDumps) all += std::string(name) + "Filename=" + name + "\n";
    folder.writeSettings(all);
    SluiceHubSim_Reset();
    AddRule(RuleFor(0, SLUICEHUBSIM_BEFORE_REPLY));
    ASSERT_EQ(BrelInit(&handle, nullptr, 1, nullptr, TakeBroadcast, [](std::uint32_t) {}), kStatusOk);
    engine = GetBrelInst(handle);
  }
  void disconnect() {
    engine.reset();
    EXPECT_EQ(BrelFinalize(handle), kStatusOk);
  }

  void answeredStory(const std::string& setting) {
    connect("RxWaitTimeout=" + std::to_string(kLong) + "\n" + setting);

    // Long requests and short ones in turn: a block that was used before must not show.
    answered(Invoke(handle, kDebugRef, std::string(5000, 'x').data(), 5000));
    answered(Invoke(handle, kDebugVal, nullptr, 0));
    answered(Invoke(handle, kDebugRef, nullptr, 0));
    answered(Invoke(handle, kDebugVal, "short", 5));
    answered(Invoke(handle, kDebugVal, "nobody waits", 12, 0x12345678, 0));
    answered(Invoke(handle, "NO_SUCH_TASK", nullptr, 0));
    char path[] = "versions/of/today/";
    std::uint64_t userVersion = 0;
    EXPECT_EQ(BrelValidateVersion(handle, path, "bytes", 5, &userVersion, "."), kStatusNoFileName);
    char* traceFilePath = nullptr;
    EXPECT_EQ(BrelGetTraceFilePath(handle, &traceFilePath), kStatusOk);
    std::free(traceFilePath);

    SluiceHubSim_ClearRules();
    SluiceHubSimRule refuse = RuleFor(0);
    refuse.L4status = 1;
    AddRule(refuse);
    answered(Invoke(handle, kDebugRef, "refused", 7));
    {
      const HeldSequences held(EngineInside{*engine});  // its thread is told to stop, and sees that afterwards
      EXPECT_NE(InvokeAsync(handle, kDebugRef, OnTask).status, kStatusOk);
    }
    waitForListeners();

    // From here on the test is the device.
    SluiceHubSim_ClearRules();
    DropRequests(0);
    const Asked asked = InvokeAsync(handle, kDebugRef, OnTask);
    deliver(kDebugRefTui, asked.seqNum, "answer");
    waitForListeners();
    note("asynchronous");
    const Asked stream = InvokeAsync(handle, kDebugRef, OnTask, OnStream);
    deliver(kDebugRefTui, stream.seqNum, "opening");
    deliver(kDebugRefTui, stream.seqNum | kStreamClass, "message");
    deliver(kDebugRefTui, stream.seqNum | kStreamEndClass, "end");
    waitForListeners();
    note("stream");

    // The listener's thread is through with it before the receiving one goes on.
    const std::size_t broadcasts = gBroadcasts.waitFor(0).size();
    const std::size_t former = LogText("Brel_Broadcast_Listener.logs").size();
    {
      const AfterSetEvent handled([&] { gBroadcasts.waitFor(broadcasts + 1); });
      EXPECT_TRUE(Deliver(handle, kBroadcastTui | 2 << 19, 0, "a broadcast of no known type"));
    }
    waitUntilSaid("Brel_Broadcast_Listener.logs", former, {"data processing finished \n"});
    note("broadcast");
    disconnect();
  }

  void unansweredStory(const std::string& setting) {
    connect("RxWaitTimeout=0\n" + setting);
    SluiceHubSim_ClearRules();
    DropRequests(0);
    answered(Invoke(handle, kDebugRef, "not answered", 12));
    const std::uint32_t numberThatStaysTaken = GetTuiSeqNum(LastRequest().seqTUI);
    EXPECT_TRUE(Deliver(handle, kDebugRefTui, numberThatStaysTaken, "late"));
    EXPECT_TRUE(Deliver(handle, kDebugRefTui, numberThatStaysTaken, "later still"));
    EXPECT_FALSE(Deliver(handle, kDebugRefTui, 63, "for nobody"));
    {
      const platform::InSection first(EngineInside(*engine).initLock());  // its thread tells of the time-out afterwards
      EXPECT_EQ(InvokeAsync(handle, kDebugVal, OnTask).status, kStatusOk);
    }
    waitForListeners();
    note("timed out");
    disconnect();
  }

  /// Hands a record to the engine with the sequence's thread kept from it until that is done, and waits until the
  /// thread has handed it on and is back at its wait.
  void deliver(std::uint32_t TUI, std::uint32_t sequenceByte, const std::string& payload) {
    const std::size_t calls = gCalls.waitFor(0).size();
    const std::size_t former = LogText("Brel_Async_Listener.logs").size();
    {
      const HeldSequences held(EngineInside{*engine});
      EXPECT_TRUE(Deliver(handle, TUI, sequenceByte, payload));
    }
    gCalls.waitFor(calls + 1);
    waitUntilSaid("Brel_Async_Listener.logs", former, {"queue empty. \n", "sequence data freed. \n"});
  }

  /// Waits for one of the texts, behind what the log has had before.
  static void waitUntilSaid(const char* log, std::size_t former, std::initializer_list<const char*> texts) {
    const auto said = [&](const char* text) { return LogText(log).find(text, former) != std::string::npos; };
    while (std::none_of(texts.begin(), texts.end(), said)) std::this_thread::yield();
  }

  void waitForListeners() {
    EngineInside inside{*engine};
    while (inside.threads() != 0) std::this_thread::yield();
    // Behind the count a thread has a line or two to write.
    while (engine.use_count() > kUsersAtRest) std::this_thread::yield();
  }
  static constexpr long kUsersAtRest = 4;  // the table, this object, and the threads of broadcasts and alerts

  void answered(const Answer& answer) {
    mSeen.texts["answers"] += std::to_string(answer.status) + " " + answer.payload + "\n";
    note("task");
  }
  void note(const std::string& step) {
    for (const char* name : kDumps) mSeen.texts[name] += step + ": " + RawFile(name) + "\n";
  }

  void takeConsole(const std::string& console) {
    std::istringstream lines(withoutHandles(console));
    for (std::string line; std::getline(lines, line);) {
      const bool ofThread = line.starts_with("listenerThreadFunc");
      mSeen.texts[ofThread ? "console of the threads" : "console"] += line + "\n";
    }
  }
  static std::string withoutHandles(const std::string& text) {
    static const std::regex handle("Handle=(0x)?[0-9A-Fa-f]+|handle -?(0x)?[0-9a-f]{3,}|Handle= *(0x)?[0-9A-Fa-f]+");
    return std::regex_replace(text, handle, "#");
  }

  Seen mSeen;
  std::size_t mCalls = 0;
  std::size_t mBroadcasts = 0;
  std::map<std::string, LogFile> mLogs = [] {
    std::map<std::string, LogFile> logs;
    for (const char* name : {"Brel.logs", "DorvL5.logs", "Brel_Tasks_Sequencer.logs", "Brel_Broadcast_Listener.logs",
                             "Brel_Alerts_Listener.logs", "Brel_Async_Listener.logs"}) {
      logs.emplace(name, name);
    }
    return logs;
  }();
};

TEST_F(SameStory, IsToldWithReleasedBlocksAsWithKeptOnes) {
  tell("");  // the first one of a process names the log of the adapter, and its threads that of the listener
  const Seen kept = tell("");
  EXPECT_EQ(tell("ReleaseBlocks=1\n"), kept);
  EXPECT_EQ(kept.calls.size(), 5u);
  for (const auto& [name, text] : kept.texts) EXPECT_FALSE(text.empty()) << name;
}

}  // namespace
}  // namespace kel::test
