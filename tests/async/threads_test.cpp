// SPDX-License-Identifier: MIT
// The threads of sequences: their making, their end, and the stop of them all, with every failure of each.
#include <future>
#include <thread>

#include "async/async_test.h"
#include "async/said.h"
#include "support/left_thread.h"
#include "support/platform_calls.h"
#include "support/process_resources.h"

namespace {
bool gInitFails = false;
}

extern "C" {

// Where calls of kel::AsyncListener::init() are sent by the linker. It has no way to fail, and the engine looks at its
// result all the same.
std::uint32_t __real__ZN3kel13AsyncListener4initEjPFjjjjPhjEPFjjPvjPS1_PjEPFbjjEPFvS1_jEjS4_S4_S4_j(
    kel::AsyncListener*, std::uint32_t, kel::ProcessSequenceDataFunc, kel::RetrieveNextBufferFunc,
    kel::FreeSequenceFunc, kel::SetResponseStatusFunc, std::uint32_t, kel::platform::Handle, kel::platform::Handle,
    kel::platform::Handle, std::uint32_t);
std::uint32_t __wrap__ZN3kel13AsyncListener4initEjPFjjjjPhjEPFjjPvjPS1_PjEPFbjjEPFvS1_jEjS4_S4_S4_j(
    kel::AsyncListener* listener, std::uint32_t engineHandle, kel::ProcessSequenceDataFunc processDataFunc,
    kel::RetrieveNextBufferFunc retrieveNextBufferFunc, kel::FreeSequenceFunc freeSequenceFunc,
    kel::SetResponseStatusFunc setResponseStatusFunc, std::uint32_t seqNum, kel::platform::Handle dataEvent,
    kel::platform::Handle stopWaitEvent, kel::platform::Handle generalStopEvent, std::uint32_t logToConsole);

std::uint32_t __wrap__ZN3kel13AsyncListener4initEjPFjjjjPhjEPFjjPvjPS1_PjEPFbjjEPFvS1_jEjS4_S4_S4_j(
    kel::AsyncListener* listener, std::uint32_t engineHandle, kel::ProcessSequenceDataFunc processDataFunc,
    kel::RetrieveNextBufferFunc retrieveNextBufferFunc, kel::FreeSequenceFunc freeSequenceFunc,
    kel::SetResponseStatusFunc setResponseStatusFunc, std::uint32_t seqNum, kel::platform::Handle dataEvent,
    kel::platform::Handle stopWaitEvent, kel::platform::Handle generalStopEvent, std::uint32_t logToConsole) {
  if (gInitFails) return kel::LISTENER_INIT_FAILED;
  return __real__ZN3kel13AsyncListener4initEjPFjjjjPhjEPFjjPvjPS1_PjEPFbjjEPFvS1_jEjS4_S4_S4_j(
      listener, engineHandle, processDataFunc, retrieveNextBufferFunc, freeSequenceFunc, setResponseStatusFunc, seqNum,
      dataEvent, stopWaitEvent, generalStopEvent, logToConsole);
}

}  // extern "C"

namespace kel::test {
namespace {

using ::testing::EndsWith;
using ::testing::IsEmpty;

constexpr std::uint32_t kNotOpen = 40;

/// A line of a thread's making or of its end that shows no number on the console, and one that does.
Transcript Problem(const char* function, std::uint32_t seqNum, const std::string& text) {
  return Said("error", function, seqNum, text + ". \n", text + " \n");
}
Transcript ProblemOf(const char* function, std::uint32_t seqNum, const std::string& text,
                     const std::string& consoleText) {
  return SaidOf("error", function, seqNum, text + ". \n", consoleText);
}

Transcript NotFreed(const char* function, std::uint32_t seqNum) {
  return ProblemOf(function, seqNum, "could not free sequence number", "could not free sequence number");
}

/// While one lives, no listener becomes ready.
class FailingInit {
 public:
  FailingInit() { gInitFails = true; }
  ~FailingInit() { gInitFails = false; }
  FailingInit(const FailingInit&) = delete;
  FailingInit& operator=(const FailingInit&) = delete;
};

class ThreadsTest : public AsyncTest {
 protected:
  ThreadsTest() { folder.writeSettings("LogToConsole=1\n"); }
  ~ThreadsTest() override {
    for (const platform::Handle event : {dataEvent, stopEvent}) platform::closeHandle(event);
  }

