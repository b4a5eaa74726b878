// SPDX-License-Identifier: MIT
// A mixed load on all connections at once, on a device that loses answers and links, for as long as one likes:
//
//     kel_soak --seconds N [--release-blocks]
//
// Every call is followed to its outcome, no callback may come behind its connection's end, and what the process has of
// the system must not grow but for what the library keeps on purpose, which is counted; with blocks released that is no
// memory at all. Ends with a table and a verdict: status 0, or 1 if anything is lost, late or grows, or if calls do not
// come back.
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <string>
#include <thread>
#include <vector>

#include "KELHandler.h"
#include "soak/trend.h"
#include "support/heap_block.h"
#include "support/process_resources.h"
#include "support/registry_settings.h"
#include "support/scratch_directory.h"

namespace kel::test {
namespace {

using Clock = std::chrono::steady_clock;
using Counter = std::atomic<std::int64_t>;

constexpr std::uint32_t kLinks = KEL_MAX_CONNECTIONS;
constexpr std::uint32_t kThreads = 16;

// A synchronous task without an answer holds up all calls until its time-out, so that is short, but not so short that a
// busy machine brings an answer behind it, when its number may be another task's.
constexpr char kSettings[] = "RxWaitTimeout=500\n";

constexpr char kScenario[] = R"({
  "rules": [
    {"task": "TASK_ID_HDI_UT_VAL_TEST_RESPOND", "drop": {"every": 2003}},
    {"task": "TASK_ID_APPLICATION_DEBUG_VAL", "drop": {"every": 97}},
    {"task": "TASK_ID_APPLICATION_DEBUG_REF", "drop": {"probability": 0.02}, "jitter": 5},
    {"task": "TASK_ID_UMAC_INIT", "refuse": {"L4status": 1, "L4error": 513}},
    {"task": "TASK_ID_MODUL_A_ONE_UPDATE_DONE", "loseLink": 1}
  ],
  "broadcasts": [{"task": "TASK_ID_TIMER_POST_TASKS", "at": 20, "every": 50, "payload": {"size": 100}}],
  "linkLosses": [{"at": 5000}]
})";

/// What the library keeps may take so much memory in all: from then on calls are spread over the time that is left.
constexpr double kMostKept = 2e9;

// Of the 64 sequence numbers of a connection: tasks under way have some, synchronous tasks without an answer keep some,
// and some are on their way back. A connection is renewed in time.
constexpr std::int32_t kMostUnderWay = 24;
constexpr std::int32_t kMostUnanswered = 20;

enum Kind { kSynchronous, kAsynchronous, kStream, kBroadcaster, kVersionCheck, kRefused, kClosed, kKinds };
constexpr const char* kNames[] = {"synchronous",   "asynchronous", "stream",           "broadcaster",
                                  "version check", "refused task", "closed connection"};

struct Outcomes {
  Counter sent{0}, answered{0}, timedOut{0}, refused{0}, dropped{0};
  std::int64_t lost() const { return sent - answered - timedOut - refused - dropped; }
};

std::array<Outcomes, kKinds> gOutcomes;
Counter gConnects{0}, gBroadcasts{0}, gMessages{0};
Counter gWrong{0};  // answers that are not those to their tasks, or results that may not be
Counter gLate{0};   // callbacks behind their call's end or their connection's
Counter gKeptBytes{0};
Counter gKeptHandles{0};

// ---------------------------------------------------------------------------------------------------------------------
// What is kept on purpose
// ---------------------------------------------------------------------------------------------------------------------

constexpr std::size_t kHead = 16;  // of a record

struct KeptBlocks {
  std::int64_t record = HeapBytesOfBlock(kHead + KEL_MAX_TASK_PAYLOAD);  // a request, or what tells of a time-out
  std::int64_t answer = HeapBytesOfBlock(kHead + 12);                    // the copy of a synchronous VAL answer
  // Two copies of the table's name, and the five texts that Brel.ini has not.
  std::int64_t connection = 2 * HeapBytesOfBlock(sizeof "KEL_ALLTASKS.csv") + 5 * HeapBytesOfBlock(1024);
  std::int64_t versionCheck = 0;  // measured, ahead of the load
};

KeptBlocks gBlocks;

// ---------------------------------------------------------------------------------------------------------------------
// Asynchronous calls
// ---------------------------------------------------------------------------------------------------------------------

