// SPDX-License-Identifier: MIT
// Random stories against a small model of the sequences' states.
//
// A story opens tasks, commands and streams, brings answers of every class in any order, lets tasks time out, sends
// synchronous tasks in between, and in the end closes what can be closed. What the client is told, and which number
// each request gets, has to be what the model says. A story is told by its seed, which is printed with each failure;
// now and then the engine is taken down with sequences open.
#include <deque>
#include <map>
#include <random>

#include "adapter/Dorv.h"
#include "async/async_test.h"

namespace kel::test {
namespace {

constexpr std::uint32_t kStories = KEL_STORIES;  // of each test

/// One open sequence as the model sees it.
struct Sequence {
  std::uint32_t seqNum = 0;
  bool isCommand = false;
  bool isStream = false;
  bool waits = false;  ///< a client waited for the acknowledgement
  bool tellsAck = true;
  bool ackSeen = false;
};

class ModelTest : public AsyncTest, public ::testing::WithParamInterface<int> {
 protected:
  ModelTest() {
    for (const char* level : {"Info", "Warn", "Err"}) registry.set("Software\\Brel\\ALogger", level, 0);
  }

  void takeUp() {
    startEngine();
    SluiceHubSim_ClearRules();
    DropRequests(kDebugRefTui);                      // answers are the story's,
    AddRule(RuleFor(0, SLUICEHUBSIM_BEFORE_REPLY));  // but for those that a client waits for
    mFree.clear();
    for (std::uint32_t i = 0; i < kSequenceNumbers; ++i) mFree.push_back(i);
    mOpen.clear();
  }
  void takeDown() {
    engine.reset();
    ASSERT_EQ(BrelFinalize(handle), kStatusOk);
    mOpen.clear();
  }

  void tellStory(std::uint32_t seed) {
    mRandom.seed(seed);
    const std::uint32_t steps = 5 + below(30);
    for (std::uint32_t i = 0; i < steps && !HasFailure(); ++i) step();
    for (auto& [commandID, sequence] : std::map(mOpen)) close(commandID);
    check();
  }

  /// Compares what the client was told, sequence by sequence.
  void check() {
    const std::vector<Call> calls = gCalls.waitFor(mExpectedCalls);
    ASSERT_EQ(calls.size(), mExpectedCalls);
    std::map<std::uint32_t, std::vector<Call>> told;
    for (std::size_t i = mChecked; i < calls.size(); ++i) told[calls[i].commandID].push_back(calls[i]);
    ASSERT_EQ(told, mExpected);
    mExpected.clear();
    mChecked = calls.size();
  }

  std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(mRandom() % limit); }
  bool chance() { return below(2) == 0; }

  // -------------------------------------------------------------------------------------------------------------------
  // Steps
  // -------------------------------------------------------------------------------------------------------------------

  void step() {
    switch (below(12)) {
      case 0:
      case 1:
      case 2:
        return openOne(false);
      case 3:
      case 4:
        return openOne(true);
      case 5:
        return openWaiting();
      case 6:
        return askAndWait();
      case 7:
        return answerNobody();
      case 8:
        return timeOut();
      default:
        return answerSomebody();
    }
  }

  void openOne(bool isStream) {
    Sequence sequence;
    sequence.isStream = isStream;
    sequence.isCommand = chance();
    sequence.tellsAck = below(4) != 0;
    const std::uint8_t responseExpected = isStream && chance() ? 0 : 1;
    const std::uint32_t commandID = ++mLastCommand;
    Asked asked;
    if (sequence.isCommand) {
      asked = IssueAsync(handle, kDebugRefTui, sequence.tellsAck ? OnCommand : nullptr,
                         isStream ? OnCommandStream : nullptr, responseExpected, commandID);
    } else {
      asked = InvokeAsync(handle, kDebugRef, sequence.tellsAck ? OnTask : nullptr, isStream ? OnStream : nullptr,
                          responseExpected, commandID);
    }
    opened(commandID, sequence, asked.status, asked.seqNum);
  }

