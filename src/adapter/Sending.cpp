// SPDX-License-Identifier: MIT
// The send path: a task record in its L5 wire form to L4msgProxy, and the judgement of the immediate reply.
#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "adapter/DorvInstances.h"
#include "adapter/L5Records.h"

namespace kel {
namespace {

/// What the stack holds. It has room for every record that keeps within BREL_MAX_TASK_PAYLOAD.
constexpr std::size_t kSendBufferSize = 8232;

}  // namespace

std::uint32_t Dorv_Send(std::uint32_t handle, const task* record, std::uint32_t size) {
  LogRow(kInfo, handle, "Dorv_Send", "Start. \n");
  const tL5DispatcherFunctions* functions = gL5DispatcherFunctions;
  if (functions == nullptr) return DORV_FAILED;
  DorvInstance& row = gDorvInstances[handle];

  const std::uint32_t L5sndBufferSize = sizeof(KelRequestHeader) + size;
  // A payload beyond the limit is carried whole, in a block of its own; so is one whose size does not agree with
  // `size`.
  const std::size_t room = std::max(sizeof(KelRequestHeader) + std::size_t{size},
                                    sizeof(KelRequestHeader) + sizeof(WireTask) + std::size_t{record->payloadSize});
  std::uint8_t stackBuffer[kSendBufferSize];
  std::vector<std::uint8_t> largeBuffer;
  std::uint8_t* L5sndBuffer = stackBuffer;
  if (room > kSendBufferSize) {
    try {
      largeBuffer.resize(room);
    } catch (const std::bad_alloc&) {
      ReportRowError(handle, "Dorv_Send", "No memory for the KeL Request. \n");
      return DORV_FAILED;
    }
    L5sndBuffer = largeBuffer.data();
  }

  KelRequestHeader header{};
  header.opcode = kKelRequestOpcode;
  header.recordSize = static_cast<std::uint16_t>(size);
  std::memcpy(L5sndBuffer, &header, sizeof header);

  std::uint32_t L5rcvMsgID = 0;
  KelRequestReply L5rcvBuffer{};
  std::uint32_t L5rcvBufferSize = sizeof L5rcvBuffer;

  const std::uint64_t L5Connection = Load(row.L5Connection);
  if (L5Connection == 0) {
    ReportRowError(handle, "Dorv_Send", "L5 is not connected. \n");
    return DORV_NOT_CONNECTED;
  }

  WireTask wire{};
  wire.TUI = record->TUI;
  wire.payloadSize = record->payloadSize;
  wire.seqTUI = record->seqTUI;
  if (record->responseExpected == 1) wire.seqTUI = (wire.seqTUI & ~0xFFu) | Load(row.socketID);
  wire.responseExpected = record->responseExpected;
  std::memcpy(L5sndBuffer + sizeof header, &wire, sizeof wire);
  std::uint8_t* const payload = L5sndBuffer + sizeof header + sizeof wire;
  std::memcpy(payload, PayloadOf(record), record->payloadSize);
  // What `size` counts beyond the payload goes out as zeros.
  std::fill(payload + record->payloadSize, L5sndBuffer + room, std::uint8_t{0});

  LogRow(kInfo, handle, "Dorv_Send", "Sending KeL Request over L5 to L4msgProxy. L5sndBufferSize = ", L5sndBufferSize,
         " \n");
  const std::uint32_t L5status =
      functions->SendReceiveMessage(L5Connection, L5_AGENT_L4MSGPROXY, L4MSGPROXY_L5_MSG_ID_KEL_REQUEST, L5sndBuffer,
                                    L5sndBufferSize, &L5rcvMsgID, &L5rcvBuffer, &L5rcvBufferSize);
  LogRow(kInfo, handle, "Dorv_Send", "SendReceiveMessage returned. L5Status: ", L5status,
         ", L5rcvBuffer size: ", L5rcvBufferSize, "\n");
  if (L5status != 0) {
    ReportRowError(handle, "Dorv_Send", "Failed to send KeL Request over L5 to L4msgProxy. \n");
    return DORV_FAILED;
  }
  if (L5rcvMsgID != 0) {
    ReportRowError(handle, "Dorv_Send", "L4msgProxy agent returned error number = ", L5rcvMsgID, " \n");
    return DORV_FAILED;
  }
  const std::uint16_t L4status = L5rcvBuffer.L4status;
  LogRow(kInfo, handle, "Dorv_Send", "L4Status: ", std::uint32_t{L4status}, "\n");
  if (L4status != 0) {
    // The number in the line is the reply's first word, not L4status; log readers know it like this.
    const std::uint32_t errorWord = L5rcvBuffer.errorWord;
    ReportRowError(handle, "Dorv_Send", "L4 Adapter in driver returned error number = ", errorWord, " \n");
    return DORV_FAILED;
  }
  return DORV_OK;
}

}  // namespace kel