/// A std::shared_mutex, but for mingw's, which now and then lets in readers beside a writer.
class SharedMutex {
 public:
  void lock() { enter([this] { return mInside == 0; }, kWriter); }
  void unlock() { leave(kWriter); }
  void lock_shared() { enter([this] { return mInside >= 0; }, kReader); }
  void unlock_shared() { leave(kReader); }

 private:
  static constexpr int kWriter = -1, kReader = 1;

  template <class Ready>
  void enter(Ready ready, int who) {
    std::unique_lock lock(mMutex);
    mChanged.wait(lock, ready);
    mInside += who;
  }
  void leave(int who) {
    const std::lock_guard lock(mMutex);
    mInside -= who;
    mChanged.notify_all();
  }

  std::mutex mMutex;
  std::condition_variable mChanged;
  int mInside = 0;  ///< readers, or -1 for a writer
};

/// A connection and what is under way on it. Calls share its lock, so that a connection is not closed between being
/// looked up and being used: which call was on which connection would not be known otherwise.
struct Link {
  SharedMutex lock;
  std::uint64_t conn = 0;
  std::atomic<bool> open{false};
  std::atomic<std::int32_t> underWay{0};
  std::atomic<std::int32_t> unanswered{0};
};

std::array<Link, kLinks> gLinks;

/// A call whose outcome a callback tells. Its commandID is its place and a number that changes with each use, so that
/// a callback for a former use is known as one. The other members belong to whoever made the commandID kTaken, and do
/// not change while it is any other.
struct Call {
  std::atomic<std::uint32_t> commandID{0};  // 0: the place is free
  std::atomic<Kind> kind{kAsynchronous};
  std::atomic<Link*> link{nullptr};
};

constexpr std::uint32_t kTaken = ~0u;
constexpr std::uint32_t kPlaces = 4096;  // more than can be under way
std::array<Call, kPlaces> gCalls;
std::atomic<std::uint32_t> gNext{0};

/// Takes a place, with the call counted as sent.
std::uint32_t Begin(Kind kind, Link& link) {
  ++link.underWay;
  ++gOutcomes[kind].sent;
  for (;;) {
    const std::uint32_t commandID = ++gNext;
    Call& call = gCalls[commandID % kPlaces];
    std::uint32_t free = 0;
    if (commandID == 0 || commandID == kTaken || !call.commandID.compare_exchange_strong(free, kTaken)) continue;
    call.kind = kind;
    call.link = &link;
    call.commandID = commandID;
    return commandID;
  }
}

/// Ends a call. False if it has ended.
bool End(std::uint32_t commandID, Counter Outcomes::*outcome) {
  Call& call = gCalls[commandID % kPlaces];
  std::uint32_t expected = commandID;
  if (!call.commandID.compare_exchange_strong(expected, kTaken)) return false;
  ++(gOutcomes[call.kind].*outcome);
  --call.link.load()->underWay;
  call.link = nullptr;
  call.commandID = 0;
  return true;
}

bool IsUnderWay(std::uint32_t commandID) { return gCalls[commandID % kPlaces].commandID == commandID; }

void OnAnswer(std::uint32_t errorCode, std::uint32_t commandID, std::uint32_t, std::uint32_t, void* data,
              std::uint32_t size, std::uint32_t) {
  if (errorCode == 0 && (size < 4 || std::memcmp(data, &commandID, 4) != 0)) ++gWrong;
  if (errorCode != 0) gKeptBytes += gBlocks.record;
  if (!End(commandID, errorCode == 0 ? &Outcomes::answered : &Outcomes::timedOut)) ++gLate;
}

/// Of a stream, whose outcome is its end.
void OnOpening(std::uint32_t, std::uint32_t commandID, std::uint32_t, std::uint32_t, void*, std::uint32_t,
               std::uint32_t) {
  if (!IsUnderWay(commandID)) ++gLate;
}

void OnMessage(std::uint32_t, std::uint32_t commandID, std::uint32_t, std::uint32_t streamEnd, std::uint32_t, void*,
               std::uint32_t, std::uint32_t) {
  ++gMessages;
  if (streamEnd != 0 ? !End(commandID, &Outcomes::answered) : !IsUnderWay(commandID)) ++gLate;
}

// ---------------------------------------------------------------------------------------------------------------------
// Connections
// ---------------------------------------------------------------------------------------------------------------------

