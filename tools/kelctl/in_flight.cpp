#include "in_flight.h"

#include <algorithm>

#include "KELHandler.h"

namespace kelctl {

std::uint32_t InFlight::answered() const {
  return static_cast<std::uint32_t>(
      std::count_if(answers.begin(), answers.end(), [](const Answer& answer) { return answer.errorCode == 0; }));
}

InFlight sendInFlight(std::uint64_t connection, const std::string& task, std::uint32_t count,
                      const std::function<Bytes(std::uint32_t)>& payloadOf) {
  InFlight outcome;
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
  while (outcome.answers.size() < count - outcome.refused) outcome.answers.push_back(nextAnswer());
  if (!outcome.answers.empty()) outcome.time = outcome.answers.back().arrival - start;
  return outcome;
}

std::string summary(const InFlight& outcome) {
  const auto tasks = static_cast<std::uint32_t>(outcome.answers.size()) + outcome.refused;
  return std::to_string(tasks) + (tasks == 1 ? " task: " : " tasks: ") + std::to_string(outcome.answered()) +
         " answered, " + std::to_string(outcome.timedOut()) + " timed out, " + std::to_string(outcome.refused) +
         " refused, " + timeText(outcome.time);
}

}  // namespace kelctl
