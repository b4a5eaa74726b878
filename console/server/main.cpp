// SPDX-License-Identifier: MIT
// kelconsole: a device in the browser.
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <thread>

#include "Consoles.h"
#include "Server.h"
#include "host.h"

namespace kel::console {
namespace {

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;
constexpr std::size_t kShortestToken = 16;

struct Arguments {
  Device::Settings device;
  std::string site;  ///< empty: the device of the settings
  Listening listening;
  std::string tokenFile;
  double timeout = 10;
};

void addOptions(CLI::App& app, Arguments& arguments) {
  auto* const device =
      app.add_option("--device", arguments.device.uri,
                     "The device: \"kel:\" is this host's own,\nnats://HOST/SITE/DEVICE another host's")
          ->capture_default_str();
  app.add_option("--fleet", arguments.site, "All devices of a site in its place:\nnats://HOST[,HOST]/SITE")
      ->excludes(device);
  app.add_option("--table", arguments.device.table, "A task table in place of the one that the\nsettings name");
  app.add_option("--heartbeat", arguments.device.heartbeat,
                 "A task that the device answers at once: it is\nsent while nothing else comes, to watch the link");
  app.add_option("--timeout", arguments.timeout, "Seconds that a task waits for its answer")
      ->check(CLI::Range(0.001, 3600.0))
      ->capture_default_str();
  app.add_option("--port", arguments.listening.port, "The port; 0 for any that is free")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  app.add_option("--listen", arguments.listening.address,
                 "The address. One that other hosts can reach\nneeds a token and TLS")
      ->capture_default_str();
  app.add_option("--name", arguments.listening.names,
                 "A name by which browsers ask for that address;\nmay be repeated");
  app.add_option("--token-file", arguments.tokenFile, "The first line of this file is asked for in\nthe browser");
  auto* const certificate =
      app.add_option("--certificate", arguments.listening.certificateFile, "For TLS: the certificate, with its chain");
  auto* const key = app.add_option("--key", arguments.listening.keyFile, "For TLS: its key");
  certificate->needs(key);
  key->needs(certificate);
}

void addAccess(CLI::App& app, fleet::Access& access) {
  app.add_option("--user", access.user, "For NATS: the user");
  app.add_option("--password-file", access.passwordFile, "For NATS: a file whose first line is the\nuser's password")
      ->check(CLI::ExistingFile);
  app.add_option("--nkey", access.nkeyFile, "For NATS: a file with the seed of an nkey;\nFILE.pub has its public part")
      ->check(CLI::ExistingFile);
  app.add_option("--credentials", access.credentialsFile, "For NATS: a file with a JWT and its seed")
      ->check(CLI::ExistingFile);
  app.add_option("--ca", access.caFile, "For NATS: certificates that the servers' must\nbe signed by; turns TLS on")
      ->check(CLI::ExistingFile);
  app.add_option("--client-certificate", access.certificateFile, "For NATS: the console's own certificate")
      ->check(CLI::ExistingFile);
  app.add_option("--client-key", access.keyFile, "For NATS: its key")->check(CLI::ExistingFile);
}

/// Throws std::runtime_error with what is wrong.
void check(Arguments& arguments) {
  if (const auto address = fleet::addressOf(arguments.device.uri); !address) {
    throw std::runtime_error("--device " + arguments.device.uri + ": " + address.error().subject);
  }
  arguments.device.timeout = Milliseconds(static_cast<std::int64_t>(arguments.timeout * 1000));
  Listening& listening = arguments.listening;
  if (!arguments.tokenFile.empty()) {
    std::ifstream file(arguments.tokenFile);
    std::getline(file, listening.token);
    if (listening.token.size() < kShortestToken) {
      throw std::runtime_error("the first line of " + arguments.tokenFile + " is no token of at least " +
                               std::to_string(kShortestToken) + " characters");
    }
  }
  const bool isLoopback = listening.address.rfind("127.", 0) == 0 || listening.address == "::1";
  if (!isLoopback && (listening.token.empty() || listening.certificateFile.empty())) {
    throw std::runtime_error("other hosts can reach " + listening.address +
                             ": that needs --token-file, --certificate and --key");
  }
}

std::unique_ptr<Consoles> open(const Arguments& arguments) {
  if (arguments.site.empty()) return std::make_unique<Consoles>(arguments.device);
  auto site = fleet::Site::open(arguments.site, arguments.device.access);
  if (!site) throw std::runtime_error("--fleet " + arguments.site + ": " + site.error().subject);
  return std::make_unique<Consoles>(arguments.device, *std::move(site), arguments.site);
}

int run(int argc, char** argv) {
  CLI::App app{"Show a device in the browser", "kelconsole"};
  app.set_version_flag("--version", "kelconsole " KELCONSOLE_VERSION);
  Arguments arguments;
  arguments.device.uri = "kel:";
  addOptions(app, arguments);
  addAccess(app, arguments.device.access);
  try {
    app.parse(argc, argv);
    check(arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kWrongUsage;
  } catch (const std::exception& error) {
    std::cerr << "kelconsole: " << error.what() << '\n';
    return kWrongUsage;
  }

  keepSignals();
  setDefault("KELHANDLER_RELEASE_BLOCKS", "1");
  try {
    const std::unique_ptr<Consoles> consoles = open(arguments);
    Server server(*consoles, arguments.listening);
    if (arguments.site.empty()) consoles->find("").value();
    std::cout << "The console is at " << server.url() << "\nCtrl-C ends it." << std::endl;
    std::thread serving([&server] { server.run(); });
    awaitEnd();
    server.stop();
    serving.join();
  } catch (const std::exception& error) {
    std::cerr << "kelconsole: " << error.what() << '\n';
    return kFailed;
  }
  return 0;
}

}  // namespace
}  // namespace kel::console

int main(int argc, char** argv) { return kel::console::run(argc, argv); }