template <std::size_t index>
void OnBroadcast(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
  if (!gLinks[index].open) ++gLate;
  ++gBroadcasts;
  std::free(name);
  std::free(payload);
}

template <std::size_t... indices>
constexpr std::array<KEL_BroadcastCallback, sizeof...(indices)> BroadcastCallbacks(std::index_sequence<indices...>) {
  return {OnBroadcast<indices>...};
}
constexpr auto kOnBroadcast = BroadcastCallbacks(std::make_index_sequence<kLinks>());

/// Both are called with the link's lock.
void Open(Link& link) {
  link.open = true;
  link.unanswered = 0;
  if (KEL_Connect(nullptr, kOnBroadcast[static_cast<std::size_t>(&link - gLinks.data())], &link.conn) != KEL_OK) {
    ++gWrong;
  }
  ++gConnects;
}

/// Also ends what was under way. A thread that served such a call leaves its handle, on purpose.
void Close(Link& link) {
  if (KEL_Disconnect(link.conn) != KEL_OK) ++gWrong;
  link.open = false;
  gKeptBytes += gBlocks.connection;
  for (Call& call : gCalls) {
    const std::uint32_t commandID = call.commandID;
    if (call.link == &link && End(commandID, &Outcomes::dropped)) ++gKeptHandles;
  }
}

// ---------------------------------------------------------------------------------------------------------------------
// Calls
// ---------------------------------------------------------------------------------------------------------------------

using Random = std::minstd_rand;

/// A task that is waited for. The library has one result for a refusal and a time-out: both count as refused.
void SendAndWait(Kind kind, const char* task, std::uint32_t first, Link& link, bool isEcho) {
  const std::uint32_t values[3] = {first, 1, 0};
  void* answer = nullptr;
  std::uint32_t size = 0;
  Outcomes& outcomes = gOutcomes[kind];
  ++outcomes.sent;
  const std::uint32_t result = KEL_SendReceiveKEL(link.conn, task, 1, values, sizeof values, &answer, &size, nullptr);
  gKeptBytes += gBlocks.record;
  if (result == KEL_OK) {
    ++outcomes.answered;
    gKeptBytes += gBlocks.answer;
    if (size != sizeof values || (isEcho && std::memcmp(answer, values, size) != 0)) ++gWrong;
  } else {
    ++outcomes.refused;
    ++link.unanswered;
    if (result != KEL_E_TASK || answer != nullptr) ++gWrong;
  }
  std::free(answer);
}

void SendAsynchronously(Kind kind, const char* task, Link& link, Random& random) {
  const bool isStream = kind == kStream;
  const std::uint32_t commandID = Begin(kind, link);
  std::uint32_t values[3] = {commandID, 0, 0};
  if (isStream)
    values[0] = 1 + static_cast<std::uint32_t>(random() % 10), values[1] = static_cast<std::uint32_t>(random() % 3);
  std::uint32_t seqNum = 0;
  const std::uint32_t result = KEL_SendReceiveAsyncKEL(link.conn, task, commandID, values, sizeof values, &seqNum,
                                                       isStream ? OnOpening : OnAnswer, isStream ? OnMessage : nullptr);
  gKeptBytes += gBlocks.record;
  if (result == KEL_OK) return;
  if (result != KEL_E_ASYNC_TASK || !End(commandID, &Outcomes::refused)) ++gWrong;
}

void CheckVersion(Link& link) {
  Outcomes& outcomes = gOutcomes[kVersionCheck];
  char name[] = "firmware.bin";
  std::uint64_t version = 0;
  ++outcomes.sent;
  const std::uint32_t result = KEL_ValidateVersion(link.conn, name, "bytes", 5, &version, ".");
  ++(result == KEL_VERSION_VALID ? outcomes.answered : outcomes.refused);
  // Without an answer of the device there is nothing to keep but the request.
  gKeptBytes += result == KEL_VERSION_VALID ? gBlocks.versionCheck : gBlocks.record;
  if (result != KEL_VERSION_VALID && result != KEL_VERSION_INVALID) ++gWrong;
}

/// On a connection that there is not.
void SendToNobody() {
  Outcomes& outcomes = gOutcomes[kClosed];
  std::uint32_t seqNum = 0;
  ++outcomes.sent;
  if (KEL_SendReceiveAsyncKEL(~std::uint64_t{0}, "TASK_ID_APPLICATION_DEBUG_VAL", 1, nullptr, 0, &seqNum, OnAnswer,
                              nullptr) != KEL_E_CONNECTION) {
    ++gWrong;
  }
  ++outcomes.refused;
}

