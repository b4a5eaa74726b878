// SPDX-License-Identifier: MIT
#include "Rules.h"

namespace kel::sim {

std::string Rule::Describe() const {
  std::string text = "rule " + std::to_string(number);
  const char* mark = ": ";
  const auto add = [&](bool holds, const std::string& words) {
    if (!holds) return;
    text += mark + words;
    mark = ", ";
  };
  const auto count = [](std::uint32_t n) { return std::to_string(n); };
  add(what.sendStatus != 0, "send status " + count(what.sendStatus));
  add(what.replyID != 0, "reply ID " + count(what.replyID));
  add(what.L4status != 0, "L4 status " + count(what.L4status));
  add(lostLinkReason.has_value(), "link lost");
  add(drops, "no response");
  add(delayMs != 0, count(delayMs) + " ms late");
  add(what.holdBack != 0, "behind " + count(what.holdBack) + " later responses");
  add(Has(SLUICEHUBSIM_BEFORE_REPLY), "response before reply");
  add(what.copies != 0, count(what.copies) + " more copies");
  add(echo, "echo");
  add(Has(SLUICEHUBSIM_DATA), "own payload");
  add(Has(SLUICEHUBSIM_BODY), "own body");
  add(Has(SLUICEHUBSIM_TYPE), "type " + count(what.type));
  add(Has(SLUICEHUBSIM_CLASS), "class " + count(what.seqClass));
  add(what.errorCode != 0, "error code " + count(what.errorCode));
  add(Has(SLUICEHUBSIM_STREAM), "stream of " + count(what.streamCount));
  add(Has(SLUICEHUBSIM_NO_END), "no end");
  add(Has(SLUICEHUBSIM_ACK_LAST), "acknowledgement last");
  return text;
}

std::uint32_t Rules::Add(const SluiceHubSimRule& what) {
  RuleTerms terms;
  terms.what = what;
  if (what.data != nullptr) {
    const auto* bytes = static_cast<const std::uint8_t*>(what.data);
    terms.data.assign(bytes, bytes + what.dataSize);
  }
  terms.what.data = nullptr;
  return Add(terms);
}

std::uint32_t Rules::Add(const RuleTerms& terms) {
  mRules.push_back({terms, ++mLastNumber, {.skip = terms.what.skip, .times = terms.what.times}});
  return mLastNumber;
}

std::uint32_t Rules::Uses(std::uint32_t number) const {
  for (const Rule& rule : mRules) {
    if (rule.number == number) return rule.turns.taken;
  }
  return 0;
}

const Rule* Rules::Match(std::uint32_t TUI) {
  for (Rule& rule : mRules) {
    if (((TUI ^ rule.what.tui) & rule.what.tuiMask) != 0 || !rule.turns.Take()) continue;
    Draw(rule);
    return &rule;
  }
  return nullptr;
}

/// The standard's distributions differ from platform to platform; the numbers themselves, of 32 bits, do not.
void Rules::Draw(Rule& rule) {
  rule.delayMs = rule.what.delayMs;
  if (rule.jitterMs != 0) {
    rule.delayMs += static_cast<std::uint32_t>(std::uint64_t{mRandom()} * (std::uint64_t{rule.jitterMs} + 1) >> 32);
  }
  rule.drops = rule.Has(SLUICEHUBSIM_DROP) || (rule.dropEvery != 0 && rule.turns.taken % rule.dropEvery == 0);
  if (rule.dropChance != 0) rule.drops = mRandom() < rule.dropChance;
}

}  // namespace kel::sim
