// SPDX-License-Identifier: MIT
#include "bare_calls.h"

#include <cstdlib>
#include <memory>
#include <utility>

#include "inbox.h"

namespace kelctl {
namespace {

Inbox<Broadcast> gBroadcasts;
Inbox<StreamMessage> gStreamMessages;
Inbox<Answer> gAnswers;

Bytes copied(const void* data, std::uint32_t size) {
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  return {bytes, bytes + size};
}

extern "C" void queueAnswer(std::uint32_t errorCode, std::uint32_t commandID, std::uint32_t /*sequenceByte*/,
                            std::uint32_t isRef, void* data, std::uint32_t size, std::uint32_t /*seqTui*/) {
  gAnswers.push({commandID, errorCode, isRef != 0, copied(data, size), Clock::now()});
}

}  // namespace

void queueBroadcast(char* name, std::uint32_t isRef, void* payload, std::uint32_t size, std::uint32_t /*seqTui*/) {
  gBroadcasts.push({name, isRef != 0, copied(payload, size), Clock::now()});
  // Both blocks are this side's from now on.
  std::free(name);
  std::free(payload);
}

// A stream's messages all come with error 0: it has no time-out.
void queueStreamMessage(std::uint32_t /*errorCode*/, std::uint32_t /*commandID*/, std::uint32_t /*sequenceByte*/,
                        std::uint32_t streamEnd, std::uint32_t isRef, void* data, std::uint32_t size,
                        std::uint32_t /*seqTui*/) {
  gStreamMessages.push({streamEnd != 0, isRef != 0, copied(data, size)});
}

std::optional<Broadcast> nextBroadcast(Clock::time_point deadline) {
  return gBroadcasts.nextUnlessInterrupted(deadline);
}
std::optional<StreamMessage> nextStreamMessage(Clock::time_point deadline) {
  return gStreamMessages.nextUnlessInterrupted(deadline);
}

std::string meaning(std::uint32_t code) {
  switch (code) {
    case KEL_OK:
      return "It succeeded.";
    case KEL_E_CONNECTION:
      return "The connection is not open, or it could not be opened or closed. See that the\n"
             "device is there, and that `kelctl tasks` can read the task table.";
    case KEL_E_ASYNC_TASK:
      return "The task could not be sent: its name is unknown, the device refused it, or too\n"
             "many are open. Look the name up with `kelctl tasks`: case counts.";
    case KEL_E_TASK:
      return "The task's name is unknown, the device refused it, or no answer came in time.\n"
             "Look the name up with `kelctl tasks`: case counts. RxWaitTimeout in Brel.ini\n"
             "says how long an answer is waited for.";
    default:
      return "A result of the pipe library's own.";
  }
}

Reply sendTask(std::uint64_t connection, const std::string& task, const Bytes& payload,
               KEL_StreamCallback streamCallback) {
  void* answer = nullptr;
  std::uint32_t size = 0;
  Reply reply;
  reply.code = KEL_SendReceiveKEL(connection, task.c_str(), 0, payload.data(),
                                  static_cast<std::uint32_t>(payload.size()), &answer, &size, streamCallback);
  const std::unique_ptr<void, decltype(&std::free)> owned(answer, &std::free);
  if (answer != nullptr) reply.payload = copied(answer, size);
  return reply;
}

InFlight sendInFlight(std::uint64_t connection, const std::string& task, std::uint32_t count,
                      const std::function<Bytes(std::uint32_t)>& payloadOf) {
  InFlight outcome;
  Tally& tally = outcome.tally;
  tally.tasks = count;
  const Clock::time_point start = Clock::now();
  for (std::uint32_t i = 0; i < count; ++i) {
    const Bytes payload = payloadOf(i);
    std::uint32_t sequenceNumber = 0;
    const std::uint32_t code =
        KEL_SendReceiveAsyncKEL(connection, task.c_str(), i, payload.data(), static_cast<std::uint32_t>(payload.size()),
                                &sequenceNumber, queueAnswer, nullptr);
    if (code != KEL_OK) ++tally.refused;
  }
  // No deadline: the library owes an outcome to each task that it took.
  while (outcome.answers.size() < count - tally.refused) {
    std::optional<Answer> answer = gAnswers.nextUnlessInterrupted(Clock::time_point::max());
    if (!answer) break;
    ++(answer->errorCode == 0 ? tally.answered : tally.timedOut);
    outcome.answers.push_back(std::move(*answer));
  }
  if (!outcome.answers.empty()) tally.time = outcome.answers.back().arrival - start;
  return outcome;
}

}  // namespace kelctl