void Act(Link& link, Random& random) {
  const std::uint32_t choice = static_cast<std::uint32_t>(random() % 1000);
  if (choice < 2 || link.unanswered >= kMostUnanswered) {
    const std::unique_lock lock(link.lock);
    Close(link);
    Open(link);
    return;
  }
  const std::shared_lock lock(link.lock);
  if (choice < 300) {
    SendAndWait(kSynchronous, "TASK_ID_HDI_UT_VAL_TEST_RESPOND", choice, link, true);
  } else if (choice < 320) {
    SendAndWait(kBroadcaster, "TASK_ID_APPLICATION_DEBUG_BROADCASTER", 3, link, false);
  } else if (choice < 340) {
    SendAndWait(kRefused, "TASK_ID_UMAC_INIT", 0, link, false);
  } else if (choice < 342) {
    SendAsynchronously(kAsynchronous, "TASK_ID_MODUL_A_ONE_UPDATE_DONE", link, random);
  } else if (choice < 360) {
    CheckVersion(link);
  } else if (choice < 370) {
    SendToNobody();
  } else if (link.underWay < kMostUnderWay) {
    if (choice < 450) return SendAsynchronously(kStream, "TASK_ID_APPLICATION_DEBUG_STREAMER", link, random);
    const bool isRef = choice % 2 != 0;
    SendAsynchronously(kAsynchronous, isRef ? "TASK_ID_APPLICATION_DEBUG_REF" : "TASK_ID_APPLICATION_DEBUG_VAL", link,
                       random);
  }
}

// ---------------------------------------------------------------------------------------------------------------------
// The run
// ---------------------------------------------------------------------------------------------------------------------

double Since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

/// What the process has, without what is kept on purpose.
struct Level {
  const char* name;
  std::optional<double> (*look)();
  double upsAndDowns;  ///< growth in the second half that the load explains: calls under way, blocks that threads hold
  double left;         ///< what may be more at the end
  Trend trend{};
  std::optional<double> before{};
};

std::optional<double> Number(std::optional<std::size_t> number) {
  return number ? std::optional<double>(static_cast<double>(*number)) : std::nullopt;
}

std::optional<double> Less(std::optional<double> number, double kept) {
  return number ? std::optional<double>(*number - kept) : std::nullopt;
}

constexpr double kMostThreads = kLinks * kMostUnderWay;

std::array<Level, 5> gLevels{{
    {"heap less kept", [] { return Less(Number(HeapBytes()), static_cast<double>(gKeptBytes)); }, 1e6, 1e6},
    {"memory less kept", [] { return Less(Number(ResidentBytes()), static_cast<double>(gKeptBytes)); }, 3e7, 3e7},
    {"threads", [] { return Number(LivingThreads()); }, kMostThreads / 2, 0},
    // A call has a thread and three events.
    {"handles less kept", [] { return Less(Number(OpenHandles()), static_cast<double>(gKeptHandles)); },
     kMostThreads / 2 * 4, 0},
    {"descriptors", [] { return Number(OpenDescriptors()); }, 2, 0},
}};

/// What a version check keeps is a set of arrays that depends on the device: found out by doing some.
void MeasureVersionCheck() {
  constexpr int kChecks = 50;
  Link& link = gLinks[0];
  Open(link);
  CheckVersion(link);
  const auto before = HeapBytes();
  for (int i = 0; i < kChecks; ++i) CheckVersion(link);
  if (before)
    gBlocks.versionCheck = (static_cast<std::int64_t>(*HeapBytes()) - static_cast<std::int64_t>(*before)) / kChecks;
  Close(link);
}

class Soak {
 public:
  explicit Soak(double seconds) : mSeconds(seconds) {}

  int run() {
    for (Level& level : gLevels) level.before = level.look();
    for (Link& link : gLinks) Open(link);
    mStart = Clock::now();
    std::vector<std::thread> threads;
    for (std::uint32_t i = 0; i < kThreads; ++i) threads.emplace_back([this, i] { work(i); });
    while (mWorking != 0) {
      // Calls run one at a time, each for a time-out at most.
      if (Since(mStart) > mSeconds + kPatience) return print(false);
      std::this_thread::sleep_for(std::chrono::duration<double>(std::min(0.25, mSeconds / 100)));
      if (Since(mStart) < mSeconds) sample();
    }
    for (std::thread& thread : threads) thread.join();
    for (Link& link : gLinks) Close(link);
    // A thread whose end was waited for may be seen for a moment longer.
    Level& levelOfThreads = gLevels[2];
    for (int look = 0; levelOfThreads.look() > levelOfThreads.before && look < 1000; ++look) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return print(true);
  }

