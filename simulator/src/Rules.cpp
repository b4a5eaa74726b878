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
  add(Has(SLUICEHUBSIM_DROP), "no response");
  add(what.delayMs != 0, count(what.delayMs) + " ms late");
  add(what.holdBack != 0, "behind " + count(what.holdBack) + " later responses");
  add(Has(SLUICEHUBSIM_BEFORE_REPLY), "response before reply");
  add(what.copies != 0, count(what.copies) + " more copies");
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
  Rule rule{.what = what, .data = {}, .number = ++mLastNumber};
  if (what.data != nullptr) {
    const auto* bytes = static_cast<const std::uint8_t*>(what.data);
    rule.data.assign(bytes, bytes + what.dataSize);
  }
  rule.what.data = nullptr;
  mRules.push_back(std::move(rule));
  return mLastNumber;
}

std::uint32_t Rules::Uses(std::uint32_t number) const {
  for (const Rule& rule : mRules) {
    if (rule.number == number) return rule.uses;
  }
  return 0;
}

const Rule* Rules::Match(std::uint32_t TUI) {
  for (Rule& rule : mRules) {
    if (((TUI ^ rule.what.tui) & rule.what.tuiMask) != 0) continue;
    if (rule.matched < rule.what.skip) {
      ++rule.matched;
      continue;
    }
    if (rule.what.times != 0 && rule.uses == rule.what.times) continue;
    ++rule.uses;
    return &rule;
  }
  return nullptr;
}

}  // namespace kel::sim
