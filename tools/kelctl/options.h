/* SPDX-License-Identifier: MIT */
// The option tree: how a verb is added to it, and the options that verbs have.
//
// Each verb lies in a file of its own with its options, its help and its action. What the command line asks for is run
// once all of it was found to be right. The package that parses is known to few sources, for it takes long to compile.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "output.h"
#include "payload.h"
#include "status.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace kelctl {

/// What a verb does. Returns the exit status; what goes wrong leaves it as an exception, as a rule a Fault.
using Action = std::function<int(Output&)>;

/// What the command line asks for.
struct Plan {
  bool json = false;
  Action action;
};

/// Adds a verb. The first line of `help` is its summary, without a full stop; `examples` are command lines with a line
/// feed each. A verb may have verbs of its own, and acts if none of them is given.
CLI::App& addVerb(CLI::App& parent, Plan& plan, const std::string& name, const std::string& help,
                  const std::string& examples, const Action& action);

/// The same for an action that has options. They live as long as the tree; a verb may share those of the one above it.
template <class Options>
std::pair<CLI::App&, Options&> addVerb(CLI::App& parent, Plan& plan, const std::string& name, const std::string& help,
                                       const std::string& examples, int (*run)(const Options&, Output&),
                                       const std::shared_ptr<Options>& options = std::make_shared<Options>()) {
  CLI::App& verb = addVerb(parent, plan, name, help, examples,
                           Action([options, run](Output& output) { return run(*options, output); }));
  return {verb, *options};
}

/// Adds a verb that is a heading for verbs of its own: one of them must be given.
CLI::App& addFamily(CLI::App& parent, const std::string& name, const std::string& help, const std::string& examples);

// File names: empty for none. Where a verb says so, "-" stands for a standard stream.

/// Which device a verb works with.
struct WhichDevice {
  std::string uri = "kel:";  ///< as of kel/uri.hpp
  std::string reservation;   ///< the id of one; empty for none

  bool isElsewhere() const { return uri != "kel:"; }
  bool operator==(const WhichDevice&) const = default;
};

/// How a verb reaches its device.
struct LinkOptions {
  WhichDevice device;
  std::string table;              ///< a task table in place of the library's choice
  std::optional<double> timeout;  ///< seconds; none: as the settings say
  std::string watch;              ///< TASK[:SECONDS], "none", or empty for the choice that is made by itself
  bool reconnect = false;

  bool operator==(const LinkOptions&) const = default;
};

void addLink(CLI::App& verb, LinkOptions& link);
void addDevice(CLI::App& verb, WhichDevice& device);

/// At most one of these is there. None: the task's empty payload.
struct PayloadOptions {
  std::vector<std::uint32_t> values;
  std::optional<std::string> hex;
  std::optional<std::string> text;
  std::string inFile;
  bool force = false;  ///< also if it does not fit the task's form
};

/// `instead`: options that make the payload in a way of their own.
void addPayload(CLI::App& verb, PayloadOptions& payload, std::initializer_list<CLI::Option*> instead = {});

// By place.
CLI::Option* addTask(CLI::App& verb, std::string& task);
CLI::Option* addOptionalTask(CLI::App& verb, std::string& task, const std::string& help);
CLI::Option* addFile(CLI::App& verb, std::string& file, const std::string& help);
CLI::Option* addNewFile(CLI::App& verb, std::string& file, const std::string& help);
CLI::Option* addQuery(CLI::App& verb, std::string& query, const std::string& help);

// By name. `unit` is what the option takes, as the help calls it.
CLI::Option* addFlag(CLI::App& verb, const std::string& name, bool& flag, const std::string& help);
CLI::Option* addNumber(CLI::App& verb, const std::string& name, const std::string& unit,
                       std::optional<std::uint32_t>& number, const std::string& help, std::uint32_t least = 0,
                       std::uint32_t most = UINT32_MAX);
CLI::Option* addSeconds(CLI::App& verb, const std::string& name, std::optional<double>& seconds,
                        const std::string& help);
CLI::Option* addText(CLI::App& verb, const std::string& name, const std::string& unit, std::optional<std::string>& text,
                     const std::string& help);
CLI::Option* addTasks(CLI::App& verb, const std::string& name, std::vector<std::string>& tasks,
                      const std::string& help);
CLI::Option* addFolder(CLI::App& verb, const std::string& name, std::string& folder, const std::string& help);
CLI::Option* addTable(CLI::App& verb, std::string& table);
/// `what` goes to the file, and so not to standard output as JSON.
CLI::Option* addOut(CLI::App& verb, std::string& file, const std::string& what);

/// Only one of two may be given.
void exclude(CLI::Option* one, std::initializer_list<CLI::Option*> others);

// The verbs.
void addDemo(CLI::App& app, Plan& plan);
void addSend(CLI::App& app, Plan& plan);
void addStream(CLI::App& app, Plan& plan);
void addListen(CLI::App& app, Plan& plan);
void addPing(CLI::App& app, Plan& plan);
void addMonitor(CLI::App& app, Plan& plan);
void addShell(CLI::App& app, Plan& plan);
void addTasks(CLI::App& app, Plan& plan);
void addValidate(CLI::App& app, Plan& plan);
void addDecode(CLI::App& app, Plan& plan);
void addScenario(CLI::App& app, Plan& plan);
void addConsole(CLI::App& app, Plan& plan);
void addCompletion(CLI::App& app, Plan& plan);
void addVersion(CLI::App& app, Plan& plan);

}  // namespace kelctl
