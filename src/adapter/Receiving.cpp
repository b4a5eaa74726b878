// SPDX-License-Identifier: MIT
// The handlers through which everything from the device side comes in. They run on threads of the pipe library.
#include <cstring>
#include <new>
#include <vector>

#include "adapter/DorvInstances.h"
#include "adapter/L5Records.h"

namespace kel {
namespace {

constexpr const char* kMessages = "Dorv_MessagesHandler";
constexpr const char* kEvents = "Dorv_EventHandler";

/// What a body must hold ahead of the payload.
constexpr std::uint32_t kResponseHeadSize = sizeof(KelResponseHeader) + sizeof(WireTask);

/// Puts the wire form back into the order of the record in memory, and hands the record to the row's engine.
void Deliver(std::uint32_t handle, const std::uint8_t* body, std::uint32_t bodySize) {
  WireTask wire;
  std::memcpy(&wire, body + sizeof(KelResponseHeader), sizeof wire);
  task head{};
  head.TUI = wire.TUI;
  head.errorCode = wire.errorCode;
  head.seqTUI = wire.seqTUI;
  head.payloadSize = wire.payloadSize;

  const std::uint32_t size = sizeof(task) + wire.payloadSize;
  alignas(task) std::uint8_t stackRecord[BrelTaskRecordCapacity];
  std::vector<std::uint8_t> largeRecord;
  std::uint8_t* record = stackRecord;
  if (size > BrelTaskRecordCapacity) {
    try {
      largeRecord.resize(size);
    } catch (const std::bad_alloc&) {
      ReportRowError(handle, kMessages, "No memory for a KeL response. \n");
      return;
    }
    record = largeRecord.data();
  }
  std::memcpy(record, &head, sizeof head);
  std::memcpy(record + sizeof head, body + kResponseHeadSize, wire.payloadSize);

  LogRow(kInfo, handle, kMessages, "Received from socket ", bodySize, " bytes. Calling Brel callback... \n");
  if (const BrelCallback brelCallback = Load(gDorvInstances[handle].brelCallback)) brelCallback(handle, record, size);
}

/// Whether the body holds the record that it announces. What it does not hold is never read.
bool IsWhole(const std::uint8_t* body, std::uint32_t bodySize) {
  if (bodySize < kResponseHeadSize) return false;
  WireTask wire;
  std::memcpy(&wire, body + sizeof(KelResponseHeader), sizeof wire);
  return wire.payloadSize <= bodySize - kResponseHeadSize;
}

/// Takes a response or a broadcast; `*handle` gets the row that it names. One that cannot be delivered is logged and
/// dropped, and the pipe library does not learn of it.
void TakeResponse(const std::uint8_t* body, std::uint32_t bodySize, std::uint32_t* handle) {
  if (body == nullptr || bodySize < sizeof(std::uint16_t)) {
    ReportRowError(*handle, kMessages, "Got KeL response with invalid socketID. \n");
    return;
  }
  std::uint16_t row;
  std::memcpy(&row, body, sizeof row);
  *handle = row;
  LogRow(kInfo, row, kMessages, "Got KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION. \n");
  if (row == kNoSocket) {
    ReportRowError(row, kMessages, "Got KeL response with invalid socketID. \n");
  } else if (row >= kDorvInstances || Load(gDorvInstances[row].inUse) == 0) {
    // The number is the row itself, whatever socket ID the row has acquired.
    ReportRowError(row, kMessages, "Got KeL response for an inactive socketID. \n");
  } else if (!IsWhole(body, bodySize)) {
    ReportRowError(row, kMessages, "Got KeL response that is shorter than its record. \n");
  } else {
    Deliver(row, body, bodySize);
  }
}

}  // namespace

void Dorv_MessagesHandler(std::uint64_t /*connection*/, std::uint32_t /*source*/, std::uint32_t messageID,
                          const void* buffer, std::uint32_t bufferSize, std::uint32_t* replyMessageID,
                          void* /*replyBuffer*/, std::uint32_t* replySize, void* /*unused1*/, void* /*unused2*/) {
  std::uint32_t handle = kNoSocket;
  LogDorv(kInfo, kMessages, "Start. \n");
  if (messageID == KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION) {
    TakeResponse(static_cast<const std::uint8_t*>(buffer), bufferSize, &handle);
  }
  if (replyMessageID != nullptr) *replyMessageID = 0;
  if (replySize != nullptr) *replySize = 0;
  LogRow(kInfo, handle, kMessages, "Finish. \n");
}

void Dorv_EventHandler(std::uint64_t /*connection*/, std::uint32_t event, const std::uint32_t* reason,
                       const std::uint32_t* context) {
  // If a connection outlives its row, another engine may have taken the row meanwhile.
  const std::uint32_t handle = Load(*const_cast<std::uint32_t*>(context));
  LogRow(kInfo, handle, kEvents, "Start. \n");
  if (event == L5_EVENT_DISCONNECTED) {
    LogRow(kInfo, handle, kEvents, "Got L5_EVENT_DISCONNECTED. \n");
    DorvInstance& row = gDorvInstances[handle];
    const bool ofOurMaking = Load(row.inUse) == 0 || Load(row.disconnecting) == 1;
    // A reason that is missing counts as 0.
    if (!ofOurMaking && (reason == nullptr || *reason != L5_RESULT_USER_REQUESTED_DISCONNECT)) {
      LogRow(kInfo, handle, kEvents,
             "Got reason other than L5_RESULT_USER_REQUESTED_DISCONNECT. Invoking Brel's alert callback ...\n");
      Dorv_DebugPrint("DorvL5 (%d) - Dorv_EventHandler - Alert - Disconnect event signalled !", handle);
      if (const BrelAlertsCallback alert = Load(row.brelAlertsCallback)) alert(handle, DORV_SOCKET_WAS_CLOSED_BY_PEER);
    }
  }
  LogRow(kInfo, handle, kEvents, "Finish. \n");
}

}  // namespace kel
