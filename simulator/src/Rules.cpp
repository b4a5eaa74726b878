#include "Rules.h"

namespace kel::sim {

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
