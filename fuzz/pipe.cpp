// SPDX-License-Identifier: MIT
#include "pipe.h"

#include <cstring>
#include <utility>
#include <vector>

#include "adapter/DorvInstances.h"
#include "target.h"

namespace kel::fuzz {
namespace {

constexpr std::uint64_t kConnection = 0x1234567800000001;

}  // namespace

PipeAnswers Pipe::answers;
std::function<void(const WireTask&)> Pipe::onRequest;
L5MessagesHandler Pipe::sMessages = nullptr;
L5EventHandler Pipe::sEvents = nullptr;
std::uint32_t* Pipe::sContext = nullptr;

void Pipe::install() {
  static tL5DispatcherFunctions functions{nullptr, L5Connect, L5Disconnect, SendReceiveMessage};
  gL5DispatcherFunctions = &functions;  // the adapter asks the library only if it has none
}

void Pipe::deliver(std::uint32_t messageID, const std::string& body) {
  if (sMessages == nullptr) return;
  const std::vector<char> block(body.begin(), body.end());
  std::uint32_t replyID = 1, replySize = 1;
  sMessages(kConnection, L5_AGENT_KELPROXY, messageID, block.data(), static_cast<std::uint32_t>(block.size()), &replyID,
            nullptr, &replySize, nullptr, nullptr);
  Promise(replyID == 0 && replySize == 0, "no message is replied to");
}

void Pipe::signal(std::uint32_t event, std::uint32_t reason) {
  if (sEvents != nullptr) sEvents(kConnection, event, &reason, sContext);
}

std::uint32_t Pipe::L5Connect(void*, L5MessagesHandler messages, L5EventHandler events, std::uint32_t* context,
                              std::uint32_t, std::uint64_t* connection) {
  sMessages = messages;
  sEvents = events;
  sContext = context;
  if (answers.connectStatus == 0) *connection = kConnection;
  return answers.connectStatus;
}

std::uint32_t Pipe::L5Disconnect(std::uint64_t connection) {
  Promise(connection == kConnection, "only what was opened is closed");
  signal(L5_EVENT_DISCONNECTED, L5_RESULT_USER_REQUESTED_DISCONNECT);
  return 0;
}

std::uint32_t Pipe::SendReceiveMessage(std::uint64_t connection, std::uint32_t agent, std::uint32_t messageID,
                                       const void* buffer, std::uint32_t bufferSize, std::uint32_t* replyMessageID,
                                       void* reply, std::uint32_t* replySize) {
  Promise(connection == kConnection, "a message goes to what was opened");
  if (agent == L5_AGENT_KELPROXY) {
    Promise(bufferSize == 1, "a socket is asked for and given back in one byte");
    if (messageID == KEL_PROXY_L5_MSG_ID_RELEASE_SOCKET_ID_INDICATION) return 0;
    *replyMessageID = KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID_RESPONSE;
    std::memcpy(reply, &answers.socketID, 1);
    *replySize = 1;
    return answers.socketStatus;
  }
  WireTask request;
  Promise(bufferSize >= sizeof(KelRequestHeader) + sizeof request, "a request has its head");
  std::memcpy(&request, static_cast<const std::uint8_t*>(buffer) + sizeof(KelRequestHeader), sizeof request);
  Promise(bufferSize == sizeof(KelRequestHeader) + sizeof request + request.payloadSize, "a request has its payload");
  if (const auto act = std::exchange(onRequest, nullptr)) act(request);
  KelRequestReply answer{};
  answer.errorWord = 4711;
  answer.L4status = answers.L4status;
  std::memcpy(reply, &answer, sizeof answer);
  *replySize = sizeof answer;
  *replyMessageID = answers.replyID;
  return answers.sendStatus;
}

}  // namespace kel::fuzz
