// SPDX-License-Identifier: MIT
// Whole stories on all outlets: what the engine's log, the listener's log and the console have of a task, a time-out, a
// stream, a stop and a refusal.
#include "async/async_test.h"
#include "async/said.h"
#include "support/platform_calls.h"

namespace kel::test {
namespace {

constexpr const char* kAsync = "IssueAsyncCommandBase";

/// The listener's own log of a thread, which the console repeats line by line.
class ThreadLog {
 public:
  explicit ThreadLog(std::uint32_t seqNum) : mNumber("(" + std::to_string(seqNum) + ") - ") {}

  ThreadLog& info(const std::string& text) { return add("info", text); }
  ThreadLog& error(const std::string& text) { return add("error", text); }

  /// A wait ended by data, of which so many buffers are taken and handed on.
  ThreadLog& data(std::uint32_t buffers, bool untilEmpty) {
    info("data event received. queueRes = 0 \n");
    for (std::uint32_t i = 0; i < buffers; ++i) {
      info("data event received, extracting from queue. \n");
      info("data event received, processing data. \n");
      info("data event received, data processing finished. \n");
      info("Deallocated memory for asynchBuffer number " + std::to_string(++mBuffers) + ". \n");
    }
    if (!untilEmpty) return *this;
    info("data event received, extracting from queue. \n");
    return info("data event received, queue empty. \n");
  }
  ThreadLog& freed() { return info("freeing sequence data. \n").info("sequence data freed. \n"); }
  /// A stop that is seen behind a buffer.
  ThreadLog& stopped() {
    return info("stop wait event received (internal loop) - exiting listener thread. \n").freed();
  }

  const std::string& log() const { return mLog; }
  const std::string& console() const { return mConsole; }

 private:
  ThreadLog& add(const std::string& level, const std::string& text) {
    mLog += LogEntry(level, "AsyncListener", "listenerThreadFunc", mNumber + text);
    mConsole += "listenerThreadFunc - " + mNumber + text;
    return *this;
  }

  const std::string mNumber;
  std::uint32_t mBuffers = 0;
  std::string mLog;
  std::string mConsole;
};

class LogTest : public AsyncTest {
 protected:
  void SetUp() override { bringUp("LogToConsole=1\n"); }
  void TearDown() override {
    engine.reset();
    EngineSays([this] { BrelFinalize(handle); });
  }
  void bringUp(const std::string& settings) {
    EngineSays([&] {
      engine.reset();
      if (handle != kNoBrelHandle) BrelFinalize(handle);
      folder.writeSettings(settings);
      SluiceHubSim_ClearRules();
      startEngine();
    });
    // The first thread of all names the listener's file; with that done, each line of the next ones is in it.
    EngineSays([this] {
      const std::uint32_t seqNum = InvokeAsync(handle, kDebugRef, OnTask).seqNum;
      Deliver(handle, kDebugRefTui, seqNum, "first");
      waitForThreads();
    });
    mThreadLog.fresh();
  }

  /// Hands the engine a record, with the sequence's thread kept from it until that is done; then waits for the thread's
  /// end, or until it waits again itself.
  void deliver(std::uint32_t sequenceByte, bool ends) {
    const std::string former = LogText("Brel_Async_Listener.logs");
    {
      const HeldSequences held(inside());
      EXPECT_TRUE(Deliver(handle, kDebugRefTui, sequenceByte, "answer"));
    }
    if (ends) waitForThreads();
    while (!ends && LogText("Brel_Async_Listener.logs").find("queue empty. \n", former.size()) == std::string::npos) {
      std::this_thread::yield();
    }
  }
  /// What the threads told since the last call, without that of their start.
  std::string threadLog() {
    const std::string all = mThreadLog.fresh();
    const std::size_t first = all.find("listenerThreadFunc");
    return first != std::string::npos ? all.substr(all.rfind("\n[", first)) : std::string();
  }
  std::string startLog(std::uint32_t seqNum) {
    const std::string number = " (" + std::to_string(seqNum) + ") - Listener Thread";
    return LogEntry("info", "AsyncListener", "startListen", number + " created. Handle=#\n") +
           LogEntry("info", "AsyncListener", "startListen", number + "'s priority hightend. Handle=#\n");
  }
  /// What a request says with the device taking it and leaving the answer to the test.
  Transcript asked(std::uint32_t seqNum, const std::string& what = "IssueAsyncCommand") {
    return Looked(kDebugRefTui) + Opened(kAsync, seqNum) + Sent(kDebugRefTui, seqNum, what);
  }
  static Transcript fired(std::uint32_t seqNum, const std::string& callback) {
    return Firing(seqNum, callback, "BREL_INVOKE_TASK");
  }

