// SPDX-License-Identifier: MIT
// kelfleet: what a site of devices on NATS has, and who may use it now.
#include <CLI/CLI.hpp>
#include <iostream>

#include "kelfleet/verbs.h"

namespace {

using namespace kel::fleet;

std::chrono::milliseconds toMilliseconds(double seconds) {
  return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1e3));
}

CLI::App& addVerb(CLI::App& app, const char* name, const char* help, SiteOptions& site) {
  CLI::App& verb = *app.add_subcommand(name, help);
  verb.add_option("--site", site.uri, "nats://HOST[:PORT][,HOST...]/SITE\n(what KELHANDLER_SITE says)")
      ->envname("KELHANDLER_SITE")
      ->required();
  return verb;
}

void addTags(CLI::App& verb, const char* name, const char* help, Tags& tags) {
  verb.add_option_function<std::vector<std::string>>(
          name,
          [&tags](const std::vector<std::string>& words) {
            for (const std::string& word : words) {
              tags[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
            }
          },
          help)
      ->type_name("KEY=VALUE")
      ->allow_extra_args(false)
      ->check([](const std::string& word) {
        const std::size_t equals = word.find('=');
        return equals == std::string::npos || equals == 0 ? word + " is not KEY=VALUE" : std::string();
      });
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("The devices of a site on NATS. docs/fleet.md tells more.");
  app.require_subcommand(1);
  SiteOptions site;
  Tags tags;
  std::string device;
  double since = 600;
  double wait = 0;
  ReserveOptions which;
  std::vector<std::string> command;

  CLI::App& devices = addVerb(app, "devices", "list the site's devices, links, load and holders", site);
  devices.add_flag("--json", site.json, "print JSON, one object a line");
  addTags(devices, "--tag", "only with this tag, or model; may be given again", tags);

  CLI::App& broadcasts = addVerb(app, "broadcasts", "list the broadcasts of a device that were kept", site);
  broadcasts.add_flag("--json", site.json, "print JSON, one object a line");
  broadcasts.add_option("DEVICE", device, "the device")->required();
  broadcasts.add_option("--since", since, "so many seconds ago, and later (600)")->check(CLI::Range(0.0, 1e9));

  CLI::App& reserving = addVerb(app, "reserve", "reserve a device, run a command, and give it back", site);
  CLI::Option* const named = reserving.add_option("--device", which.device, "this device");
  addTags(reserving, "--any", "any with this tag, or model; may be given again", tags);
  reserving.get_option("--any")->excludes(named);
  reserving.add_option("--wait", wait, "wait in its line for so many seconds (0)")->check(CLI::Range(0.0, 1e9));
  reserving.add_option("--holder", which.holder, "who holds it, for people (your user's name)");
  reserving.add_option("COMMAND", command, "behind --: the command, which finds the device\nin KELHANDLER_DEVICE")
      ->required();

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kWrongUsage;
  }
  if (devices) return listDevices(site, tags);
  if (broadcasts) return listBroadcasts(site, device, toMilliseconds(since));
  if (which.device.empty() && tags.empty()) {
    std::cerr << "kelfleet: --device or --any says which device to reserve\n";
    return kWrongUsage;
  }
  which.tags = tags;
  which.wait = toMilliseconds(wait);
  return reserve(site, which, command);
}
