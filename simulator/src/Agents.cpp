// SPDX-License-Identifier: MIT
#include "Agents.h"

#include <algorithm>
#include <cstring>

#include "adapter/TaskRecord.h"

namespace kel::sim {
namespace {

Reply AcquireSocket(Hub& hub, Connection& connection, std::uint8_t adapterHandle) {
  connection.row = adapterHandle;
  Reply reply;
  if (hub.socketReply) {
    reply.status = hub.socketReply->acquireStatus;
    reply.ID = hub.socketReply->replyID;
    reply.size = hub.socketReply->replySize;
    reply.bytes[0] = hub.socketReply->socketID;
    return reply;
  }
  if (const SocketRefusal* refusal = hub.scenario.RefuseSocket()) {
    reply.status = refusal->sendStatus;
    reply.ID = refusal->replyID != 0 ? refusal->replyID : KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID_RESPONSE;
    reply.size = 1;
    reply.bytes[0] = kNoSocket;
    return reply;
  }
  const auto free = std::find(hub.socketOwners.begin(), hub.socketOwners.end(), std::uint64_t{0});
  reply.ID = KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID_RESPONSE;
  reply.size = 1;
  reply.bytes[0] = static_cast<std::uint8_t>(free - hub.socketOwners.begin());  // 255 when there is none
  if (free == hub.socketOwners.end()) return reply;
  *free = connection.Value();
  hub.scenario.PlanFor(hub, connection);
  return reply;
}

/// An ID that the connection does not hold stays where it is: nobody can take another's socket.
void ReleaseSocket(Hub& hub, const Connection& connection, std::uint8_t socketID) {
  if (socketID < hub.socketOwners.size() && hub.socketOwners[socketID] == connection.Value()) {
    hub.socketOwners[socketID] = 0;
  }
}

/// False if the sizes that the body tells are not those that it has.
bool ReadRequest(std::span<const std::uint8_t> body, KelRequest& request) {
  constexpr std::size_t headSize = sizeof(KelRequestHeader) + sizeof(WireTask);
  if (body.size() < headSize) return false;
  KelRequestHeader header;
  WireTask head;
  std::memcpy(&header, body.data(), sizeof header);
  std::memcpy(&head, body.data() + sizeof header, sizeof head);
  if (header.opcode != kKelRequestOpcode || head.payloadSize != body.size() - headSize) return false;
  if (header.recordSize != static_cast<std::uint16_t>(head.payloadSize + sizeof(task))) return false;

  request.TUI = MakeSeqTUI(head.TUI, 0);
  request.seqTUI = head.seqTUI;
  request.responseExpected = head.responseExpected != 0;
  request.payload = body.subspan(headSize);
  return true;
}

Reply MakeL4Reply(std::uint32_t L4status, std::uint32_t errorWord) {
  Reply reply;
  reply.size = static_cast<std::uint32_t>(reply.bytes.size());
  std::memcpy(reply.bytes.data() + offsetof(KelRequestReply, errorWord), &errorWord, sizeof errorWord);
  std::memcpy(reply.bytes.data() + offsetof(KelRequestReply, L4status), &L4status, sizeof L4status);
  return reply;
}

bool Refuses(const SluiceHubSimRule& rule) {
  return rule.sendStatus != 0 || rule.replyID != 0 || (rule.L4status & 0xFFFF) != 0;
}

/// What follows a response, by the device model or by the rule.
bool MakeSeries(const KelRequest& request, const Answer& answer, const Rule& rule, Series& series) {
  series = {};
  series.TUI = request.TUI;
  series.seqTUI = request.seqTUI;
  series.sequenceNumber = GetTuiSeqNum(request.seqTUI) & kSequenceNumberMask;
  series.isBroadcast = answer.follow == Answer::Follow::kBroadcasts;
  series.count = answer.count;
  series.intervalMs = answer.intervalMs;
  if (rule.Has(SLUICEHUBSIM_STREAM)) {
    series.isBroadcast = false;
    series.count = rule.what.streamCount;
    series.intervalMs = rule.what.streamIntervalMs;
    series.payloadSize = rule.what.streamPayloadSize;
    series.payload = rule.streamPayload;
    series.afterEnd = rule.what.streamAfterEnd;
  } else if (answer.follow == Answer::Follow::kNothing) {
    return false;
  }
  series.hasEnd = !series.isBroadcast && !rule.Has(SLUICEHUBSIM_NO_END);
  return true;
}

void LayOutAnswer(const Connection& connection, const KelRequest& request, const Answer& answer, const Rule& rule,
                  std::vector<std::uint8_t>& body) {
  if (rule.Has(SLUICEHUBSIM_BODY)) {
    body = rule.data;
    return;
  }
  const auto& payload = rule.Has(SLUICEHUBSIM_DATA) ? rule.data : answer.payload;
  std::uint32_t sequenceByte = GetTuiSeqNum(request.seqTUI) & kSequenceNumberMask;
  if (rule.Has(SLUICEHUBSIM_CLASS)) sequenceByte |= (rule.what.seqClass & 3) << 6;
  WireTask head;
  head.TUI = MakeSeqTUI(request.TUI, static_cast<std::uint8_t>(sequenceByte));
  head.TUI = WithType(head.TUI, rule.Has(SLUICEHUBSIM_TYPE) ? rule.what.type : answer.type);
  head.payloadSize = static_cast<std::uint32_t>(payload.size());
  head.seqTUI = request.seqTUI;
  head.errorCode = rule.what.errorCode;
  std::uint8_t* to = LayOutResponse(body, connection.row, head);
  if (!payload.empty()) std::memcpy(to, payload.data(), payload.size());
}

void PostResponse(Hub& hub, Connection& connection, const KelRequest& request, const Rule& rule,
                  Completion* beforeReply) {
  auto response = hub.NewDelivery(Delivery::Kind::kMessage, KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION, rule.delayMs);
  LayOutAnswer(connection, request, hub.answer, rule, response->body);
  response->holdBack = rule.what.holdBack;
  const auto copied = rule.what.copies != 0 ? response->body : std::vector<std::uint8_t>();
  if (rule.Has(SLUICEHUBSIM_BEFORE_REPLY) && beforeReply != nullptr && response->holdBack == 0) {
    ++beforeReply->pending;
    response->completion = beforeReply;
  }
  connection.Post(std::move(response));
  for (std::uint32_t i = 0; i < rule.what.copies; ++i) {
    auto copy = hub.NewDelivery(Delivery::Kind::kMessage, KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION, rule.delayMs);
    copy->body = copied;
    copy->holdBack = rule.what.holdBack;
    connection.Post(std::move(copy));
  }
}

void LoseLink(Hub& hub, Connection& connection, std::uint32_t reason) {
  connection.LoseLink();
  auto event = hub.NewDelivery(Delivery::Kind::kEvent, L5_EVENT_DISCONNECTED);
  event->reason = reason;
  connection.Post(std::move(event));
}

void PostAnswer(Hub& hub, Connection& connection, const KelRequest& request, const Rule& rule,
                Completion* beforeReply) {
  if (hub.answer.endStreamsOf != 0) connection.EndStreams(hub.answer.endStreamsOf);
  if (rule.drops) return;

  Series series;
  const bool hasSeries = MakeSeries(request, hub.answer, rule, series);
  const bool ackLast = hasSeries && rule.Has(SLUICEHUBSIM_ACK_LAST);
  // A stream has its acknowledgement even if nobody waits for one.
  const bool responds = request.responseExpected || (hasSeries && !series.isBroadcast);
  if (responds && !ackLast) PostResponse(hub, connection, request, rule, beforeReply);
  if (hub.answer.losesLink) connection.HangUp();
  if (!hasSeries) return;

  auto follow = hub.NewDelivery(Delivery::Kind::kSeries, KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION, rule.delayMs);
  follow->series = std::move(series);
  if (ackLast) LayOutAnswer(connection, request, hub.answer, rule, follow->series.lastAck);
  connection.Post(std::move(follow));
}

}  // namespace

Reply AskKelProxyAgent(Hub& hub, Connection& connection, const Message& message) {
  Reply reply;
  if (message.ID == KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID) {
    if (message.body.size() == 1) return AcquireSocket(hub, connection, message.body[0]);
    reply.ID = SLUICEHUBSIM_REPLY_MALFORMED;
  } else if (message.ID == KEL_PROXY_L5_MSG_ID_RELEASE_SOCKET_ID_INDICATION) {
    if (message.body.size() != 1) {
      reply.status = SLUICEHUBSIM_STATUS_BAD_ARGUMENT;
    } else if (hub.socketReply) {
      reply.status = hub.socketReply->releaseStatus;
    } else {
      ReleaseSocket(hub, connection, message.body[0]);
    }
  } else {
    reply.ID = SLUICEHUBSIM_REPLY_UNKNOWN_MESSAGE;
  }
  return reply;
}

Reply AskL4msgProxy(Hub& hub, Connection& connection, const Message& message, Completion* beforeReply) {
  Reply refusal;
  KelRequest request;
  if (message.ID != L4MSGPROXY_L5_MSG_ID_KEL_REQUEST) {
    refusal.ID = SLUICEHUBSIM_REPLY_UNKNOWN_MESSAGE;
    return refusal;
  }
  if (!ReadRequest(message.body, request)) {
    refusal.ID = SLUICEHUBSIM_REPLY_MALFORMED;
    return refusal;
  }

  static const Rule kNoRule{};
  const Rule* matched = hub.rules.Match(request.TUI);
  const Rule& rule = matched != nullptr ? *matched : kNoRule;
  Reply reply = MakeL4Reply(rule.what.L4status, rule.what.L4error);
  reply.status = rule.what.sendStatus;
  reply.ID = rule.what.replyID;
  if (matched != nullptr && hub.capture.IsOn()) reply.comment = matched->Describe();
  if (Refuses(rule.what)) return reply;
  if (rule.lostLinkReason) {
    LoseLink(hub, connection, *rule.lostLinkReason);
    return reply;
  }

  if (!hub.device.Act(request, hub.answer) && !rule.Answers()) {
    return MakeL4Reply(SLUICEHUBSIM_L4_UNKNOWN_TASK, SLUICEHUBSIM_L4_ERROR_UNKNOWN_TASK);
  }
  if (rule.echo) {
    hub.answer.type = GetTuiType(request.TUI);
    hub.answer.payload.assign(request.payload.begin(), request.payload.end());
  }
  PostAnswer(hub, connection, request, rule, beforeReply);
  return reply;
}

}  // namespace kel::sim