  /// A stream whose client waits for the acknowledgement.
  void openWaiting() {
    const std::uint32_t commandID = ++mLastCommand;
    void* payload = nullptr;
    std::uint32_t size = 0;
    const Status status =
        BrelInvokeTask(handle, kDebugVal, commandID, nullptr, 0, 0, 1, nullptr, &payload, &size, nullptr, OnStream);
    std::free(payload);
    Sequence sequence;
    sequence.isStream = sequence.waits = sequence.ackSeen = true;
    opened(commandID, sequence, status, mFree.empty() ? 4711 : LastRequest().seqTUI >> 24);
  }

  void opened(std::uint32_t commandID, Sequence sequence, Status status, std::uint32_t seqNum) {
    if (mFree.empty()) {
      EXPECT_EQ(status, kStatusFailed);
      EXPECT_EQ(seqNum, 4711u);
      return;
    }
    EXPECT_EQ(status, kStatusOk);
    EXPECT_EQ(seqNum, mFree.front());
    sequence.seqNum = mFree.front();
    mFree.pop_front();
    mOpen[commandID] = sequence;
  }

  void askAndWait() {
    const Answer answer = InvokeVal(handle, {1, 2, 3});
    EXPECT_EQ(answer.status, mFree.empty() ? kStatusFailed : kStatusOk);
    if (mFree.empty()) return;
    EXPECT_EQ(answer.payload, Bytes({1, 2, 3}));
    EXPECT_EQ(LastRequest().seqTUI >> 24, mFree.front());
    mFree.push_back(mFree.front());
    mFree.pop_front();
  }

  void answerNobody() {
    if (mFree.empty()) return;
    const std::uint32_t seqNum = mFree[below(static_cast<std::uint32_t>(mFree.size()))];
    EXPECT_FALSE(Deliver(handle, kDebugRefTui, seqNum | below(4) << 6, "nobody's"));
  }

  void answerSomebody() {
    if (mOpen.empty()) return;
    const std::uint32_t commandID = anyOpen();
    answer(commandID, mOpen[commandID].isStream ? below(3) << 6 : 0);
  }

  void timeOut() {
    if (mOpen.empty()) return;
    const std::uint32_t commandID = anyOpen();
    const Sequence& sequence = mOpen[commandID];
    if (sequence.isStream) return;
    if (sequence.tellsAck) {
      const auto record = Record(kDebugRefTui, 2, 0, "");
      const std::string data(record.begin(), record.end());
      tell(sequence.isCommand ? Call{Of::kCommand, 0, commandID, sequence.seqNum, 0, 0, data, 16, 0}
                              : Call{Of::kTask, 2, commandID, sequence.seqNum, 0, 0, data, 0, 0});
    }
    {
      const InPlaceOfThread inPlace(inside());
      EXPECT_EQ(ProcessSequenceData(handle, sequence.seqNum, 2, nullptr, 0), 1u);
    }
    freed(commandID);
  }

  void close(std::uint32_t commandID) {
    if (mOpen[commandID].isStream && !mOpen[commandID].ackSeen) answer(commandID, 0);
    answer(commandID, mOpen[commandID].isStream ? kStreamEndClass : 0);
  }

  // -------------------------------------------------------------------------------------------------------------------
  // The table of states
  // -------------------------------------------------------------------------------------------------------------------

  void answer(std::uint32_t commandID, std::uint32_t seqClass) {
    Sequence& sequence = mOpen[commandID];
    const std::string payload(below(40), static_cast<char>('a' + below(26)));
    const std::uint32_t TUI = chance() ? kDebugRefTui : kDebugValTui;
    const std::uint32_t seqTUI = below(1000);
    const std::uint32_t sequenceByte = sequence.seqNum | seqClass;
    // Of a stream that a client waited for, a further acknowledgement is filed where nobody looks.
    const bool told = seqClass != 0 || (sequence.tellsAck && !sequence.waits);
    if (told) {
      const auto record = Record(TUI | sequenceByte << 24, 0, seqTUI, payload);
      const auto size = static_cast<std::uint32_t>(payload.size());
      const std::uint32_t end = seqClass == kStreamEndClass ? 1 : 0;
      tell(sequence.isCommand ? Call{seqClass == 0 ? Of::kCommand : Of::kCommandStream, 0, commandID, sequenceByte, end,
                                     0, std::string(record.begin(), record.end()), size, 0}
                              : Call{seqClass == 0 ? Of::kTask : Of::kStream, 0, commandID, sequenceByte, end,
                                     GetTuiType(TUI) != 0 ? 1u : 0u, payload, size, seqTUI});
    }
    const bool ends = !sequence.isStream || (seqClass == kStreamEndClass && sequence.ackSeen);
    if (chance()) {
      const bool taken = Deliver(handle, TUI, sequenceByte, payload, seqTUI);
      // A thread that is still at earlier ones may handle the last of all, and be gone, before it is announced to it.
      EXPECT_TRUE(taken || ends);
    } else {
      EXPECT_EQ(SluiceHubSim_DeliverRecord(Dorv_GetL5Connection(BrelGetDorvHandle(handle)), TUI | sequenceByte << 24, 0,
                                           seqTUI, payload.data(), static_cast<std::uint32_t>(payload.size()), 1),
                1u);
    }
    if (ends) return freed(commandID);
    if (seqClass == 0 && !sequence.waits) sequence.ackSeen = true;
  }

