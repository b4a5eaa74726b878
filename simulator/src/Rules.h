/* SPDX-License-Identifier: MIT */
// The rules by which tests, users and scenarios replace the answers to task requests. Guarded by the hub's lock.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "Scenario.h"
#include "SluiceHubSim.h"

namespace kel::sim {

struct Rule : RuleTerms {
  std::uint32_t number = 0;
  Turns turns;

  // For the request that it holds for now.
  std::uint32_t delayMs = 0;
  bool drops = false;

  bool Has(std::uint32_t flag) const { return (what.flags & flag) != 0; }
  /// What it does, in words for a capture.
  std::string Describe() const;
  /// It says itself what comes back, so that the device need not know the task.
  bool Answers() const {
    return echo || Has(SLUICEHUBSIM_DATA | SLUICEHUBSIM_BODY | SLUICEHUBSIM_STREAM | SLUICEHUBSIM_DROP);
  }
};

class Rules {
 public:
  std::uint32_t Add(const SluiceHubSimRule& what);
  std::uint32_t Add(const RuleTerms& terms);
  void Clear() { mRules.clear(); }
  std::uint32_t Uses(std::uint32_t number) const;
  /// Starts the random numbers again from `seed`. All rules draw from one row of them, in the order of requests.
  void Seed(std::uint32_t seed) { mRandom.seed(seed); }
  /// The rule that holds for a request, which this counts; null if none does. Valid until the rules change.
  const Rule* Match(std::uint32_t TUI);

 private:
  void Draw(Rule& rule);

  std::vector<Rule> mRules;
  std::uint32_t mLastNumber = 0;
  std::mt19937 mRandom;
};

}  // namespace kel::sim
