// SPDX-License-Identifier: MIT
// What a connection writes: every log file and the console, whole and in order.
#include <regex>

#include "interface/client.h"
#include "support/log_file.h"

namespace kel::test {
namespace {

using namespace std::string_literals;

constexpr const char* kAllLogs[] = {"Brel.logs",
                                    "DorvL5.logs",
                                    "Brel_Tasks_Sequencer.logs",
                                    "Brel_Broadcast_Listener.logs",
                                    "Brel_Alerts_Listener.logs",
                                    "Brel_Async_Listener.logs"};

/// Adds entries of one module to an expected log.
class Log {
 public:
  explicit Log(std::string module) : mModule(std::move(module)) {}
  Log& info(const std::string& function, const std::string& text) { return add("info", function, text); }
  Log& error(const std::string& function, const std::string& text) { return add("error", function, text); }
  operator const std::string&() const { return mText; }

 private:
  Log& add(const std::string& level, const std::string& function, const std::string& text) {
    mText += LogEntry(level, mModule, function, text);
    return *this;
  }

  const std::string mModule;
  std::string mText;
};

/// Everything that something writes.
struct Written {
  std::string engine, adapter, sequencer, broadcastListener, console;
};

void Note(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
  std::free(name);
  std::free(payload);
}

class LogTest : public ClientTest {
 protected:
  LogTest() {
    registry.switchLogsOn();
    AnswerBeforeSendReturns();
  }

  /// A connection whose making is left out of what is read next.
  std::uint64_t connectUnheard(KEL_BroadcastCallback callback = nullptr) {
    std::uint64_t conn = 0;
    writtenBy([&] { conn = connect(callback); });
    return conn;
  }

  template <class Action>
  Written writtenBy(Action action) {
    ::testing::internal::CaptureStdout();
    action();
    std::string console = ::testing::internal::GetCapturedStdout();
    console = std::regex_replace(console, std::regex("Handle=[0-9A-F]+\n"), "Handle=X\n");
    return {mEngine.fresh(), mAdapter.fresh(), mSequencer.fresh(), mBroadcastListener.fresh(), console};
  }

