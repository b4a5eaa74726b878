// SPDX-License-Identifier: MIT
#include "options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "platform/text.h"

namespace kelctl {
namespace {

constexpr double kMostSeconds = 1e9;

/// The library looks twice at a table, which a pipe does not allow, and waits for the pipe's writer.
std::string checkRegularFile(const std::string& name) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(pathOf(name), error);
  if (!std::filesystem::exists(status)) return name + " does not exist";
  return std::filesystem::is_regular_file(status) ? std::string() : name + " is no regular file";
}

/// Anything that can be read: a pipe as well.
std::string checkFile(const std::string& name) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(pathOf(name), error);
  if (!std::filesystem::exists(status)) return name + " does not exist";
  return std::filesystem::is_directory(status) ? name + " is a folder" : std::string();
}

std::string checkFolder(const std::string& name) {
  std::error_code error;
  return std::filesystem::is_directory(pathOf(name), error) ? std::string() : name + " is no folder";
}

std::string checkHex(const std::string& text) {
  return fromHex(text) ? std::string() : "\"" + text + "\" is not pairs of hexadecimal digits";
}

std::string checkValue(const std::string& text) {
  return toNumber(text) ? std::string() : "\"" + text + "\" is not a number from 0 to 4294967295";
}

std::string checkSeconds(const std::string& text) {
  char* end = nullptr;
  const double seconds = std::strtod(text.c_str(), &end);
  return end != text.c_str() && *end == '\0' && seconds >= 0 && seconds <= kMostSeconds
             ? std::string()
             : "\"" + text + "\" is not a number of seconds";
}

std::string checkWatch(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) return {};
  const std::string seconds = text.substr(colon + 1);
  return checkSeconds(seconds).empty() && std::strtod(seconds.c_str(), nullptr) > 0
             ? std::string()
             : "\"" + text + "\" is not TASK or TASK:SECONDS";
}

}  // namespace

CLI::App& addVerb(CLI::App& parent, Plan& plan, const std::string& name, const std::string& help,
                  const std::string& examples, const Action& action) {
  CLI::App& verb = *parent.add_subcommand(name, help);
  verb.footer(examples);
  verb.require_subcommand(0, 1);
  verb.add_flag("--json", plan.json, "Print JSON, one object a line");
  // The verbs of a verb come first.
  verb.callback([action, &plan] {
    if (!plan.action) plan.action = action;
  });
  return verb;
}

CLI::App& addFamily(CLI::App& parent, const std::string& name, const std::string& help, const std::string& examples) {
  CLI::App& verb = *parent.add_subcommand(name, help);
  verb.footer(examples);
  verb.require_subcommand(1);
  return verb;
}

void addDevice(CLI::App& verb, WhichDevice& device) {
  verb.add_option("--device", device.uri,
                  "The device: nats://HOST[,HOST]/SITE/DEVICE, a name that ~/.config/kelhandler/fleet.json has such a "
                  "URI for, or kel: for the one of this host (kel:, or what KELHANDLER_DEVICE says)")
      ->envname("KELHANDLER_DEVICE")
      ->type_name("URI")
      ->group("Link");
  verb.add_option("--reservation", device.reservation, "Send under the reservation with this id, if it is reserved")
      ->envname("KELHANDLER_RESERVATION")
      ->type_name("ID")
      ->group("Link");
}

void addLink(CLI::App& verb, LinkOptions& link) {
  addDevice(verb, link.device);
  addTable(verb, link.table);
  CLI::Option* const options[] = {
      addSeconds(verb, "--timeout", link.timeout,
                 "Wait so long for an answer (RxWaitTimeout of Brel.ini, which is the most)"),
      verb.add_option("--watch", link.watch,
                      "Send TASK after each so many SECONDS of silence (2), and if it is not answered three times, end "
                      "with status 4. The stand-in gets TASK_ID_VERSIONS_GET_UIDS unless this says \"none\". A real "
                      "device gets nothing that is not asked for here: then a link that is lost in silence goes "
                      "unnoticed")
          ->type_name("TASK[:SECONDS]")
          ->check(checkWatch),
      addFlag(verb, "--reconnect", link.reconnect,
              "Connect again when the link is lost or the device not there, with growing pauses, and go on")};
  for (CLI::Option* option : options) option->group("Link");
}

