/* SPDX-License-Identifier: MIT */
// What the listener thread of a sequence does with an answer, or with a time-out.
//
// A client's callback for an asynchronous task or a stream is called here and nowhere else.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace kel {

// The client's callbacks of a sequence that was opened with a record of the client's own. They get the whole record,
// valid during the call, and as its size that of the payload. With the exports' tasks go the types in KELHandler.h.
using IssueAsyncCommandCallback = void (*)(std::uint32_t commandID, std::uint32_t sequenceByte, void* record,
                                           std::uint32_t size);
using IssueStreamCallback = void (*)(std::uint32_t commandID, std::uint32_t sequenceByte, std::uint32_t streamEnd,
                                     void* record, std::uint32_t size);

// What the async listener calls. Each finds the engine by its handle and forwards.

/// 0 only if there is no such engine any more.
std::uint32_t ProcessSequenceData(std::uint32_t engineHandle, std::uint32_t seqNum, std::uint32_t errorCode,
                                  std::uint8_t* buffer, std::uint32_t bufferSize);
/// 0 with a buffer that is the caller's, 1 failed, 2 the queue is empty, 7 no such engine.
std::uint32_t RetrieveNextAsyncBufferByHandle(std::uint32_t engineHandle, platform::Handle unused,
                                              std::uint32_t seqNum, std::uint8_t** buffer, std::uint32_t* bufferSize);
bool FreeSequenceByHandle(std::uint32_t engineHandle, std::uint32_t seqNum);

/// Overwrites the error code of a record.
void SetResponseStatus(std::uint8_t* record, std::uint32_t errorCode);

/// Makes a record that reports an error, in a block of the record capacity. It becomes a kept block behind the client's
/// callback: a client may hold on to it where blocks are not released.
void BuildErrorResponse(std::uint32_t TUI, std::uint32_t errorCode, std::uint8_t** clonedBuffer,
                        std::uint32_t* clonedBufferSize);

}  // namespace kel
