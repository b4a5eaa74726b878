// SPDX-License-Identifier: MIT
// The reader of scenarios. Whatever the text is:
//   - it is read to an end, twice with the same result;
//   - there is a scenario or a mistake, mistakes come in the order of their lines, and none has a line behind the text;
//   - a mistake can be printed: it holds nothing that moves a terminal's cursor;
//   - what was read without a mistake keeps the limits that the stand-in counts on.
#include "Scenario.h"

#include <algorithm>

#include "target.h"

namespace kel::fuzz {
namespace {

constexpr std::uint32_t kOneDay = 86400000;
constexpr std::uint32_t kLargestTUI = 0xFFFFFF;

void CheckPayload(const std::shared_ptr<const sim::Payload>& payload, std::uint32_t size) {
  Promise(size <= sim::kLargestScenarioFile, "a series has payloads of a size that can be made");
  if (payload == nullptr) return;
  Promise(payload->type <= 1, "a payload is VAL or REF");
  Promise(payload->type != 0 || payload->bytes.size() == 12, "a VAL payload has three values");
}

void CheckScenario(const sim::Scenario& scenario) {
  for (const sim::RuleTerms& rule : scenario.rules) {
    Promise(rule.what.tui <= kLargestTUI, "a rule's task has 24 bits");
    Promise(rule.what.delayMs <= kOneDay && rule.jitterMs <= kOneDay && rule.what.streamIntervalMs <= kOneDay,
            "no delay is longer than a day");
    Promise(rule.dropChance <= 1ull << 32, "a chance is one at most");
    Promise(rule.what.data == nullptr, "a rule's data is its copy");
    CheckPayload(rule.streamPayload, rule.what.streamPayloadSize);
  }
  for (const sim::PlannedBroadcasts& plan : scenario.broadcasts) {
    Promise(plan.TUI <= kLargestTUI && plan.atMs <= kOneDay && plan.everyMs <= kOneDay, "a broadcast has its limits");
    Promise(plan.count == 1 || plan.everyMs != 0, "broadcasts that repeat have time in between");
    CheckPayload(plan.payload, plan.payloadSize);
  }
  for (const sim::PlannedControlStatus& planned : scenario.controlStatus) {
    Promise(planned.atMs <= kOneDay, "the control status changes in a day");
  }
  for (const sim::PlannedLoss& loss : scenario.linkLosses) Promise(loss.atMs <= kOneDay, "a link is lost in a day");
  for (const sim::SocketRefusal& no : scenario.socketRefusals) {
    Promise(no.fromMs < no.untilMs, "a refusal holds at some time");
  }
}

void CheckMistakes(const std::vector<sim::Mistake>& mistakes, std::uint32_t lines) {
  const auto behind = [](const sim::Mistake& one, const sim::Mistake& other) { return one.line < other.line; };
  Promise(std::is_sorted(mistakes.begin(), mistakes.end(), behind), "mistakes come by line");
  for (const sim::Mistake& mistake : mistakes) {
    Promise(mistake.line <= lines, "a mistake is inside of the text");
    for (const char c : sim::TextOf("file", mistake)) {
      Promise(static_cast<unsigned char>(c) >= ' ' && c != 0x7F, "a mistake holds no control character");
    }
  }
}

std::string Told(const sim::Reading& reading) {
  std::string told;
  for (const sim::Mistake& mistake : reading.mistakes) told += sim::TextOf("file", mistake) + '\n';
  return told;
}

}  // namespace
}  // namespace kel::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kel::fuzz;
  static const bool prepared = (Folder().write("payload.bin", "a payload"), true);
  static_cast<void>(prepared);
  const std::string text(reinterpret_cast<const char*>(data), size);
  const kel::sim::Reading reading = kel::sim::ReadScenario(text, "");
  Promise(Told(kel::sim::ReadScenario(text, "")) == Told(reading), "a text reads the same twice");
  CheckMistakes(reading.mistakes, static_cast<std::uint32_t>(std::count(text.begin(), text.end(), '\n')) + 1);
  if (reading.mistakes.empty()) CheckScenario(reading.scenario);
  return 0;
}
