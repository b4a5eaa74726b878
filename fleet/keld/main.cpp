// SPDX-License-Identifier: MIT
// keld: offers devices on NATS.
#include <CLI/CLI.hpp>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>

#include "keld/Check.h"
#include "keld/Log.h"
#include "keld/Worker.h"
#include "keld/exit_status.h"
#include "keld/posix/Parent.h"

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

  /// What `stop` needs must live as long as the program.
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

struct Arguments {
  WorkerOptions worker;
  std::string directory;
  int devices = 0;
  std::vector<std::string> tags;
  int keptMinutes = 0;
};

void addOptions(CLI::App& app, Arguments& arguments) {
  WorkerOptions& worker = arguments.worker;
  kel::fleet::Access& access = worker.access;
  app.add_option("--site", worker.name.site, "site that the device belongs to")->required();
  app.add_option("--device", worker.name.device, "name of the device, one of its own in the site");
  app.add_option("--table", worker.table, "task table of the device");
  app.add_option("--heartbeat", worker.heartbeat, "task by which the device's link is watched");
  app.add_option("--model", worker.model, "what the device is, for those who look for one");
  app.add_option("--tag", arguments.tags, "KEY=VALUE, likewise; may be given again");
  app.add_option("--directory", arguments.directory, "working directory, with Brel.ini")->check(CLI::ExistingDirectory);
  app.add_option("--metrics", worker.metrics, "HOST:PORT to serve metrics for Prometheus at");
  app.add_option("--replicas", worker.replicas, "copies of the site's bucket, if it is made\nnow, and of broadcasts")
      ->check(CLI::Range(1, 5));
  app.add_option("--keep-broadcasts", arguments.keptMinutes,
                 "MINUTES for which JetStream keeps them;\nelse it does not")
      ->check(CLI::Range(1, 10080));
  app.add_option("--server", access.servers, "NATS servers, HOST or HOST:PORT")->delimiter(',')->required();
  app.add_option("--user", access.user, "user of the NATS servers");
  app.add_option("--password-file", access.passwordFile, "file whose first line is the user's password")
      ->check(CLI::ExistingFile);
  app.add_option("--nkey", access.nkeyFile, "file with the seed of an nkey; FILE.pub has\nits public part")
      ->check(CLI::ExistingFile);
  app.add_option("--credentials", access.credentialsFile, "file with a JWT and its seed")->check(CLI::ExistingFile);
  app.add_option("--ca", access.caFile, "certificates that the servers' must be\nsigned by; turns TLS on")
      ->check(CLI::ExistingFile);
  app.add_option("--certificate", access.certificateFile, "certificate of this client")->check(CLI::ExistingFile);
  app.add_option("--key", access.keyFile, "key of that certificate")->check(CLI::ExistingFile);
}

/// False, and says so, if a tag is none.
bool readTags(Arguments& arguments) {
  for (const std::string& tag : arguments.tags) {
    const std::size_t equals = tag.find('=');
    if (equals == std::string::npos || equals == 0) {
      std::cerr << "keld: a tag is KEY=VALUE, and not " << tag << '\n';
      return false;
    }
    arguments.worker.tags[tag.substr(0, equals)] = tag.substr(equals + 1);
  }
  return true;
}

/// This program's own arguments for each of N devices, named DEVICE-1 and so on, or "device-1" without a name.
std::vector<std::vector<std::string>> workerCommands(int argc, char** argv, const Arguments& arguments) {
  std::vector<std::vector<std::string>> commands;
  const std::string head = arguments.worker.name.device.empty() ? "device" : arguments.worker.name.device;
  for (int i = 1; i <= arguments.devices; ++i) {
    std::vector<std::string> command;
    for (int j = 0; j < argc; ++j) {
      const std::string word = argv[j];
      const bool isDropped = word == "--devices" || word == "--device";
      if (isDropped) ++j;
      if (!isDropped && word.rfind("--devices=", 0) != 0 && word.rfind("--device=", 0) != 0) command.push_back(word);
    }
    command.push_back("--device");
    command.push_back(head + "-" + std::to_string(i));
    commands.push_back(std::move(command));
  }
  return commands;
}

int runWorker(const Arguments& arguments) {
  kel::fleet::setLogDevice(arguments.worker.name.device);
  StopSignals signals;
  // The thread that waits for signals may still hold it when the program ends.
  static kel::fleet::Worker* worker = new kel::fleet::Worker(arguments.worker);
  signals.callWhenTold([] { worker->stop(); });
  return worker->run();
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Offers devices on NATS. docs/fleet.md tells how.");
  app.require_subcommand(1);
  Arguments arguments;
  CLI::App& run = *app.add_subcommand("run", "offer a device until stopped");
  run.add_option("--devices", arguments.devices, "so many devices, each in a process of its\nown, for trials")
      ->check(CLI::Range(1, 1000));
  addOptions(run, arguments);
  CLI::App& check = *app.add_subcommand("check", "tell what would keep a worker from its work");
  addOptions(check, arguments);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kel::fleet::kExitUsage;
  }
  if (!readTags(arguments)) return kel::fleet::kExitUsage;
  arguments.worker.keepBroadcasts = std::chrono::minutes(arguments.keptMinutes);
  if (arguments.devices != 0) return kel::fleet::superviseWorkers(workerCommands(argc, argv, arguments));
  if (!arguments.directory.empty()) std::filesystem::current_path(arguments.directory);
  if (check) return kel::fleet::check(arguments.worker, std::cout) ? 0 : kel::fleet::kExitFailed;
  if (const std::string mistake = kel::fleet::mistakeIn(arguments.worker); !mistake.empty()) {
    std::cerr << "keld: " << mistake << '\n';
    return kel::fleet::kExitUsage;
  }
  return runWorker(arguments);
}