  /// Has an engine up, quietly.
  void SetUp() override {
    EngineSays([this] { startEngine(); });
  }
  void TearDown() override {
    engine.reset();
    if (!leavesEngines) EngineSays([this] { BrelFinalize(handle); });
  }
  std::uint32_t open() {
    std::uint32_t seqNum = 0;
    EngineSays([&] { seqNum = InvokeAsync(handle, kDebugRef, OnTask).seqNum; });
    return seqNum;
  }

  const platform::Handle dataEvent = platform::createEvent(false, false);
  const platform::Handle stopEvent = platform::createEvent(false, false);
};

// ---------------------------------------------------------------------------------------------------------------------
// ActivateAsyncThread and GenerateAsyncThread
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(ThreadsTest, ActivationMakesTheListenerReadyAndStartsNoThread) {
  EXPECT_TRUE(inside().listenerActive());
  EXPECT_EQ(EngineSays([this] { EXPECT_TRUE(inside().activate()); }),
            Transcript().info("ActivateAsyncThread", "OK init async listener \n"));
  EXPECT_EQ(inside().threads(), 0);
  EXPECT_TRUE(inside().listenerActive());
}

TEST_F(ThreadsTest, AListenerThatIsNotReadyIsNotActivated) {
  const FailingInit failing;
  EXPECT_EQ(EngineSays([this] { EXPECT_FALSE(inside().activate()); }),
            Transcript().error("ActivateAsyncThread", "problem init async listener \n"));
  EXPECT_FALSE(inside().listenerActive());
}

TEST_F(ThreadsTest, AnEngineDoesNotComeUpWithAListenerThatIsNotReady) {
  std::uint32_t number = kNoBrelHandle;
  const std::shared_ptr<BrelEngine> refused = AddBrelInst(&number);
  const FailingInit failing;
  engineLog.fresh();
  EngineSays([&] { EXPECT_EQ(refused->init(nullptr, false, nullptr), kStatusFailed); });
  EXPECT_THAT(engineLog.fresh(),
              EndsWith(EngineLog()
                           .info("init", "loaded TUIs \n")
                           .error("ActivateAsyncThread", "problem init async listener \n")
                           .error("init", "could not activate async thread \n")
                           .info("Finalize", "Start \n")
                           .info("ShutdownAsyncThread", "async listener not active - stop not required \n")
                           .info("Finalize", "End \n")
                           .text()));
  RemoveBrelInst(number);
}

TEST_F(ThreadsTest, AListenerThatIsNotReadyStartsNoThread) {
  const FailingInit failing;
  EXPECT_EQ(EngineSays([this] { EXPECT_FALSE(inside().generate(7, dataEvent, stopEvent, false)); }),
            Problem("GenerateAsyncThread", 7, "problem init async listener"));
  EXPECT_EQ(inside().threads(), 0);
}

TEST_F(ThreadsTest, AThreadThatCannotBeFiledIsTakenBack) {
  EXPECT_EQ(
      EngineSays([this] {
        {
          const HeldSequences held(inside());  // so that the thread's own lines come last
          EXPECT_FALSE(inside().generate(kNotOpen, dataEvent, stopEvent, false));
          EXPECT_EQ(inside().threads(), 0);
        }
        waitForThreads();
      }),
      ThreadStarted(kNotOpen) + InfoNotInserted(kNotOpen) +
          ProblemOf("GenerateAsyncThread", kNotOpen, "could not insert AsyncListenerInfo",
                    "could not insert AsyncListenerInfo to sequence number") +
          Said("info", "GenerateAsyncThread", kNotOpen, "stopped async listener. \n", "stopped async listener \n") +
          NotFreed("FreeSequence", kNotOpen));
  EXPECT_EQ(inside().threads(), 0);  // it had nothing to free, and so did not count itself off once more
}

TEST_F(ThreadsTest, AThreadThatCannotBeFiledNorStoppedIsLeft) {
  if (HandleValuesComeAgain()) GTEST_SKIP() << "a closed handle's value is the next object's on this system";
  platform::closeHandle(stopEvent);
  EXPECT_EQ(EngineSays([this] { EXPECT_FALSE(inside().generate(kNotOpen, dataEvent, stopEvent, false)); }),
            ThreadStarted(kNotOpen) + InfoNotInserted(kNotOpen) +
                ProblemOf("GenerateAsyncThread", kNotOpen, "could not insert AsyncListenerInfo",
                          "could not insert AsyncListenerInfo to sequence number") +
                Problem("GenerateAsyncThread", kNotOpen, "problem setting async listener's stop event"));
  EXPECT_EQ(inside().threads(), 1);
  leavesEngines = true;
}

TEST_F(ThreadsTest, AThreadThatCannotBeFiledNorClosedStaysCounted) {
  EXPECT_EQ(EngineSays([this] {
              {
                const HeldSequences held(inside());
                const FailingCall notClosed(PlatformCall::kCloseHandle);
                EXPECT_FALSE(inside().generate(kNotOpen, dataEvent, stopEvent, false));
              }
              waitForThreads();
            }),
            ThreadStarted(kNotOpen) + InfoNotInserted(kNotOpen) +
                ProblemOf("GenerateAsyncThread", kNotOpen, "could not insert AsyncListenerInfo",
                          "could not insert AsyncListenerInfo to sequence number") +
                Problem("GenerateAsyncThread", kNotOpen, "could not close asyncThreadHandle handle") +
                NotFreed("FreeSequence", kNotOpen));
  EXPECT_EQ(inside().threads(), 1);
  leavesEngines = true;
}

TEST_F(ThreadsTest, AThreadThatIsNotStartedIsNotCounted) {
  EXPECT_EQ(EngineSays([this] {
              const FailingCall noThread(PlatformCall::kCreateThread);
              EXPECT_FALSE(inside().generate(7, dataEvent, stopEvent, true));
            }),
            ListenerReady(7).printed("startListen (7) - Listener Thread creation failed.\n") +
                Problem("GenerateAsyncThread", 7, "problem starting async listener"));
  EXPECT_EQ(EngineSays([this] {
              const FailingCall noPriority(PlatformCall::kSetThreadPriority);
              EXPECT_FALSE(inside().generate(8, dataEvent, stopEvent, true));
            }),
            ListenerReady(8) +
                ThreadCreated(8).printed("startListen (8) - Listener Thread's priority change failed.\n") +
                Problem("GenerateAsyncThread", 8, "problem starting async listener"));
  EXPECT_EQ(inside().threads(), 0);
  EngineSays([this] {
    platform::setEvent(stopEvent);
    waitForThreads();
  });
}

// ---------------------------------------------------------------------------------------------------------------------
// DisposeAsyncThread
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(ThreadsTest, DisposalOfAFreedNumberIsASilentSuccess) {
  EXPECT_EQ(EngineSays([this] { EXPECT_TRUE(inside().dispose(kNotOpen)); }), Transcript());
  const std::uint32_t seqNum = open();
  EngineSays([&] {
    Deliver(handle, kDebugRefTui, seqNum, "answer");
    waitForThreads();
  });
  EXPECT_EQ(EngineSays([&] { EXPECT_TRUE(inside().dispose(seqNum)); }), Transcript());
}

TEST_F(ThreadsTest, DisposalStopsTheThreadWhichFreesTheSequence) {
  const auto handles = OpenHandles();
  const std::uint32_t seqNum = open();
  EXPECT_EQ(EngineSays([&] {
              {
                const HeldSequences held(inside());
                EXPECT_TRUE(inside().dispose(seqNum));
                EXPECT_EQ(inside().element(seqNum).asyncThreadHandle, nullptr);
                EXPECT_EQ(inside().element(seqNum).asyncListenerInstance, nullptr);
              }
              waitForThreads();
            }),
            Disposed(seqNum).freed(seqNum));
  EXPECT_FALSE(isOpen(seqNum));
  EXPECT_EQ(inside().threads(), 0);
  while (OpenHandles() > handles) std::this_thread::yield();
  EXPECT_THAT(gCalls.waitFor(0), IsEmpty());
}

TEST_F(ThreadsTest, AThreadMayFreeTheSequenceAheadOfTheEndOfItsDisposal) {
  const std::uint32_t seqNum = open();
  EXPECT_EQ(EngineSays([&] {
              const AfterSetEvent freed([this] { waitForThreads(); });
              EXPECT_FALSE(inside().dispose(seqNum));
            }),
            Retrieved(seqNum).freed(seqNum) + InfoNotInserted(seqNum) +
                ProblemOf("DisposeAsyncThread", seqNum, "could not erase AsyncListenerInfo",
                          "could not erase AsyncListenerInfo for sequence number"));
  EXPECT_EQ(inside().threads(), 0);
}

TEST_F(ThreadsTest, DisposalFailsWithoutTheTableOfSequences) {
  inside().closeSequencerMutex();
  EXPECT_EQ(EngineSays([this] { EXPECT_FALSE(inside().dispose(7)); }),
            ProblemOf("DisposeAsyncThread", 7, "could not retrieve stop event",
                      "could not retrieve stop event related to sequence number"));
}

TEST_F(ThreadsTest, DisposalFailsWithoutAStopEvent) {
  const std::uint32_t seqNum = open();
  sequence_element& element = inside().element(seqNum);
  const platform::Handle event = std::exchange(element.stopEvent, nullptr);
  EXPECT_EQ(EngineSays([&] { EXPECT_FALSE(inside().dispose(seqNum)); }),
            Retrieved(seqNum) + ProblemOf("DisposeAsyncThread", seqNum, "NULL stop event",
                                          "NULL stop event related to sequence number"));
  element.stopEvent = event;
}

TEST_F(ThreadsTest, DisposalFailsWithoutAThread) {
  const std::uint32_t seqNum = open();
  sequence_element& element = inside().element(seqNum);
  const platform::Handle thread = std::exchange(element.asyncThreadHandle, nullptr);
  EXPECT_EQ(EngineSays([&] { EXPECT_FALSE(inside().dispose(seqNum)); }),
            Retrieved(seqNum) + ProblemOf("DisposeAsyncThread", seqNum, "NULL asyncListenerInstance",
                                          "NULL asyncListenerInstance related to sequence number"));
  element.asyncThreadHandle = thread;
}

TEST_F(ThreadsTest, DisposalFailsWhenTheStopEventCannotBeSet) {
  if (HandleValuesComeAgain()) GTEST_SKIP() << "a closed handle's value is the next object's on this system";
  const std::uint32_t seqNum = open();
  platform::closeHandle(inside().element(seqNum).stopEvent);
  EXPECT_EQ(EngineSays([&] { EXPECT_FALSE(inside().dispose(seqNum)); }),
            Retrieved(seqNum) + Problem("DisposeAsyncThread", seqNum, "problem setting async listener's stop event"));
  leavesEngines = true;  // a sequence whose event will not close counts as not freed, and its thread as not gone
}

TEST_F(ThreadsTest, DisposalFailsWhenTheThreadCannotBeClosed) {
  const std::uint32_t seqNum = open();
  EXPECT_EQ(EngineSays([&] {
              {
                const HeldSequences held(inside());
                const FailingCall notClosed(PlatformCall::kCloseHandle);
                EXPECT_FALSE(inside().dispose(seqNum));
              }
              waitForThreads();
            }),
            (Retrieved(seqNum) + Problem("DisposeAsyncThread", seqNum, "could not close seqThreadHandle handle"))
                .freed(seqNum));
  EXPECT_FALSE(isOpen(seqNum));
}

// ---------------------------------------------------------------------------------------------------------------------
// FreeSequence and FreeSequenceElementOnly
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(ThreadsTest, FreeingASequenceCountsItsThreadOff) {
  const std::uint32_t first = open();
  const std::uint32_t second = open();
  ASSERT_EQ(inside().threads(), 2);
  EXPECT_EQ(EngineSays([&] { EXPECT_TRUE(engine->FreeSequence(first)); }), Transcript().freed(first));
  EXPECT_EQ(inside().threads(), 1);
  EXPECT_EQ(EngineSays([&] { EXPECT_TRUE(inside().freeElementOnly(second)); }), Transcript().freed(second));
  EXPECT_EQ(inside().threads(), 1);
  leavesEngines = true;  // with threads whose sequences are gone
}

TEST_F(ThreadsTest, FreeingWhatIsNotOpenChangesNothing) {
  EXPECT_EQ(EngineSays([this] { EXPECT_FALSE(engine->FreeSequence(kNotOpen)); }), NotFreed("FreeSequence", kNotOpen));
  EXPECT_EQ(EngineSays([this] { EXPECT_FALSE(inside().freeElementOnly(kNotOpen)); }),
            NotFreed("FreeSequenceElementOnly", kNotOpen));
  EXPECT_EQ(inside().threads(), 0);
}

// ---------------------------------------------------------------------------------------------------------------------
// ShutdownAsyncThread
// ---------------------------------------------------------------------------------------------------------------------

const Transcript& NotRequired() {
  static const Transcript said =
      Transcript().info("ShutdownAsyncThread", "async listener not active - stop not required \n");
  return said;
}
Transcript StopSet() {
  return Transcript().info("ShutdownAsyncThread",
                           "mGeneralStopEvent set. Waiting for all async listener threads to stop. \n");
}

TEST_F(ThreadsTest, WithNoThreadTheStopEventIsNotTouched) {
  platform::closeHandle(inside().generalStopEvent());  // to touch it would fail
  EXPECT_EQ(EngineSays([this] { EXPECT_TRUE(inside().shutdown()); }),
            Transcript().info("ShutdownAsyncThread", "all async listener threads already stopped \n"));
  EXPECT_FALSE(inside().listenerActive());
  EXPECT_EQ(EngineSays([this] { EXPECT_TRUE(inside().shutdown()); }), NotRequired());
  leavesEngines = true;
}

TEST_F(ThreadsTest, AGeneralStopEndsAllThreadsAndCallsNobody) {
  const std::uint32_t plain = open();
  EngineSays([this] { InvokeAsync(handle, kDebugRef, OnTask, OnStream); });
  const Transcript said = EngineSays([this] {
    const AfterSetEvent stopped([this] { waitForThreads(); });
    EXPECT_TRUE(inside().shutdown());
  });
  const Transcript rest =
      StopSet()
          .info("ShutdownAsyncThread", "All async listener threads stopped (mGeneralStopEvent Reset). \n")
          .info("ShutdownAsyncThread", "stopped all async listener threads \n");
  const Transcript inOrder = Transcript().freed(plain).freed(plain + 1) + rest;
  const Transcript otherwise = Transcript().freed(plain + 1).freed(plain) + rest;
  EXPECT_THAT(said, ::testing::AnyOf(inOrder, otherwise));
  EXPECT_EQ(inside().threads(), 0);
  EXPECT_FALSE(isOpen(plain));
  EXPECT_EQ(platform::waitForOne(inside().generalStopEvent(), 0), platform::kWaitTimeout);
  EXPECT_THAT(gCalls.waitFor(0), IsEmpty());
  EXPECT_EQ(EngineSays([this] { EXPECT_TRUE(inside().shutdown()); }), NotRequired());
}

// It never looks at how many threads are left ahead of its first sleep.
TEST_F(ThreadsTest, AGeneralStopSleepsOnceThoughAllThreadsHaveEnded) {
  open();
  EngineSays([this] {
    const AfterSetEvent stopped([this] { waitForThreads(); });
    const NotedTimes times;
    EXPECT_TRUE(inside().shutdown());
    EXPECT_THAT(times.sleeps, ::testing::ElementsAre(100));
  });
}

TEST_F(ThreadsTest, AGeneralStopLosesWhatIsQueued) {
  const std::uint32_t seqNum = open();
  EngineSays([&] {
    {
      const HeldSequences held(inside());
      Deliver(handle, kDebugRefTui, seqNum, "answer");
      platform::setEvent(inside().generalStopEvent());
      // The thread looks for a stop ahead of each buffer; this one it may have taken already.
    }
    EXPECT_TRUE(inside().shutdown());
  });
  EXPECT_LE(gCalls.waitFor(0).size(), 1u);
  EXPECT_FALSE(isOpen(seqNum));
}

TEST_F(ThreadsTest, AGeneralStopThatCannotBeSetLeavesTheListenerActive) {
  open();
  platform::closeHandle(inside().generalStopEvent());
  EXPECT_EQ(EngineSays([this] { EXPECT_FALSE(inside().shutdown()); }),
            Transcript().error("ShutdownAsyncThread", "problem setting mGeneralStopEvent \n"));
  EXPECT_TRUE(inside().listenerActive());
  leavesEngines = true;
}

TEST_F(ThreadsTest, AGeneralStopThatCannotBeTakenBackIsTold) {
  const std::uint32_t seqNum = open();
  EXPECT_EQ(
      EngineSays([this] {
        const AfterSetEvent closed([this] {
          waitForThreads();
          platform::closeHandle(inside().generalStopEvent());
        });
        EXPECT_FALSE(inside().shutdown());
      }),
      (Transcript().freed(seqNum) + StopSet()).error("ShutdownAsyncThread", "problem REsetting mGeneralStopEvent \n"));
  EXPECT_TRUE(inside().listenerActive());
  leavesEngines = true;
}

class LostThreadTest : public ThreadsTest {
 protected:
  /// A thread that has ended without counting itself off keeps a general stop waiting for good.
  void expectNoEndOfAGeneralStop() {
    static std::promise<void> stopped;
    LeaveToItself([kept = engine] {
      EngineInside(*kept).shutdown();
      stopped.set_value();
    });
    EXPECT_EQ(stopped.get_future().wait_for(std::chrono::milliseconds(350)), std::future_status::timeout);
    EXPECT_EQ(inside().threads(), 1);
    EXPECT_EQ(platform::waitForOne(inside().generalStopEvent(), 0), platform::kWaitObject);
    leavesEngines = true;
  }
  /// What is printed while an action brings the only thread to its end.
  template <class Action>
  std::string printedToTheEnd(Action action) {
    ::testing::internal::CaptureStdout();
    action();
    while (engine.use_count() > usersWithoutThreads) std::this_thread::yield();
    return ::testing::internal::GetCapturedStdout();
  }
  static constexpr std::uint8_t dataOfAnAnswer[] = {1, 2, 3};
  long usersWithoutThreads = 0;
};

TEST_F(LostThreadTest, OfASequenceThatIsGone) {
  const std::uint32_t seqNum = open();
  // Of such a sequence the thread can free nothing.
  EngineSays([&] { EXPECT_TRUE(inside().freeElementOnly(seqNum)); });
  expectNoEndOfAGeneralStop();
}

TEST_F(LostThreadTest, WhoseWaitFailed) {
  usersWithoutThreads = engine.use_count();
  sequence_snapshot unused;
  std::uint32_t seqNum = 0;
  EXPECT_THAT(
      printedToTheEnd([&] {
        ASSERT_EQ(inside().sequencer().AssignSequence(BREL_INVOKE_TASK, 1, &seqNum, kDebugRefTui, &unused.syncDataEvent,
                                                      &unused.aSyncDataEvent, &unused.stopEvent, nullptr, nullptr,
                                                      &unused.streamSeqNum, &unused.streamEndSeqNum, true, false),
                  SEQ_ASSIGN_OK);
        // No event at all, since the value of a closed one may be another object's by the time of the wait.
        EXPECT_TRUE(inside().generate(seqNum, nullptr, unused.stopEvent, false));
      }),
      ::testing::HasSubstr(" - exiting with code 3. Handle= "));
  EXPECT_TRUE(isOpen(seqNum));
  expectNoEndOfAGeneralStop();
}

TEST_F(LostThreadTest, ThatFoundItsEngineGone) {
  start();  // so that the table of engines lives on
  const std::uint32_t seqNum = open();
  usersWithoutThreads = 1;
  EXPECT_THAT(printedToTheEnd([&] {
                RemoveBrelInst(handle);
                sequence_snapshot unused;
                EXPECT_EQ(inside().sequencer().InsertAsyncDataBySeqNum(
                              seqNum, dataOfAnAnswer, sizeof dataOfAnAnswer, &unused.syncDataEvent,
                              &unused.aSyncDataEvent, &unused.asyncListenerInstance, &unused.isAsync, &unused.isStream),
                          SEQ_INSERT_OK);
                platform::setEvent(unused.aSyncDataEvent);
              }),
              ::testing::HasSubstr(" - exiting with code 4 - mProcessDataFunc() returned false. Handle= "));
  EXPECT_TRUE(isOpen(seqNum));
  EXPECT_THAT(gCalls.waitFor(0), IsEmpty());
  expectNoEndOfAGeneralStop();
}

}  // namespace
}  // namespace kel::test