 private:
  static constexpr double kPatience = 60;

  void work(std::uint32_t seed) {
    Random random(seed + 1);
    for (double now = 0; (now = Since(mStart)) < mSeconds;) {
      if (static_cast<double>(gKeptBytes) > kMostKept * now / mSeconds) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      } else {
        Act(gLinks[random() % kLinks], random);
      }
    }
    --mWorking;
  }

  void sample() {
    const double now = Since(mStart);
    for (Level& level : gLevels) {
      if (const auto value = level.look()) level.trend.add(now, *value);
    }
  }

  /// Returns the exit status.
  int print(bool cameBack) {
    bool passed = cameBack && gWrong == 0 && gLate == 0;
    std::printf("%-18s %10s %10s %10s %10s %10s %6s\n", "", "sent", "answered", "timed out", "refused", "dropped",
                "lost");
    for (int kind = 0; kind < kKinds; ++kind) {
      const Outcomes& outcomes = gOutcomes[static_cast<std::size_t>(kind)];
      std::printf("%-18s %10lld %10lld %10lld %10lld %10lld %6lld\n", kNames[kind], Long(outcomes.sent),
                  Long(outcomes.answered), Long(outcomes.timedOut), Long(outcomes.refused), Long(outcomes.dropped),
                  Long(outcomes.lost()));
      passed = passed && outcomes.lost() == 0 && outcomes.answered + outcomes.refused > 0;
    }
    std::printf("\n%-18s %12s %12s %12s %12s %12s\n", "", "before", "most", "grew", "after", "");
    for (const Level& level : gLevels) passed = print(level) && passed;
    std::printf("\nconnects %lld, broadcasts %lld, stream messages %lld; kept on purpose: %lld bytes, %lld handles\n",
                Long(gConnects), Long(gBroadcasts), Long(gMessages), Long(gKeptBytes), Long(gKeptHandles));
    if (!cameBack) std::printf("%u threads are still in a call\n", mWorking.load());
    std::printf("wrong answers or results: %lld, callbacks behind the end: %lld\n%s\n", Long(gWrong), Long(gLate),
                passed ? "passed" : "FAILED");
    std::fflush(stdout);
    if (!cameBack) std::_Exit(1);  // their threads would be waited for
    return passed ? 0 : 1;
  }

  static bool print(const Level& level) {
    if (level.trend.empty()) {
      std::printf("%-18s not told here\n", level.name);
      return true;
    }
    const double after = level.look().value();
    const bool passed = level.trend.growth() <= level.upsAndDowns && after <= *level.before + level.left;
    std::printf("%-18s %12.0f %12.0f %12.0f %12.0f %12s\n", level.name, *level.before, level.trend.most(),
                level.trend.growth(), after, passed ? "" : "GROWS");
    return passed;
  }

  static long long Long(std::int64_t number) { return number; }

  const double mSeconds;
  Clock::time_point mStart;
  std::atomic<std::uint32_t> mWorking{kThreads};
};

}  // namespace
}  // namespace kel::test

int main(int argc, char** argv) {
  using namespace kel::test;
  const bool released = argc == 4 && std::strcmp(argv[3], "--release-blocks") == 0;
  const double seconds = (argc == 3 || released) && std::strcmp(argv[1], "--seconds") == 0 ? std::atof(argv[2]) : 0;
  if (seconds <= 0) {
    std::fprintf(stderr, "usage: kel_soak --seconds N [--release-blocks]\n");
    return 2;
  }
  const ScratchDirectory folder;
  const RegistrySettings registry;
  folder.writeSettings(std::string(kSettings) + (released ? "ReleaseBlocks=1\n" : ""));
  folder.write("SluiceHub.json", kScenario);
  KEL_Init();
  if (released) gBlocks = {0, 0, 0, 0};
  MeasureVersionCheck();  // which also starts what a process has from its first thread on
  const int status = Soak(seconds).run();
  KEL_Finalize();
  return status;
}
