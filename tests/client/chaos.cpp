// SPDX-License-Identifier: MIT
// A client on a device of its own process that loses answers, delays them, drops the link and refuses connects:
//
//     kel_chaos --seconds N [--seed S]
#include "client/chaos.h"

#include "SluiceHubSim.h"
#include "support/registry_settings.h"
#include "support/scratch_directory.h"

namespace kel::test {
namespace {

class StandInsWeather final : public Weather {
 public:
  Client begin(Options options) override { return Client::begin(std::move(options)); }

  /// Drops the link, and has connects fail for a while.
  void strike(Random& random) override {
    if (Any(random, 3) == 0) SluiceHubSim_ForceResult(SLUICEHUBSIM_L5_CONNECT, 1);
    SluiceHubSim_LoseLink(0, 1, 0);
    std::this_thread::sleep_for(Milliseconds(Any(random, 300)));
    SluiceHubSim_UnforceResult(SLUICEHUBSIM_L5_CONNECT);
  }

  std::vector<Level> levels() const override {
    // The library keeps the handle of a thread that a disconnect finds at work, and so its object.
    return {{"heap", HeapBytes, 1e6, 1e6, 32},
            {"handles", OpenHandles, 160, 8, 1},
            {"descriptors", OpenDescriptors, 2, 0},
            {"threads", [] { return std::optional<std::size_t>(LivingThreads()); }, 40, 0}};
  }
};

}  // namespace
}  // namespace kel::test

int main(int argc, char** argv) {
  using namespace kel::test;
  const ChaosArguments arguments(argc, argv);
  const ScratchDirectory folder;
  const RegistrySettings registry;
  folder.writeSettings(kSettings);
  folder.write("SluiceHub.json", Scenario(arguments.seed));
  const kel::Library library;
  // What a process has from its first connection on is no growth.
  (void)kel::Client::connect();
  StandInsWeather weather;
  return Chaos(weather, arguments.seconds, arguments.seed).run();
}