 private:
  LogFile mThreadLog{"Brel_Async_Listener.logs"};
};

// Number 0 went to the task that named the file.

TEST_F(LogTest, ATask) {
  EXPECT_EQ(EngineSays([this] { InvokeAsync(handle, kDebugRef, OnTask); }), asked(1));
  EXPECT_EQ(EngineSays([this] { deliver(1, true); }),
            (Received(1, "ACK") + Taken(1) + Begun(1) + HandlingAck(1) + fired(1, "invokeAsyncTaskCallback") +
             CheckingEnd(1) + Ended(1) + Handled(1))
                .freed(1));
  EXPECT_EQ(threadLog(), ThreadLog(1).data(1, false).stopped().log());
}

TEST_F(LogTest, TheStartOfAThreadInItsOwnLog) {
  const std::string former = LogText("Brel_Async_Listener.logs");
  EngineSays([this] { InvokeAsync(handle, kDebugRef, OnTask, OnStream); });
  static const std::regex hexadecimal("Handle=0x[0-9a-f]+");
  EXPECT_EQ(std::regex_replace(LogText("Brel_Async_Listener.logs"), hexadecimal, "Handle=#"),
            std::regex_replace(former, hexadecimal, "Handle=#") + startLog(1));
}

TEST_F(LogTest, TheConsoleRepeatsTheThreadsLog) {
  ::testing::internal::CaptureStdout();
  InvokeAsync(handle, kDebugRef, OnTask);
  deliver(1, true);
  std::istringstream printed(::testing::internal::GetCapturedStdout());
  std::string lines, line;
  while (std::getline(printed, line)) {
    if (line.starts_with("listenerThreadFunc - ")) lines += line + "\n";
  }
  EXPECT_EQ(lines, ThreadLog(1).data(1, false).stopped().console());
}

TEST_F(LogTest, ATimeOut) {
  bringUp("LogToConsole=1\nRxWaitTimeout=300\n");
  EXPECT_EQ(EngineSays([this] {
              {
                const platform::InSection held(inside().initLock());
                InvokeAsync(handle, kDebugRef, OnTask);
              }
              waitForThreads();
            }),
            (asked(1) + GettingCallbacks(1) + Retrieved(1) +
             Handling(1, "error code signalled. \n", "error code signalled for sequence number", "error") +
             FiringCallback(1) + HandlingAck(1) + fired(1, "invokeAsyncTaskCallback") + CheckingEnd(1) + Ended(1) +
             Handled(1))
                .freed(1));
  static const std::regex handles("Handle= 0x[0-9a-f]+");
  EXPECT_EQ(std::regex_replace(threadLog(), handles, "Handle= #"),
            ThreadLog(1)
                .error("WAIT_TIMEOUT on Multiple wait. Handle= # \n")
                .info("processing with errorCode WAIT_TIMEOUT. \n")
                .info("processing with errorCode WAIT_TIMEOUT finished. \n")
                .freed()
                .info("exiting with code 0 - End of listenerThreadFunc(). Handle= # \n")
                .log());
}

TEST_F(LogTest, AStream) {
  EXPECT_EQ(EngineSays([this] { InvokeAsync(handle, kDebugRef, OnTask, OnStream); }),
            asked(1, "STREAM IssueAsyncCommand"));
  EXPECT_EQ(EngineSays([this] { deliver(1, false); }), Received(1, "ACK") + Taken(1) + Begun(1) + HandlingAck(1) +
                                                           fired(1, "invokeAsyncTaskCallback") + CheckingEnd(1) +
                                                           AckInserted(1) + Handled(1) + FoundEmpty(1));
  EXPECT_EQ(EngineSays([this] { deliver(1 | kStreamClass, false); }),
            Received(1, "Stream_MESSAGE") + Taken(1) + Begun(1) + HandlingStream(1, false) +
                fired(1, "invokeStreamCallback") + CheckingEnd(1) + Handled(1) + FoundEmpty(1));
  EXPECT_EQ(EngineSays([this] { deliver(1 | kStreamEndClass, true); }),
            (Received(1, "Stream_END") + Taken(1) + Begun(1) + HandlingStream(1, true) +
             fired(1, "invokeStreamCallback") + CheckingEnd(1) + Retrieved(1) + Ended(1) + Handled(1))
                .freed(1));
  EXPECT_EQ(threadLog(), ThreadLog(1).data(1, true).data(1, true).data(1, false).stopped().log());
}

TEST_F(LogTest, AStreamOfACommand) {
  EXPECT_EQ(EngineSays([this] { IssueAsync(handle, kDebugRefTui, OnCommand, OnCommandStream); }),
            Opened(kAsync, 1) + Sent(kDebugRefTui, 1, "STREAM IssueAsyncCommand"));
  EXPECT_EQ(EngineSays([this] { deliver(1 | kStreamEndClass, false); }),
            Received(1, "Stream_END") + Taken(1) + Begun(1) + HandlingStream(1, true) +
                Firing(1, "issueStreamCallback", "BREL_ISSUE_COMMAND") + CheckingEnd(1) + Retrieved(1) + Handled(1) +
                FoundEmpty(1));
}

TEST_F(LogTest, AStreamWithoutItsCallbacks) {
  EngineSays([this] { InvokeAsync(handle, kDebugRef, nullptr, OnStream); });
  inside().element(1).streamCallbackFunc = nullptr;
  EXPECT_EQ(EngineSays([this] { deliver(1, false); }),
            Received(1, "ACK") + Taken(1) + Begun(1) + HandlingAck(1) +
                Handling(1, "NULL seqCallbackFunc. \n", "NULL seqCallbackFunc for sequence number", "warning") +
                CheckingEnd(1) + AckInserted(1) + Handled(1) + FoundEmpty(1));
  EXPECT_EQ(EngineSays([this] { deliver(1 | kStreamClass, false); }),
            Received(1, "Stream_MESSAGE") + Taken(1) + Begun(1) + HandlingStream(1, false) +
                Handling(1, "NULL streamCallbackFunc. \n", "NULL streamCallbackFunc for sequence number", "warning") +
                CheckingEnd(1) + Handled(1) + FoundEmpty(1));
}

TEST_F(LogTest, AStreamThatAWaitingClientOpens) {
  SluiceHubSim_ClearRules();
  AddRule(RuleFor(0, SLUICEHUBSIM_BEFORE_REPLY));
  EXPECT_EQ(EngineSays([this] { Invoke(handle, kDebugRef, "ask", 3, 0, 1, OnStream); }),
            Looked(kDebugRefTui) + Opened("IssueCommandBase", 1) +
                Transcript()
                    .sentAndAnswered("IssueCommandBase", 1)
                    .waited("info", "IssueCommandBase", "dataEvent was signaled. \n")
                    .retrieved(1) +
                AckInserted(1).info("IssueCommandBase", "response received from Dorv \n"));
  EXPECT_EQ(EngineSays([this] { deliver(1 | kStreamEndClass, true); }),
            (Received(1, "Stream_END") + Taken(1) + Begun(1) + HandlingStream(1, true) +
             fired(1, "invokeStreamCallback") + CheckingEnd(1) + Retrieved(1) + Ended(1) + Handled(1))
                .freed(1));
  EXPECT_EQ(threadLog(), ThreadLog(1).data(1, false).stopped().log());
}

TEST_F(LogTest, ATaskThatWantsNoAnswer) {
  EXPECT_EQ(EngineSays([this] {
              std::uint32_t seqNum = 4711;
              BrelInvokeAsyncTask(handle, kDebugRef, 1, nullptr, 0, 0, 0, &seqNum, OnTask, nullptr);
            }),
            Looked(kDebugRefTui) + Sent(kDebugRefTui, 4711));
}

TEST_F(LogTest, AGeneralStop) {
  EngineSays([this] { InvokeAsync(handle, kDebugRef, OnTask); });
  EXPECT_EQ(
      EngineSays([this] {
        const AfterSetEvent stopped([this] { waitForThreads(); });
        inside().shutdown();
      }),
      Transcript()
          .freed(1)
          .info("ShutdownAsyncThread", "mGeneralStopEvent set. Waiting for all async listener threads to stop. \n")
          .info("ShutdownAsyncThread", "All async listener threads stopped (mGeneralStopEvent Reset). \n")
          .info("ShutdownAsyncThread", "stopped all async listener threads \n"));
  EXPECT_EQ(
      threadLog(),
      ThreadLog(1).info("general stop wait event received (external loop) - exiting listener thread \n").freed().log());
}

// ---------------------------------------------------------------------------------------------------------------------
// Refusals
// ---------------------------------------------------------------------------------------------------------------------

TEST_F(LogTest, AnUnknownName) {
  EXPECT_EQ(EngineSays([this] { InvokeAsync(handle, "NO_SUCH_TASK", OnTask); }),
            Transcript().error("InvokeAsyncTask", "could not find TUI \n"));
}

TEST_F(LogTest, NoNumberLeft) {
  EngineSays([this] {
    for (std::uint32_t i = 0; i < kSequenceNumbers; ++i) InvokeAsync(handle, kDebugRef, OnTask);
  });
  EXPECT_EQ(EngineSays([this] { InvokeAsync(handle, kDebugRef, OnTask); }),
            Looked(kDebugRefTui).error(kAsync, "could not assign sequence number \n"));
}

TEST_F(LogTest, NoThread) {
  EXPECT_EQ(EngineSays([this] {
              const FailingCall noThread(PlatformCall::kCreateThread);
              InvokeAsync(handle, kDebugRef, OnTask);
            }),
            Looked(kDebugRefTui).assigned(1).info(kAsync, "assigned sequence number 1 \n") +
                ListenerReady(1).printed("startListen (1) - Listener Thread creation failed.\n") +
                Said("error", "GenerateAsyncThread", 1, "problem starting async listener. \n",
                     "problem starting async listener \n")
                    .error(kAsync, "could not generate async thread for sequence number 1 \n")
                    .freed(1));
}

TEST_F(LogTest, NoThreadForAStreamThatAClientWaitsFor) {
  EXPECT_EQ(EngineSays([this] {
              const FailingCall noThread(PlatformCall::kCreateThread);
              Invoke(handle, kDebugRef, nullptr, 0, 0, 1, OnStream);
            }),
            Looked(kDebugRefTui).assigned(1).info("IssueCommandBase", "assigned sequence number 1 \n") +
                ListenerReady(1).printed("startListen (1) - Listener Thread creation failed.\n") +
                Said("error", "GenerateAsyncThread", 1, "problem starting async listener. \n",
                     "problem starting async listener \n")
                    .error("IssueCommandBase", "could not generate stream thread for stream sequence number 65 \n")
                    .freed(1));
}

TEST_F(LogTest, ARequestThatTheDeviceRefuses) {
  SluiceHubSim_ClearRules();
  SluiceHubSimRule refuse = RuleFor(0);
  refuse.L4status = 1;
  AddRule(refuse);
  EXPECT_EQ(EngineSays([this] {
              {
                const HeldSequences held(inside());
                InvokeAsync(handle, kDebugRef, OnTask);
              }
              waitForThreads();
            }),
            (Looked(kDebugRefTui) + Opened(kAsync, 1) + Transcript().refused(kAsync) + Disposed(1)).freed(1));
  EXPECT_EQ(threadLog(),
            ThreadLog(1).info("stop wait event received (external loop) - exiting listener thread \n").freed().log());
}

TEST_F(LogTest, ARequestWithoutASequenceThatTheDeviceRefuses) {
  SluiceHubSim_ClearRules();
  SluiceHubSimRule refuse = RuleFor(0);
  refuse.L4status = 1;
  AddRule(refuse);
  EXPECT_EQ(EngineSays([this] {
              std::uint32_t seqNum = 17;
              BrelInvokeAsyncTask(handle, kDebugRef, 1, nullptr, 0, 0, 0, &seqNum, OnTask, nullptr);
            }),
            Looked(kDebugRefTui) + Transcript().refused(kAsync) +
                SaidOf("error", "FreeSequenceElementOnly", 17, "could not free sequence number. \n",
                       "could not free sequence number"));
}

TEST_F(LogTest, ARequestWithoutAnAdapterRow) {
  const std::uint32_t row = BrelGetDorvHandle(handle);
  SetDorvHandle(handle, kNoDorvHandle);
  EXPECT_EQ(EngineSays([this] {
              {
                const HeldSequences held(inside());
                InvokeAsync(handle, kDebugRef, OnTask);
              }
              waitForThreads();
            }),
            (Looked(kDebugRefTui) + Opened(kAsync, 1) + Disposed(1)).freed(1));
  SetDorvHandle(handle, row);
}

}  // namespace
}  // namespace kel::test
