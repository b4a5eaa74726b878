// SPDX-License-Identifier: MIT
#include "Results.h"

#include <array>
#include <atomic>

#include "Export.h"

namespace kel::sim {
namespace {

struct FunctionState {
  std::atomic<std::uint64_t> forced{0};  ///< kForced with the result in the lower half, or 0
  std::atomic<std::uint32_t> calls{0};
};

constexpr std::uint64_t kForced = std::uint64_t{1} << 32;

std::array<FunctionState, SLUICEHUBSIM_FUNCTION_COUNT> gFunctions;

/// Null for a number that names no function.
FunctionState* StateOf(SluiceHubSimFunction function) {
  const auto index = static_cast<std::size_t>(function);
  return index < gFunctions.size() ? &gFunctions[index] : nullptr;
}

}  // namespace

std::optional<std::uint32_t> EnterFunction(SluiceHubSimFunction function) {
  FunctionState& state = gFunctions[static_cast<std::size_t>(function)];
  state.calls.fetch_add(1, std::memory_order_relaxed);
  const std::uint64_t forced = state.forced.load(std::memory_order_relaxed);
  if ((forced & kForced) == 0) return std::nullopt;
  return static_cast<std::uint32_t>(forced);
}

void ResetResults() {
  for (FunctionState& state : gFunctions) {
    state.forced = 0;
    state.calls = 0;
  }
}

}  // namespace kel::sim

extern "C" {

SLUICE_HUB_EXPORT void SluiceHubSim_ForceResult(SluiceHubSimFunction function, uint32_t result) {
  if (auto* state = kel::sim::StateOf(function)) state->forced = kel::sim::kForced | result;
}

SLUICE_HUB_EXPORT void SluiceHubSim_UnforceResult(SluiceHubSimFunction function) {
  if (auto* state = kel::sim::StateOf(function)) state->forced = 0;
}

SLUICE_HUB_EXPORT uint32_t SluiceHubSim_Calls(SluiceHubSimFunction function) {
  const auto* state = kel::sim::StateOf(function);
  return state != nullptr ? state->calls.load() : 0;
}

}  // extern "C"
