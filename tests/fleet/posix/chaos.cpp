// SPDX-License-Identifier: MIT
// A client on a device behind three NATS servers, of which one after the other is killed or frozen, while its keld is
// killed as well and the device loses answers, delays them and refuses:
//
//     kel_fleet_chaos --seconds N [--seed S]
#include "client/chaos.h"

#include <signal.h>

#include <filesystem>
#include <memory>

#include "fleet/posix/nats_server.h"
#include "kel/fleet.hpp"
#include "support/scratch_directory.h"

namespace kel::test {
namespace {

constexpr std::size_t kServers = 3;

class FleetsWeather final : public Weather {
 public:
  explicit FleetsWeather(const std::filesystem::path& folder) {
    std::string listeners[kServers];
    std::string routes;
    for (std::string& listener : listeners) {
      listener = "127.0.0.1:" + std::to_string(freePort());
      routes += (routes.empty() ? "" : ", ") + ("\"nats://" + listener + "\"");
    }
    for (std::size_t i = 0; i < kServers; ++i) {
      const std::string name = "server" + std::to_string(i);
      std::filesystem::create_directory(folder / name);
      mServers.push_back(
          std::make_unique<NatsServer>(folder / name, "server_name: " + name + "\ncluster { name: chaos, listen: \"" +
                                                          listeners[i] + "\", routes: [" + routes + "] }"));
      mAddresses += (i == 0 ? "" : ",") + mServers.back()->address();
    }
    offer();
  }

  Client begin(Options options) override {
    return fleet::begin("nats://" + mAddresses + "/lab/bench", std::move(options)).value();
  }

  /// A server is killed, or frozen, or keld is killed; after a while it goes on.
  void strike(Random& random) override {
    const std::uint32_t what = Any(random, 4);
    const Milliseconds pause(Any(random, 300));
    NatsServer& server = *mServers[Any(random, kServers)];
    if (what == 0) {
      mKeld->signal(SIGKILL);
      mKeld->wait();
      std::this_thread::sleep_for(pause);
      offer();
    } else if (what == 1) {
      server.freeze();
      std::this_thread::sleep_for(10 * pause);
      server.thaw();
    } else {
      server.kill();
      std::this_thread::sleep_for(pause);
      server.restart();
    }
  }

  std::vector<Level> levels() const override {
    return {{"heap", HeapBytes, 2e6, 2e6},
            {"descriptors", OpenDescriptors, 16, 0},
            {"threads", [] { return std::optional<std::size_t>(LivingThreads()); }, 40, 0}};
  }

 private:
  /// Does not wait until the device is offered: servers may be down.
  void offer() {
    mKeld = std::make_unique<Program>(
        std::vector<std::string>{KELD, "run", "--server", mAddresses, "--site", "lab", "--device", "bench"}, "");
  }

  std::vector<std::unique_ptr<NatsServer>> mServers;
  std::string mAddresses;
  std::unique_ptr<Program> mKeld;
};

}  // namespace
}  // namespace kel::test

int main(int argc, char** argv) {
  using namespace kel::test;
  const ChaosArguments arguments(argc, argv);
  const ScratchDirectory folder;
  folder.writeSettings(kSettings);
  folder.write("SluiceHub.json", Scenario(arguments.seed));
  FleetsWeather weather(folder.path());
  {
    // What a process has from its first connection on is no growth.
    kel::Options options;
    options.supervision.reconnect = true;
    const kel::Client first = weather.begin(options);
    if (!first.waitFor(kel::State::connected, kel::Milliseconds(60'000))) {
      std::fprintf(stderr, "the device cannot be reached: %s\n", first.reason().c_str());
      return 1;
    }
  }
  return Chaos(weather, arguments.seconds, arguments.seed).run();
}
