// keld: offers devices on NATS.
#include <CLI/CLI.hpp>

#include <csignal>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>

#include "keld/Log.h"
#include "keld/Worker.h"

namespace {

using kel::fleet::WorkerOptions;

/// SIGINT and SIGTERM are taken by a thread that waits for them, so that what they start may lock and allocate.
class StopSignals {
 public:
  StopSignals() {
    sigemptyset(&mSignals);
    sigaddset(&mSignals, SIGINT);
    sigaddset(&mSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &mSignals, nullptr);
  }

  void callWhenTold(std::function<void()> stop) {
    std::thread([signals = mSignals, stop = std::move(stop)] {
      int signal = 0;
      sigwait(&signals, &signal);
      stop();
    }).detach();
  }

 private:
  sigset_t mSignals;
};

void addAccess(CLI::App& app, kel::fleet::Access& access) {
  app.add_option("--server", access.servers, "NATS servers, HOST or HOST:PORT")->delimiter(',')->required();
  app.add_option("--user", access.user, "user of the NATS servers")
      ->needs(app.add_option("--password-file", access.passwordFile, "file whose first line is the user's password")
                  ->check(CLI::ExistingFile));
  app.add_option("--nkey", access.nkeyFile, "file with the seed of an nkey")->check(CLI::ExistingFile);
  app.add_option("--credentials", access.credentialsFile, "file with a JWT and its seed")->check(CLI::ExistingFile);
  app.add_option("--ca", access.caFile, "certificates that the servers' must be signed by; turns TLS on")
      ->check(CLI::ExistingFile);
  app.add_option("--certificate", access.certificateFile, "certificate of this client")->check(CLI::ExistingFile);
  app.add_option("--key", access.keyFile, "key of that certificate")->check(CLI::ExistingFile);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Offers devices on NATS.");
  app.require_subcommand(1);
  CLI::App& run = *app.add_subcommand("run", "offer a device until stopped");
  WorkerOptions options;
  std::string directory;
  run.add_option("--site", options.name.site, "site that the device belongs to")->required();
  run.add_option("--device", options.name.device, "name of the device, one of its own in the site")->required();
  run.add_option("--table", options.table, "task table of the device");
  run.add_option("--heartbeat", options.heartbeat, "task by which the device's link is watched");
  run.add_option("--model", options.model, "what the device is, for those who look for one");
  run.add_option("--directory", directory, "working directory, with Brel.ini")->check(CLI::ExistingDirectory);
  run.add_option("--metrics", options.metrics, "HOST:PORT to serve metrics for Prometheus at");
  run.add_option("--replicas", options.replicas, "copies of the site's bucket, if it is made now")
      ->check(CLI::Range(1, 5));
  addAccess(run, options.access);
  CLI11_PARSE(app, argc, argv);

  if (!directory.empty()) std::filesystem::current_path(directory);
  kel::fleet::setLogDevice(options.name.device);
  StopSignals signals;
  kel::fleet::Worker worker(options);
  signals.callWhenTold([&worker] { worker.stop(); });
  return worker.run();
}
