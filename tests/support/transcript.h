/* SPDX-License-Identifier: MIT */
// What an engine says: its log and the console beside it, each whole and in order.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

#include "support/log_file.h"

namespace kel::test {

/// Writes down what is expected of both outlets, or holds what came. Most lines go to both: to the log with their
/// level, to the console behind the function's name and " - ".
///
///     Transcript().info("init", "Start \n").printed("BBBBBBBBB\n")
class Transcript {
 public:
  Transcript() = default;
  Transcript(std::string log, std::string console) : mLog(std::move(log)), mConsole(std::move(console)) {}

  Transcript& info(const std::string& function, const std::string& text) { return both("info", function, text); }
  Transcript& error(const std::string& function, const std::string& text) { return both("error", function, text); }
  /// On one outlet alone.
  Transcript& logged(const std::string& level, const std::string& function, const std::string& text) {
    mLog += LogEntry(level, "BrelEngine", function, text);
    return *this;
  }
  Transcript& printed(const std::string& text) {
    mConsole += text;
    return *this;
  }

  Transcript& operator+=(const Transcript& other) {
    mLog += other.mLog;
    mConsole += other.mConsole;
    return *this;
  }

  // What several operations have in common. The console shows the sequencer's lines too; its log is a file of its own.

  /// A sequence is opened, or closed.
  Transcript& assigned(std::uint32_t seqNum) {
    return printed("AssignSequence - assigned sequence number " + std::to_string(seqNum) + " \n");
  }
  Transcript& freed(std::uint32_t seqNum) {
    return printed("FreeSequence - freed sequence number " + std::to_string(seqNum) + " \n");
  }
  Transcript& retrieved(std::uint32_t seqNum) {
    return printed("RetrieveBySeqNum - retrieved data for sequence number " + std::to_string(seqNum) + " \n");
  }

  /// The marks around a send of the first engine; `text` is "Send START" or "Send END".
  Transcript& sendMark(const std::string& text) {
    return logged("info", "SendToDorv", text + " \n")
        .printed("AAAAAAAAA\nSendToDorv - " + text + " - current handle = 0, DorvHandle = 0\nAAAAAAAAA\n");
  }

  /// A send whose answer comes before it returns.
  Transcript& sentAndAnswered(const std::string& caller, std::uint32_t seqNum) {
    const std::string number = std::to_string(seqNum) + " \n";
    return sendMark("Send START")
        .info("BrelEngineCallback", "callback - callback received \n")
        .info("BrelEngineCallback", "Got callback with ACK for sequence number " + number)
        .retrieved(seqNum)
        .printed("InsertDataBySeqNum - inserted data for sequence number " + number)
        .info("BrelEngineCallback", "callback - Sequence buffer copied & event set \n")
        .sendMark("Send END")
        .info(caller, "Dorv_Send SUCCESS - command sent \n");
  }
  /// A send that is taken and not answered; one that is refused.
  Transcript& sent(const std::string& caller) {
    return sendMark("Send START").sendMark("Send END").info(caller, "Dorv_Send SUCCESS - command sent \n");
  }
  Transcript& refused(const std::string& caller) {
    return sendMark("Send START").sendMark("Send END").error(caller, "Dorv_Send FAILED - command not sent \n");
  }

  /// The end of a wait for the answer.
  Transcript& waited(const std::string& level, const std::string& caller, const std::string& text) {
    return logged(level, caller, "- WaitForRx - " + text).printed(caller + " - WaitForRx - " + text);
  }
  /// The end that brings it, and its taking.
  Transcript& answerTaken(const std::string& caller, std::uint32_t seqNum) {
    return waited("info", caller, "dataEvent was signaled. \n").retrieved(seqNum).freed(seqNum);
  }

  bool operator==(const Transcript&) const = default;

  friend void PrintTo(const Transcript& transcript, std::ostream* out) {
    *out << "\n--- log:" << transcript.mLog << "--- console:\n" << transcript.mConsole << "---\n";
  }

 private:
  Transcript& both(const std::string& level, const std::string& function, const std::string& text) {
    return logged(level, function, text).printed(function + " - " + text);
  }

  std::string mLog;
  std::string mConsole;
};

/// Takes down what the engines of the process say. One for the length of a test.
class Recorder {
 public:
  template <class Action>
  Transcript of(Action action) {
    mLog.fresh();
    ::testing::internal::CaptureStdout();
    action();
    std::string console = ::testing::internal::GetCapturedStdout();
    return {mLog.fresh(), std::move(console)};
  }

 private:
  LogFile mLog{"Brel.logs"};
};

}  // namespace kel::test
