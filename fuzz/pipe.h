/* SPDX-License-Identifier: MIT */
// A pipe library of the target's own, inside of the process and without a thread: what the device side does, and when,
// is up to the program that the target runs.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "adapter/L5Records.h"
#include "adapter/SluiceHub.h"

namespace kel::fuzz {

/// What the library answers to calls. Not 0 refuses, but for `socketID`.
struct PipeAnswers {
  std::uint32_t connectStatus = 0;
  std::uint32_t socketStatus = 0;
  std::uint8_t socketID = 5;
  std::uint32_t sendStatus = 0;
  std::uint32_t replyID = 0;
  std::uint16_t L4status = 0;

  bool refuseSend() const { return sendStatus != 0 || replyID != 0 || L4status != 0; }
};

class Pipe {
 public:
  /// Takes the place of the library that the process has loaded.
  static void install();

  static PipeAnswers answers;
  /// Called with the next task request, once, before that is answered: what comes in from here on may be its answer.
  static std::function<void(const WireTask& request)> onRequest;

  /// Hands a message to the engine's side, in a block of just its size. Nothing before the first connect.
  static void deliver(std::uint32_t messageID, const std::string& body);
  /// Signals an event to the last connection, also when that is closed.
  static void signal(std::uint32_t event, std::uint32_t reason);

 private:
  static std::uint32_t L5Connect(void* null, L5MessagesHandler messages, L5EventHandler events, std::uint32_t* context,
                                 std::uint32_t zero, std::uint64_t* connection);
  static std::uint32_t L5Disconnect(std::uint64_t connection);
  static std::uint32_t SendReceiveMessage(std::uint64_t connection, std::uint32_t agent, std::uint32_t messageID,
                                          const void* buffer, std::uint32_t bufferSize, std::uint32_t* replyMessageID,
                                          void* reply, std::uint32_t* replySize);

  static L5MessagesHandler sMessages;
  static L5EventHandler sEvents;
  static std::uint32_t* sContext;
};

}  // namespace kel::fuzz
