/* SPDX-License-Identifier: MIT */
// What an engine says of its asynchronous sequences, as blocks of lines that its Transcript is compared with.
#pragma once

#include <regex>
#include <sstream>
#include <string>

#include "support/transcript.h"

namespace kel::test {

/// A line that opens with the sequence's number in the log; the console has words of its own.
inline Transcript Said(const std::string& level, const std::string& function, std::uint32_t seqNum,
                       const std::string& text, const std::string& consoleText) {
  return Transcript()
      .logged(level, function, "(" + std::to_string(seqNum) + ") - " + text)
      .printed(function + " - " + consoleText);
}

/// One of most: the console's words are followed by the number.
inline Transcript SaidOf(const std::string& level, const std::string& function, std::uint32_t seqNum,
                         const std::string& text, const std::string& consoleText) {
  return Said(level, function, seqNum, text, consoleText + " " + std::to_string(seqNum) + " \n");
}

inline Transcript Handling(std::uint32_t seqNum, const std::string& text, const std::string& consoleText,
                           const std::string& level = "info") {
  return SaidOf(level, "HandleSequenceResponse", seqNum, text, consoleText);
}

inline Transcript Retrieved(std::uint32_t seqNum) { return Transcript().retrieved(seqNum); }

inline Transcript operator+(Transcript left, const Transcript& right) { return left += right; }

/// A request's name was looked up.
inline Transcript Looked(std::uint32_t TUI) { return Transcript().printed("\nTUI = " + std::to_string(TUI) + "\n"); }

/// A thread was started; the first half is told also where that fails later on.
inline Transcript ListenerReady(std::uint32_t seqNum) {
  return Said("info", "GenerateAsyncThread", seqNum, "OK init async listener. \n", "OK init async listener \n");
}
inline Transcript ThreadCreated(std::uint32_t seqNum) {
  return Transcript().printed("startListen (" + std::to_string(seqNum) + ") - Listener Thread created. Handle=#\n");
}
inline Transcript ThreadStarted(std::uint32_t seqNum) {
  return ListenerReady(seqNum) +
         ThreadCreated(seqNum).printed("startListen (" + std::to_string(seqNum) +
                                       ") - Listener Thread's priority hightend. Handle=#\n") +
         Said("info", "GenerateAsyncThread", seqNum, "started async listener. \n", "started async listener \n");
}
inline Transcript InfoInserted(std::uint32_t seqNum) {
  return Transcript().printed("InsertAsyncListenerInfoBySeqNum - inserted async listener info for sequence number " +
                              std::to_string(seqNum) + " \n");
}
inline Transcript InfoNotInserted(std::uint32_t seqNum) {
  return Transcript().printed("InsertDataBySeqNum - could not find sequence number " + std::to_string(seqNum) + " \n");
}

/// A sequence was opened and has its thread.
inline Transcript Opened(const std::string& caller, std::uint32_t seqNum) {
  return Transcript().assigned(seqNum).info(caller, "assigned sequence number " + std::to_string(seqNum) + " \n") +
         ThreadStarted(seqNum) + InfoInserted(seqNum);
}

inline Transcript Sent(std::uint32_t TUI, std::uint32_t seqNum, const std::string& what = "IssueAsyncCommand") {
  return Transcript()
      .sent("IssueAsyncCommandBase")
      .info("IssueAsyncCommandBase", "send " + what + " to Dorv with TUI " + std::to_string(TUI) +
                                         " and with sequence number " + std::to_string(seqNum) + " \n");
}

/// An answer came in for the listener thread; `kind` is "ACK" and the like.
inline Transcript Received(std::uint32_t seqNum, const std::string& kind) {
  const std::string number = std::to_string(seqNum) + " \n";
  return Transcript()
      .info("BrelEngineCallback", "callback - callback received \n")
      .info("BrelEngineCallback", "Got callback with " + kind + " for sequence number " + number)
      .retrieved(seqNum)
      .printed("InsertAsyncDataBySeqNum - inserted async data for sequence number " + number)
      .info("BrelEngineCallback", "callback - Sequence buffer copied & event set \n");
}

/// The thread took it off the queue, or found nothing more there.
inline Transcript Taken(std::uint32_t seqNum) {
  return Retrieved(seqNum) + SaidOf("info", "RetrieveNextAsyncBuffer", seqNum, "retrieved data. \n",
                                    "retrieved data related to sequence number");
}
inline Transcript FoundEmpty(std::uint32_t seqNum) {
  return Retrieved(seqNum) + SaidOf("info", "RetrieveNextAsyncBuffer", seqNum, "empty asyncBuffersQueue. \n",
                                    "empty asyncBuffersQueue related to sequence number");
}

/// How the handling of each answer begins.
inline Transcript GettingCallbacks(std::uint32_t seqNum) {
  return Handling(seqNum, "getting callbacks. \n", "getting callbacks for sequence number");
}
inline Transcript FiringCallback(std::uint32_t seqNum) {
  return Handling(seqNum, "firing callback. \n", "firing callback for sequence number");
}
inline Transcript Begun(std::uint32_t seqNum) {
  return GettingCallbacks(seqNum) + Retrieved(seqNum) + FiringCallback(seqNum);
}

inline Transcript HandlingAck(std::uint32_t seqNum) {
  return Handling(seqNum, "handling ACK. \n", "handling ACK for sequence number");
}
inline Transcript HandlingStream(std::uint32_t seqNum, bool end) {
  const std::string kind = end ? "Stream_END" : "Stream_MESSAGE";
  return Handling(seqNum, "handling " + kind + ". \n", "handling " + kind + " for sequence number") +
         Handling(
             seqNum, end ? "streamEnd flag = TRUE (1). \n" : "streamEnd flag = FALSE (0). \n",
             end ? "streamEnd flag = TRUE (1) for sequence number" : "streamEnd flag = FALSE (0) for sequence number");
}
/// A callback is called; `apiType` is "BREL_INVOKE_TASK" or the other.
inline Transcript Firing(std::uint32_t seqNum, const std::string& callback, const std::string& apiType) {
  return Handling(seqNum, "firing " + callback + ". \n", "firing " + callback + " for sequence number") +
         Handling(seqNum, "apiType = " + apiType + ". \n", "apiType = " + apiType + ". Sequence number");
}

inline Transcript CheckingEnd(std::uint32_t seqNum) {
  return Handling(seqNum, "checking sequence end. \n", "checking sequence end for sequence number");
}
inline Transcript AckInserted(std::uint32_t seqNum) {
  return Transcript().printed("InsertAckBySeqNum - inserted Ack for sequence number " + std::to_string(seqNum) + " \n");
}
inline Transcript Disposed(std::uint32_t seqNum) {
  return Retrieved(seqNum) + InfoInserted(seqNum) +
         Said("info", "DisposeAsyncThread", seqNum, "stopped async listener. \n", "stopped async listener \n");
}
inline Transcript Ended(std::uint32_t seqNum) {
  return Handling(seqNum, "running sequence end routine. \n", "running sequence end routine for sequence number") +
         Disposed(seqNum) +
         Handling(seqNum, "finished sequence end routine. \n", "finished sequence end routine for sequence number");
}
inline Transcript Handled(std::uint32_t seqNum) {
  return Said("info", "HandleSequenceResponse", seqNum, "sequence response handled successfully. \n",
              "sequence response handled successfully \n");
}

/// The engine's side of what an action brought about: the lines of the sequences' threads about themselves, which fall
/// between the others as it happens, are left out, and handles are "#".
template <class Action>
Transcript EngineSays(Action action) {
  static LogFile log("Brel.logs");
  log.fresh();
  ::testing::internal::CaptureStdout();
  action();
  std::istringstream printed(::testing::internal::GetCapturedStdout());
  std::string console, line;
  while (std::getline(printed, line)) {
    if (!line.starts_with("listenerThreadFunc - ")) console += line + "\n";
  }
  static const std::regex handle("Handle=[0-9A-F]+");
  return {log.fresh(), std::regex_replace(console, handle, "Handle=#")};
}

}  // namespace kel::test