void addPayload(CLI::App& verb, PayloadOptions& payload, std::initializer_list<CLI::Option*> instead) {
  // The package's groups of options will not do: it takes an empty word for the name of one, and then never ends.
  const std::vector<CLI::Option*> options{
      verb.add_option("--val", payload.values, "Three values, as in C: 10, 0xa")
          ->expected(3)
          ->type_name("A B C")
          ->check(checkValue),
      verb.add_option("--hex", payload.hex, "Bytes as pairs of hexadecimal digits")
          ->type_name("BYTES")
          ->check(checkHex),
      verb.add_option("--text", payload.text, "A text and the zero byte that ends it")->type_name("TEXT"),
      verb.add_option("--in", payload.inFile, "Bytes from a file, - for standard input")->type_name("FILE")};
  constexpr char kGroup[] = "Payload (none: three zeros for a VAL task, nothing for a REF task)";
  addFlag(verb, "--force", payload.force, "Send a payload that does not fit the task's form")->group(kGroup);
  for (auto option = options.begin(); option != options.end(); ++option) {
    (*option)->group(kGroup);
    std::for_each(options.begin(), option, [&](CLI::Option* other) { (*option)->excludes(other); });
    exclude(*option, instead);
  }
}

CLI::Option* addTask(CLI::App& verb, std::string& task) {
  return addOptionalTask(verb, task,
                         "Name of the task in any case, also without TASK_ID_, or its TUI; `kelctl tasks` lists them")
      ->required();
}

CLI::Option* addOptionalTask(CLI::App& verb, std::string& task, const std::string& help) {
  return verb.add_option("TASK", task, help);
}

CLI::Option* addFile(CLI::App& verb, std::string& file, const std::string& help) {
  return verb.add_option("FILE", file, help)->required()->check(checkFile);
}

CLI::Option* addNewFile(CLI::App& verb, std::string& file, const std::string& help) {
  return verb.add_option("FILE", file, help);
}

CLI::Option* addQuery(CLI::App& verb, std::string& query, const std::string& help) {
  return verb.add_option("QUERY", query, help)->required();
}

CLI::Option* addFlag(CLI::App& verb, const std::string& name, bool& flag, const std::string& help) {
  return verb.add_flag(name, flag, help);
}

CLI::Option* addNumber(CLI::App& verb, const std::string& name, const std::string& unit,
                       std::optional<std::uint32_t>& number, const std::string& help, std::uint32_t least,
                       std::uint32_t most) {
  return verb.add_option(name, number, help)->type_name(unit)->check(CLI::Range(least, most).description(""));
}

CLI::Option* addSeconds(CLI::App& verb, const std::string& name, std::optional<double>& seconds,
                        const std::string& help) {
  return verb.add_option(name, seconds, help)->type_name("SECONDS")->check(checkSeconds);
}

CLI::Option* addTasks(CLI::App& verb, const std::string& name, std::vector<std::string>& tasks,
                      const std::string& help) {
  return verb.add_option(name, tasks, help)->type_name("TASK")->allow_extra_args(false);
}

CLI::Option* addText(CLI::App& verb, const std::string& name, const std::string& unit, std::optional<std::string>& text,
                     const std::string& help) {
  return verb.add_option(name, text, help)->type_name(unit);
}

CLI::Option* addFolder(CLI::App& verb, const std::string& name, std::string& folder, const std::string& help) {
  return verb.add_option(name, folder, help)->type_name("DIR")->check(checkFolder);
}

CLI::Option* addTable(CLI::App& verb, std::string& table) {
  return verb.add_option("--table", table, "Task table to use instead of the built-in one")
      ->type_name("FILE")
      ->check(checkRegularFile);
}

CLI::Option* addOut(CLI::App& verb, std::string& file, const std::string& what) {
  return verb.add_option("--out", file, what + " to a file, - for standard output")
      ->type_name("FILE")
      ->excludes("--json");
}

void exclude(CLI::Option* one, std::initializer_list<CLI::Option*> others) {
  for (CLI::Option* other : others) one->excludes(other);
}

}  // namespace kelctl
