// SPDX-License-Identifier: MIT
// Another pipe library than the stand-in, as small as one can be: it has the names, takes every request, and answers
// each with the three values 11, 22, 33. The library must work with it without being built again.
#include <cstring>
#include <thread>

#include "adapter/L5Records.h"
#include "adapter/SluiceHub.h"
#include "logging/Trace.h"

#define PIPE_EXPORT __attribute__((visibility("default")))

namespace {

constexpr std::uint64_t kOnlyConnection = 0x1234567800000001;

kel::L5MessagesHandler gMessagesHandler = nullptr;
std::uint8_t gRow = 0;
std::thread gAnswering;

/// Hands the answer to the library's handler, on a thread of its own as a pipe library does.
void Answer(kel::WireTask request) {
  struct {
    kel::KelResponseHeader header;
    kel::WireTask head;
    std::uint32_t values[3];
  } body{};
  static_assert(sizeof body == 40);
  body.header.handle = gRow;
  body.head.TUI = (request.TUI & 0xFFFFFF) | (request.seqTUI & 0x3F000000);
  body.head.payloadSize = sizeof body.values;
  body.values[0] = 11;
  body.values[1] = 22;
  body.values[2] = 33;
  std::uint32_t replyID = 0, replySize = 0;
  gMessagesHandler(kOnlyConnection, kel::L5_AGENT_KELPROXY, kel::KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION, &body,
                   sizeof body, &replyID, nullptr, &replySize, nullptr, nullptr);
}

std::uint32_t L5Connect(void*, kel::L5MessagesHandler messages, kel::L5EventHandler, std::uint32_t*, std::uint32_t,
                        std::uint64_t* connection) {
  gMessagesHandler = messages;
  *connection = kOnlyConnection;
  return 0;
}

void AwaitAnswer() {
  if (gAnswering.joinable()) gAnswering.join();
}

std::uint32_t L5Disconnect(std::uint64_t) {
  AwaitAnswer();
  return 0;
}

std::uint32_t SendReceiveMessage(std::uint64_t, std::uint32_t agent, std::uint32_t messageID, const void* buffer,
                                 std::uint32_t, std::uint32_t* replyMessageID, void* reply, std::uint32_t* replySize) {
  if (agent == kel::L5_AGENT_KELPROXY && messageID == kel::KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID) {
    std::memcpy(&gRow, buffer, 1);
    *replyMessageID = kel::KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID_RESPONSE;
    *static_cast<std::uint8_t*>(reply) = 5;
    *replySize = 1;
  } else if (agent == kel::L5_AGENT_L4MSGPROXY) {
    kel::WireTask request;
    std::memcpy(&request, static_cast<const std::uint8_t*>(buffer) + sizeof(kel::KelRequestHeader), sizeof request);
    *replyMessageID = 0;
    std::memset(reply, 0, *replySize);
    AwaitAnswer();
    gAnswering = std::thread(Answer, request);
  }
  return 0;
}

kel::tL5DispatcherFunctions gFunctions = {nullptr, L5Connect, L5Disconnect, SendReceiveMessage};

}  // namespace

extern "C" {

PIPE_EXPORT kel::tL5DispatcherFunctions* SLUICE_HUB_GetServiceDispatcherFunctions() { return &gFunctions; }
PIPE_EXPORT VersionArray SLUICE_HUB_GetVersion() { return {{9, 8, 7, 6, 5}}; }
PIPE_EXPORT std::uint32_t IsVersionValidationEnabled() { return 1; }
PIPE_EXPORT std::uint32_t ValidateVersion(const wchar_t*, VersionArray, VersionArray) { return 0; }
PIPE_EXPORT std::uint32_t SLUICE_HUB_Init() { return 0; }
PIPE_EXPORT std::uint32_t SLUICE_HUB_Finalize() { return 0; }
PIPE_EXPORT std::uint32_t SLUICE_HUB_RegisterCtrlStatusUpdatesCB(KEL_CtrlStatusCallback) { return 0; }
PIPE_EXPORT std::uint32_t SLUICE_HUB_UnregisterCtrlStatusUpdatesCB(KEL_CtrlStatusCallback) { return 0; }
PIPE_EXPORT std::uint32_t SLUICE_HUB_GetCtrlStatus() { return 77; }
PIPE_EXPORT std::uint32_t SLUICE_HUB_SetConnParams(std::uint64_t, std::uint32_t) { return 0; }
PIPE_EXPORT void Beacon_WriteTrace(std::uint32_t, std::uint32_t, const wchar_t*, const wchar_t*, std::uint32_t,
                                   const wchar_t*, ...) {}

}  // extern "C"
