// SPDX-License-Identifier: MIT
#include "in_flight.h"

#include <algorithm>
#include <utility>

#include "KELHandler.h"

namespace kelctl {

std::uint32_t InFlight::answered() const {
  return static_cast<std::uint32_t>(
      std::count_if(answers.begin(), answers.end(), [](const Answer& answer) { return answer.errorCode == 0; }));
}

InFlight sendInFlight(std::uint64_t connection, const std::string& task, std::uint32_t count,
                      const std::function<Bytes(std::uint32_t)>& payloadOf) {
  InFlight outcome;
  outcome.tasks = count;
  const Clock::time_point start = Clock::now();
  for (std::uint32_t i = 0; i < count; ++i) {
    const Bytes payload = payloadOf(i);
    std::uint32_t sequenceNumber = 0;
    const std::uint32_t code =
        KEL_SendReceiveAsyncKEL(connection, task.c_str(), i, payload.data(), static_cast<std::uint32_t>(payload.size()),
                                &sequenceNumber, queueAnswer, nullptr);
    if (code == KEL_OK) continue;
    ++outcome.refused;
    outcome.refusalCode = code;
  }
  // No deadline: the library owes an outcome to each task that it took.
  while (outcome.answers.size() < count - outcome.refused && !outcome.interrupted) {
    std::optional<Answer> answer = nextAnswer(Clock::time_point::max());
    outcome.interrupted = !answer;
    if (answer) outcome.answers.push_back(std::move(*answer));
  }
  if (!outcome.answers.empty()) outcome.time = outcome.answers.back().arrival - start;
  return outcome;
}

std::string summary(const InFlight& outcome) {
  return std::to_string(outcome.tasks) + (outcome.tasks == 1 ? " task: " : " tasks: ") +
         std::to_string(outcome.answered()) + " answered, " + std::to_string(outcome.timedOut()) + " timed out, " +
         std::to_string(outcome.refused) + " refused, " + timeText(outcome.time);
}

}  // namespace kelctl
