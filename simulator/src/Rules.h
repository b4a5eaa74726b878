// The rules by which tests and users replace the answers to task requests. Guarded by the hub's lock.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "SluiceHubSim.h"

namespace kel::sim {

struct Rule {
  SluiceHubSimRule what;           ///< its `data` is not used
  std::vector<std::uint8_t> data;  ///< but this copy
  std::uint32_t number;
  std::uint32_t matched = 0;
  std::uint32_t uses = 0;

  bool Has(std::uint32_t flag) const { return (what.flags & flag) != 0; }
  /// What it does, in words for a capture.
  std::string Describe() const;
  /// It says itself what comes back, so that the device need not know the task.
  bool Answers() const { return Has(SLUICEHUBSIM_DATA | SLUICEHUBSIM_BODY | SLUICEHUBSIM_STREAM | SLUICEHUBSIM_DROP); }
};

class Rules {
 public:
  std::uint32_t Add(const SluiceHubSimRule& what);
  void Clear() { mRules.clear(); }
  std::uint32_t Uses(std::uint32_t number) const;
  /// The rule that holds for a request, which this counts; null if none does. Valid until the rules change.
  const Rule* Match(std::uint32_t TUI);

 private:
  std::vector<Rule> mRules;
  std::uint32_t mLastNumber = 0;
};

}  // namespace kel::sim
