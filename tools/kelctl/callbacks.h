/* SPDX-License-Identifier: MIT */
// What the library's callbacks bring, on its way from the library's threads to the one that prints it.
//
// A callback does not learn which call it belongs to, and kelctl does one thing at a time: so there is one queue of
// each kind for the whole process. A callback only files what it gets. The queues have no limit; what the printing
// thread has not taken yet is kept in memory.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "clock.h"
#include "payload.h"

namespace kelctl {

struct Broadcast {
  std::string name;
  bool isRef = false;
  Bytes payload;
  Clock::time_point arrival;
};

struct StreamMessage {
  bool isEnd = false;
  bool isRef = false;
  Bytes payload;
};

/// The outcome of an asynchronous task. `errorCode` is not 0 if no answer came in time.
struct Answer {
  std::uint32_t commandID = 0;
  std::uint32_t errorCode = 0;
  bool isRef = false;
  Bytes payload;
  Clock::time_point arrival;
};

// The callbacks to give to the library.
extern "C" {
void queueBroadcast(char* name, std::uint32_t isRef, void* payload, std::uint32_t size, std::uint32_t seqTui);
void queueStreamMessage(std::uint32_t errorCode, std::uint32_t commandID, std::uint32_t sequenceByte,
                        std::uint32_t streamEnd, std::uint32_t isRef, void* data, std::uint32_t size,
                        std::uint32_t seqTui);
void queueAnswer(std::uint32_t errorCode, std::uint32_t commandID, std::uint32_t sequenceByte, std::uint32_t isRef,
                 void* data, std::uint32_t size, std::uint32_t seqTui);
}

// The next of each kind, waited for until `deadline` or until Ctrl-C where that is caught.
std::optional<Broadcast> nextBroadcast(Clock::time_point deadline);
std::optional<StreamMessage> nextStreamMessage(Clock::time_point deadline);
std::optional<Answer> nextAnswer(Clock::time_point deadline);

/// The tasks that the device echoes.
inline constexpr char kEchoVal[] = "TASK_ID_APPLICATION_DEBUG_VAL";
inline constexpr char kEchoRef[] = "TASK_ID_APPLICATION_DEBUG_REF";
/// The tasks that make the device send `values[0]` broadcasts or stream messages, `values[1]` ms apart.
inline constexpr char kBroadcaster[] = "TASK_ID_APPLICATION_DEBUG_BROADCASTER";
inline constexpr char kStreamer[] = "TASK_ID_APPLICATION_DEBUG_STREAMER";

}  // namespace kelctl
