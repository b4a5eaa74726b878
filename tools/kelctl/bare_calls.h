/* SPDX-License-Identifier: MIT */
// The library's exports as the demo shows them: results as codes, and callbacks that only file what they get.
//
// A callback does not learn which call it belongs to, and the demo does one thing at a time: so there is one queue of
// each kind for the whole process. The queues have no limit.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "KELHandler.h"
#include "clock.h"
#include "payload.h"
#include "tally.h"

namespace kelctl {

/// What a result code means and what to do next, in lines of less than 80 columns.
std::string meaning(std::uint32_t code);

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
}

// The next of each kind, waited for until `deadline` or until Ctrl-C where that is caught.
std::optional<Broadcast> nextBroadcast(Clock::time_point deadline);
std::optional<StreamMessage> nextStreamMessage(Clock::time_point deadline);

/// The outcome of a task. `payload` is there if the device answered, also with no bytes.
struct Reply {
  std::uint32_t code = KEL_OK;
  std::optional<Bytes> payload;
};

/// Sends a task and takes its answer over, whatever the result.
Reply sendTask(std::uint64_t connection, const std::string& task, const Bytes& payload,
               KEL_StreamCallback streamCallback = nullptr);

struct InFlight {
  Tally tally;
  std::vector<Answer> answers;  ///< in the order of their arrival
};

/// Sends a task `count` times without waiting, each with its number as command ID and with `payloadOf` that number;
/// then waits for what comes of them, or for Ctrl-C where that is caught.
InFlight sendInFlight(std::uint64_t connection, const std::string& task, std::uint32_t count,
                      const std::function<Bytes(std::uint32_t)>& payloadOf);

}  // namespace kelctl