  void tell(Call call) {
    mExpected[call.commandID].push_back(std::move(call));
    ++mExpectedCalls;
  }
  void freed(std::uint32_t commandID) {
    const std::uint32_t seqNum = mOpen[commandID].seqNum;
    waitUntilFreed(seqNum);
    mOpen.erase(commandID);
    mFree.push_back(seqNum);
  }
  std::uint32_t anyOpen() {
    auto at = mOpen.begin();
    std::advance(at, below(static_cast<std::uint32_t>(mOpen.size())));
    return at->first;
  }

  std::mt19937 mRandom;
  std::deque<std::uint32_t> mFree;
  std::map<std::uint32_t, Sequence> mOpen;  ///< by command
  std::map<std::uint32_t, std::vector<Call>> mExpected;
  std::size_t mExpectedCalls = 0;
  std::size_t mChecked = 0;
  std::uint32_t mLastCommand = 0;
};

TEST_P(ModelTest, TheClientIsToldWhatTheModelSays) {
  const auto first = static_cast<std::uint32_t>(GetParam()) * kStories;
  takeUp();
  for (std::uint32_t seed = first; seed < first + kStories && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    tellStory(seed);
    if (seed % 50 != 0 || HasFailure()) continue;
    // With some open, of which nobody is told.
    for (int i = 0; i < 5; ++i) openOne(chance());
    takeDown();
    takeUp();
  }
  takeDown();
  check();
}

INSTANTIATE_TEST_SUITE_P(Stories, ModelTest, ::testing::Range(0, 4));

/// What ends a story with the lock kept.
class LastStepTest : public ModelTest {
 protected:
  /// A record that cannot be handled, for one of those that are open; its thread ends with the lock.
  void refuse() {
    const std::uint32_t commandID = anyOpen();
    const Sequence& sequence = mOpen[commandID];
    const std::uint32_t seqClass = sequence.isStream ? kUnknownClass : 64 * (1 + below(3));
    auto record = Record(kDebugRefTui | (sequence.seqNum | seqClass) << 24, 0, 0, "refused");
    std::thread([&] {
      EXPECT_FALSE(
          engine->HandleSequenceResponse(sequence.seqNum, 0, record.data(), static_cast<std::uint32_t>(record.size())));
    }).join();
    // Whoever else is answered now does not hear of it.
    for (const auto& [other, sequenceOfOther] : mOpen) {
      if (other != commandID) Deliver(handle, kDebugRefTui, sequenceOfOther.seqNum, "unheard");
    }
  }
};

TEST_P(LastStepTest, ARecordThatCannotBeHandledEndsTheStoryForAll) {
  const auto first = static_cast<std::uint32_t>(GetParam()) * 3;
  for (std::uint32_t seed = first; seed < first + 3 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    takeUp();
    tellStory(seed);
    for (int i = 0; i < 4; ++i) openOne(i % 2 == 0);
    refuse();
    mOpen.clear();
  }
  platform::sleepFor(100);
  check();
  leavesEngines = true;
}

INSTANTIATE_TEST_SUITE_P(Stories, LastStepTest, ::testing::Range(0, 4));

}  // namespace
}  // namespace kel::test