 private:
  LogFile mEngine{kAllLogs[0]};
  LogFile mAdapter{kAllLogs[1]};
  LogFile mSequencer{kAllLogs[2]};
  LogFile mBroadcastListener{kAllLogs[3]};
};

constexpr const char* kPrintAndBeQuick = "LogToConsole=1\nRxWaitTimeout=20\n";

/// The console's form of the engine's log: behind the function's name, without levels.
std::string SettingsOnConsole() {
  return "LoadBrelIniSettings - LogToConsole = 1 \n"
         "LoadBrelIniSettings - RxWaitTimeout = 20 \n"
         "LoadBrelIniSettings - TUIsFilePath = KEL_ALLTASKS.csv \n"
         "LoadBrelIniSettings - UpperDriverIpAddress = 127.0.0.1 \n"
         "LoadBrelIniSettings - UpperDriverPortNumber = 1234 \n"
         "LoadBrelIniSettings - RequestStructDumpFilename =  \n"
         "LoadBrelIniSettings - RequestStructPayloadDumpFilename =  \n"
         "LoadBrelIniSettings - ResponseStructDumpFilename =  \n"
         "LoadBrelIniSettings - ResponseStructPayloadDumpFilename =  \n";
}

TEST_F(LogTest, OfAConnect) {
  folder.writeSettings(kPrintAndBeQuick);
  const Written written = writtenBy([] { connect(&Note); });

  EXPECT_EQ(written.engine,
            std::string(Log("BrelEngine")
                            .info("init", "Start \n")
                            .info("LoadBrelIniSettings", "LogToConsole = 1 \n")
                            .info("LoadBrelIniSettings", "RxWaitTimeout = 20 \n")
                            .info("LoadBrelIniSettings", "TUIsFilePath = KEL_ALLTASKS.csv \n")
                            .info("LoadBrelIniSettings", "UpperDriverIpAddress = 127.0.0.1 \n")
                            .info("LoadBrelIniSettings", "UpperDriverPortNumber = 1234 \n")
                            .info("LoadBrelIniSettings", "RequestStructDumpFilename =  \n")
                            .info("LoadBrelIniSettings", "RequestStructPayloadDumpFilename =  \n")
                            .info("LoadBrelIniSettings", "ResponseStructDumpFilename =  \n")
                            .info("LoadBrelIniSettings", "ResponseStructPayloadDumpFilename =  \n")
                            .info("init", "Brel.ini file found. Replacing defaults. \n")
                            .info("ReadTUIs", "The KEL_ALLTASKS.csv TUIs file could NOT be opened. Using defaults. \n")
                            .info("init", "loaded TUIs \n")
                            .info("ActivateBroadcastThread", "OK init broadcast listener \n")
                            .info("ActivateBroadcastThread", "started broadcast listener \n")
                            .info("ActivateAsyncThread", "OK init async listener \n")
                            .info("init", "Dorv.dll loaded \n")
                            .info("init", "Dorv.dll initialized \n")
                            .info("init", "Dorv.dll connected to Upper Driver \n")
                            .info("init", "End \n")));
  EXPECT_EQ(written.adapter,
            std::string(Log("DorvL5")
                            .info("Dorv_Init", "Loaded SluiceHub.dll, getting dispatcher functions. \n")
                            .info("Dorv_Init", "Got dispatcher functions. \n")
                            .info("Dorv_Init", "(0) - Success. \n")
                            .info("Dorv_Connect", "(0) - Start. \n")
                            .info("Dorv_Connect", "(0) - L5 connected. \n")
                            .info("Dorv_Connect", "(0) - SocketID = \0 acquired. \n"s)
                            .info("Dorv_Connect", "(0) - Success. \n")));
  EXPECT_EQ(written.sequencer, "");
  EXPECT_EQ(written.broadcastListener, std::string(Log("BroadcastListener").info("startListen", "\n")));
  EXPECT_EQ(written.console, SettingsOnConsole() +
                                 "init - Brel.ini file found. Replacing defaults. \n"
                                 "ReadTUIs - The KEL_ALLTASKS.csv TUIs file could NOT be opened. Using defaults. \n"
                                 "init - loaded TUIs \n"
                                 "ActivateBroadcastThread - OK init broadcast listener \n"
                                 "Listener Thread created. Handle=X\n"
                                 "ActivateBroadcastThread - started broadcast listener \n"
                                 "ActivateAsyncThread - OK init async listener \n"
                                 "init - Dorv.dll loaded \n"
                                 "init - Dorv.dll initialized \n"
                                 "BBBBBBBBB\n"
                                 "BrelInit - current handle = 0, DorvHandle = 0\n"
                                 "BBBBBBBBB\n"
                                 "init - Dorv.dll connected to Upper Driver \n"
                                 "init - End \n");
}

TEST_F(LogTest, OfAConnectWithoutSettingsAndCallback) {
  const Written written = writtenBy([] { connect(); });
  EXPECT_EQ(written.engine,
            std::string(Log("BrelEngine")
                            .info("init", "Start \n")
                            .info("init", "No Brel.ini file was found. Using defaults. \n")
                            .info("ReadTUIs", "The KEL_ALLTASKS.csv TUIs file could NOT be opened. Using defaults. \n")
                            .info("init", "loaded TUIs \n")
                            .info("ActivateAsyncThread", "OK init async listener \n")
                            .info("init", "Dorv.dll loaded \n")
                            .info("init", "Dorv.dll initialized \n")
                            .info("init", "Dorv.dll connected to Upper Driver \n")
                            .info("init", "End \n")));
  EXPECT_EQ(written.broadcastListener, "");
  EXPECT_EQ(written.console, "");
}

TEST_F(LogTest, OfATask) {
  folder.writeSettings(kPrintAndBeQuick);
  const std::uint64_t conn = connectUnheard();
  const Written written = writtenBy([&] { SendValues(conn, {1, 2, 3}); });

  EXPECT_EQ(written.engine,
            std::string(Log("BrelEngine")
                            .info("IssueCommandBase", "assigned sequence number 0 \n")
                            .info("SendToDorv", "Send START \n")
                            .info("BrelEngineCallback", "callback - callback received \n")
                            .info("BrelEngineCallback", "Got callback with ACK for sequence number 0 \n")
                            .info("BrelEngineCallback", "callback - Sequence buffer copied & event set \n")
                            .info("SendToDorv", "Send END \n")
                            .info("IssueCommandBase", "Dorv_Send SUCCESS - command sent \n")
                            .info("IssueCommandBase", "- WaitForRx - dataEvent was signaled. \n")
                            .info("IssueCommandBase", "response received from Dorv \n")));
  EXPECT_EQ(
      written.adapter,
      std::string(Log("DorvL5")
                      .info("Dorv_Send", "(0) - Start. \n")
                      .info("Dorv_Send", "(0) - Sending KeL Request over L5 to L4msgProxy. L5sndBufferSize = 40 \n")
                      .info("Dorv_MessagesHandler", "Start. \n")
                      .info("Dorv_MessagesHandler", "(0) - Got KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION. \n")
                      .info("Dorv_MessagesHandler", "(0) - Received from socket 40 bytes. Calling Brel callback... \n")
                      .info("Dorv_MessagesHandler", "(0) - Finish. \n")
                      .info("Dorv_Send", "(0) - SendReceiveMessage returned. L5Status: 0, L5rcvBuffer size: 24\n")
                      .info("Dorv_Send", "(0) - L4Status: 0\n")));
  EXPECT_EQ(written.sequencer, std::string(Log("BrelTasksSequencer")
                                               .info("AssignSequence", "assigned sequence number 0 \n")
                                               .info("RetrieveBySeqNum", "retrieved data for sequence number 0 \n")
                                               .info("InsertDataBySeqNum", "inserted data for sequence number 0 \n")
                                               .info("RetrieveBySeqNum", "retrieved data for sequence number 0 \n")
                                               .info("FreeSequence", "freed sequence number 0 \n")));
  EXPECT_EQ(written.console,
            "\nTUI = 229952\n"
            "AssignSequence - assigned sequence number 0 \n"
            "IssueCommandBase - assigned sequence number 0 \n"
            "AAAAAAAAA\n"
            "SendToDorv - Send START - current handle = 0, DorvHandle = 0\n"
            "AAAAAAAAA\n"
            "BrelEngineCallback - callback - callback received \n"
            "BrelEngineCallback - Got callback with ACK for sequence number 0 \n"
            "RetrieveBySeqNum - retrieved data for sequence number 0 \n"
            "InsertDataBySeqNum - inserted data for sequence number 0 \n"
            "BrelEngineCallback - callback - Sequence buffer copied & event set \n"
            "AAAAAAAAA\n"
            "SendToDorv - Send END - current handle = 0, DorvHandle = 0\n"
            "AAAAAAAAA\n"
            "IssueCommandBase - Dorv_Send SUCCESS - command sent \n"
            "IssueCommandBase - WaitForRx - dataEvent was signaled. \n"
            "RetrieveBySeqNum - retrieved data for sequence number 0 \n"
            "FreeSequence - freed sequence number 0 \n"
            "IssueCommandBase - response received from Dorv \n");
}

TEST_F(LogTest, OfATaskThatWantsNoResponse) {
  folder.writeSettings(kPrintAndBeQuick);
  const std::uint64_t conn = connectUnheard();
  const Written written = writtenBy([&] {
    void* payload = nullptr;
    std::uint32_t size = 0;
    KEL_SendReceiveKELEx(conn, kDebugVal, 1, nullptr, 0, 0, 0, nullptr, &payload, &size, nullptr, nullptr);
  });
  EXPECT_EQ(written.engine, std::string(Log("BrelEngine")
                                            .info("SendToDorv", "Send START \n")
                                            .info("SendToDorv", "Send END \n")
                                            .info("IssueCommandBase", "Dorv_Send SUCCESS - command sent \n")
                                            .info("IssueCommandBase", "response received from Dorv \n")));
  EXPECT_EQ(written.sequencer, "");
}

TEST_F(LogTest, OfANameThatIsNotFound) {
  folder.writeSettings(kPrintAndBeQuick);
  const std::uint64_t conn = connectUnheard();
  const Written written = writtenBy([&] { Send(conn, "NO_SUCH_TASK", nullptr, 0); });
  EXPECT_EQ(written.engine, std::string(Log("BrelEngine").error("InvokeTask", "could not find TUI \n")));
  EXPECT_EQ(written.adapter, "");
  EXPECT_EQ(written.sequencer, "");
  EXPECT_EQ(written.console, "InvokeTask - could not find TUI \n");
}

TEST_F(LogTest, OfARefusedRequest) {
  folder.writeSettings(kPrintAndBeQuick);
  const std::uint64_t conn = connectUnheard();
  SluiceHubSim_ClearRules();
  SluiceHubSimRule refuse{};
  refuse.L4status = 3;
  refuse.L4error = 513;
  SluiceHubSim_AddRule(&refuse);
  const Written written = writtenBy([&] { SendValues(conn, {}); });

  EXPECT_EQ(written.engine, std::string(Log("BrelEngine")
                                            .info("IssueCommandBase", "assigned sequence number 0 \n")
                                            .info("SendToDorv", "Send START \n")
                                            .info("SendToDorv", "Send END \n")
                                            .error("IssueCommandBase", "Dorv_Send FAILED - command not sent \n")));
  EXPECT_EQ(
      written.adapter,
      std::string(Log("DorvL5")
                      .info("Dorv_Send", "(0) - Start. \n")
                      .info("Dorv_Send", "(0) - Sending KeL Request over L5 to L4msgProxy. L5sndBufferSize = 40 \n")
                      .info("Dorv_Send", "(0) - SendReceiveMessage returned. L5Status: 0, L5rcvBuffer size: 24\n")
                      .info("Dorv_Send", "(0) - L4Status: 3\n")
                      .error("Dorv_Send", "(0) - L4 Adapter in driver returned error number = 513 \n")));
  EXPECT_EQ(written.sequencer, std::string(Log("BrelTasksSequencer")
                                               .info("AssignSequence", "assigned sequence number 0 \n")
                                               .info("FreeSequence", "freed sequence number 0 \n")));
  EXPECT_EQ(written.console,
            "\nTUI = 229952\n"
            "AssignSequence - assigned sequence number 0 \n"
            "IssueCommandBase - assigned sequence number 0 \n"
            "AAAAAAAAA\n"
            "SendToDorv - Send START - current handle = 0, DorvHandle = 0\n"
            "AAAAAAAAA\n"
            "AAAAAAAAA\n"
            "SendToDorv - Send END - current handle = 0, DorvHandle = 0\n"
            "AAAAAAAAA\n"
            "IssueCommandBase - Dorv_Send FAILED - command not sent \n"
            "FreeSequence - freed sequence number 0 \n");
}

TEST_F(LogTest, OfATimeOutThatKeepsTheSequence) {
  folder.writeSettings(kPrintAndBeQuick);
  const std::uint64_t conn = connectUnheard();
  SluiceHubSim_ClearRules();
  DropDebugTasks(0);
  const Written written = writtenBy([&] { SendValues(conn, {}); });

  EXPECT_EQ(written.engine,
            std::string(Log("BrelEngine")
                            .info("IssueCommandBase", "assigned sequence number 0 \n")
                            .info("SendToDorv", "Send START \n")
                            .info("SendToDorv", "Send END \n")
                            .info("IssueCommandBase", "Dorv_Send SUCCESS - command sent \n")
                            .error("IssueCommandBase",
                                   "- WaitForRx - WAIT_TIMEOUT exceeded while waiting for Rx from Dorv. \n")));
  EXPECT_EQ(written.sequencer,
            std::string(Log("BrelTasksSequencer").info("AssignSequence", "assigned sequence number 0 \n")));
  EXPECT_TRUE(written.console.ends_with(
      "IssueCommandBase - Dorv_Send SUCCESS - command sent \n"
      "IssueCommandBase - WaitForRx - WAIT_TIMEOUT exceeded while waiting for Rx from Dorv. \n"))
      << written.console;
}

TEST_F(LogTest, OfABroadcast) {
  folder.writeSettings(kPrintAndBeQuick);
  folder.write("KEL_ALLTASKS.csv", "NAMED_BROADCAST,  0, 18, X, 3, VAL, 217664, 0x35240\r\n");
  const std::uint64_t conn = connectUnheard(&Note);
  const Written written = writtenBy([&] {
    SluiceHubSim_Broadcast(conn, kDebugValTui, 1, "123456789012", 12, 1);
    KEL_Disconnect(conn);  // by when the listener's thread has ended
  });
  EXPECT_TRUE(written.engine.starts_with(
      std::string(Log("BrelEngine")
                      .info("BrelEngineCallback", "callback - callback received \n")
                      .info("BrelEngineCallback", "callback - Broadcast buffer copied & event set \n"))))
      << written.engine;
  const std::string taken = Log("BroadcastListener")
                                .info("recvData", "inserting buffer to queue \n")
                                .info("recvData", "set data event \n")
                                .info("listenerThreadFunc", "data event received, extracting from queue \n");
  EXPECT_TRUE(written.broadcastListener.starts_with(taken)) << written.broadcastListener;
}

TEST_F(LogTest, OfABroadcastThatNobodyWants) {
  const std::uint64_t conn = connectUnheard();
  const Written written = writtenBy([&] { SluiceHubSim_Broadcast(conn, kDebugValTui, 1, nullptr, 0, 1); });
  EXPECT_EQ(written.engine, std::string(Log("BrelEngine")
                                            .info("BrelEngineCallback", "callback - callback received \n")
                                            .info("BrelEngineCallback",
                                                  "callback - Broadcast arrived but no broadcast callback exists \n")));
}

TEST_F(LogTest, OfADisconnect) {
  folder.writeSettings(kPrintAndBeQuick);
  const std::uint64_t conn = connectUnheard(&Note);
  const Written written = writtenBy([&] { EXPECT_EQ(KEL_Disconnect(conn), KEL_OK); });

  EXPECT_EQ(written.engine,
            std::string(Log("BrelEngine")
                            .info("Finalize", "Start \n")
                            .info("Finalize", "Dorv.dll disconnected from Upper Driver \n")
                            .info("Finalize", "Dorv.dll finalized \n")
                            .info("ShutdownBroadcastThread", "stopped broadcast listener \n")
                            .info("ShutdownAsyncThread", "all async listener threads already stopped \n")
                            .info("Finalize", "End \n")));
  EXPECT_EQ(written.adapter, std::string(Log("DorvL5")
                                             .info("Dorv_Disconnect", "(0) - Start. \n")
                                             .info("Dorv_Disconnect", "(0) - SocketID = \0 released. \n"s)
                                             .info("Dorv_DisconnectL5", "(0) - Start. \n")
                                             .info("Dorv_EventHandler", "(0) - Start. \n")
                                             .info("Dorv_EventHandler", "(0) - Got L5_EVENT_DISCONNECTED. \n")
                                             .info("Dorv_EventHandler", "(0) - Finish. \n")
                                             .info("Dorv_DisconnectL5", "(0) - Success. \n")
                                             .info("Dorv_Disconnect", "(0) - L5 disconnected. \n")
                                             .info("Dorv_Disconnect", "(0) - Success. \n")
                                             .info("Dorv_Finalize", "(0) - Start. \n")
                                             .info("Dorv_Finalize", "(0) - Calling WRAPPER_COMMON_UnloadSluiceHub...\n")
                                             .info("Dorv_Finalize", "(0) - Success. \n")));
  EXPECT_EQ(written.sequencer, "");
  EXPECT_EQ(written.broadcastListener,
            std::string(Log("BroadcastListener")
                            .info("listenerThreadFunc", "stop wait event received - exiting listener thread \n")
                            .info("stopListen", "listener thread exited \n")));
  EXPECT_EQ(written.console,
            "Finalize - Start \n"
            "Finalize - Dorv.dll disconnected from Upper Driver \n"
            "Finalize - Dorv.dll finalized \n"
            "inside ShutdownAlerterThread\n"
            "inside ShutdownBroadcastThread\n"
            "listenerThreadFunc - stop wait event received - exiting listener thread \n"
            "stopListen - listener thread exited \n"
            "ShutdownBroadcastThread - stopped broadcast listener \n"
            "ShutdownAsyncThread - all async listener threads already stopped \n"
            "Finalize - End \n"
            " - RemoveBrelInst - Deleting BrelEngine instance \n");
}

TEST_F(LogTest, OfADisconnectWithoutACallbackSpeaksOfTheAlertsAlone) {
  folder.writeSettings(kPrintAndBeQuick);
  const std::uint64_t conn = connectUnheard();
  const Written written = writtenBy([&] { EXPECT_EQ(KEL_Disconnect(conn), KEL_OK); });
  EXPECT_EQ(written.console,
            "Finalize - Start \n"
            "Finalize - Dorv.dll disconnected from Upper Driver \n"
            "Finalize - Dorv.dll finalized \n"
            "inside ShutdownAlerterThread\n"
            "ShutdownAsyncThread - all async listener threads already stopped \n"
            "Finalize - End \n"
            " - RemoveBrelInst - Deleting BrelEngine instance \n");
}

TEST_F(LogTest, OfTheDisconnectOfAConnectionWithSequencesLeftOpen) {
  folder.writeSettings(kPrintAndBeQuick);
  const std::uint64_t conn = connectUnheard();
  SluiceHubSim_ClearRules();
  DropDebugTasks(0);
  writtenBy([&] {
    SendValues(conn, {});
    SendValues(conn, {});
  });
  const Written written = writtenBy([&] { EXPECT_EQ(KEL_Disconnect(conn), KEL_OK); });
  EXPECT_EQ(written.sequencer, std::string(Log("BrelTasksSequencer")
                                               .info("FreeSequence", "freed sequence number 0 \n")
                                               .info("FreeSequence", "freed sequence number 1 \n")));
}

TEST_F(LogTest, SwitchedOffLeavesNoFileAndNoLine) {
  for (const char* level : {"Info", "Warn", "Err"}) registry.set("Software\\Brel\\ALogger", level, 0);
  const Written written = writtenBy([] {
    const std::uint64_t conn = connect(&Note);
    SendValues(conn, {1, 2, 3});
    Send(conn, "NO_SUCH_TASK", nullptr, 0);
    KEL_Disconnect(conn);
  });
  EXPECT_EQ(written.console, "");
  for (const char* log : kAllLogs) EXPECT_EQ(LogPath(log), "") << log;
}

TEST_F(LogTest, OfErrorsAloneHoldsErrorsAlone) {
  registry.set("Software\\Brel\\ALogger", "Info", 0);
  const Written written = writtenBy([] { Send(connect(), "NO_SUCH_TASK", nullptr, 0); });
  EXPECT_EQ(written.engine, std::string(Log("BrelEngine").error("InvokeTask", "could not find TUI \n")));
  EXPECT_EQ(written.adapter, "");
}

}  // namespace
}  // namespace kel::test
