// SPDX-License-Identifier: MIT
// One page about an installation: what is loaded, which settings are in force and from where, whether the device
// answers, and what to do about what is wrong.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>

#include "bare_calls.h"
#include "diagnosis.h"
#include "files.h"
#include "help.h"
#include "interrupt.h"
#include "kel/tasks.hpp"
#include "platform/libraries.h"
#include "settings.h"
#include "table_check.h"
#include "task_table.h"
#include "version.h"

namespace kelctl {
namespace {

struct DoctorOptions {
  std::string table;
  bool offline = false;
};

struct Fact {
  std::string section;
  std::string name;
  std::string value;
  bool good = true;
};

/// What was found, in its order, and what to do about it.
class Report {
 public:
  void section(const std::string& name) { mSection = name; }
  void fact(const std::string& name, const std::string& value) { mFacts.push_back({mSection, name, value}); }
  void fault(const std::string& name, const std::string& value, const std::string& advice) {
    mFacts.push_back({mSection, name, value, false});
    mAdvice.push_back(advice);
  }

  bool good() const { return mAdvice.empty(); }

  void print(Output& output) const {
    if (output.json()) {
      Json facts = Json::array();
      for (const Fact& fact : mFacts) {
        facts.push_back({{"section", fact.section}, {"name", fact.name}, {"value", fact.value}, {"good", fact.good}});
      }
      return output.object({{"verb", "doctor"}, {"good", good()}, {"facts", facts}, {"advice", mAdvice}});
    }
    std::string text, section;
    for (const Fact& fact : mFacts) {
      if (fact.section != section) text += (section.empty() ? "" : "\n") + fact.section + '\n';
      section = fact.section;
      std::string name = fact.name;
      name.resize(std::max(name.size() + 1, kNameWidth), ' ');
      text += (fact.good ? "    " : "  ! ") + name + (fact.good ? fact.value : output.bad(fact.value)) + '\n';
    }
    text += "\nWhat to do\n";
    if (good()) text += "    " + output.good("nothing: all is well") + '\n';
    for (std::size_t i = 0; i < mAdvice.size(); ++i)
      text += hanging("  " + std::to_string(i + 1) + ". ", mAdvice[i], 5);
    output.text(text);
  }

 private:
  static constexpr std::size_t kNameWidth = 34;

  std::string mSection;
  std::vector<Fact> mFacts;
  std::vector<std::string> mAdvice;
};

/// False if there are none that a device could be reached by.
bool lookAtLibraries(Report& report) {
  report.section("Libraries");
  report.fact("kelctl", KELCTL_VERSION);
  try {
    report.fact("KELHandler", libraryVersion());
  } catch (const Fault& fault) {
    report.fault("KELHandler", "cannot be loaded", fault.what());
    return false;
  }
  report.fact("pipe library", pipeLibraryFile());
  report.fact("that is", isStandIn() ? "the stand-in" : "a pipe library for a device");
  return true;
}

void lookAtSettings(Report& report) {
  report.section("Settings");
  const Settings settings = readSettings();
  report.fact("Brel.ini", settings.file.empty() ? "none here: the defaults hold" : settings.file);
  for (const Setting& setting : settings.values) {
    const std::string value = (setting.value.empty() ? "none" : setting.value) + "  (" + setting.source + ')';
    if (setting.fault.empty()) {
      report.fact(setting.name, value);
    } else {
      report.fault(setting.name, value, setting.fault);
    }
  }
  for (const IniFault& fault : settings.faults) {
    report.fault(
        "line " + std::to_string(fault.line), fault.text,
        settings.file + ':' + std::to_string(fault.line) + ": " + fault.text + (fault.text.back() == '?' ? "" : "."));
  }
}

void lookAtTable(Report& report, const std::string& table) {
  report.section("Task table");
  const std::string file = table.empty() ? tableOfSettings() : table;
  if (!std::filesystem::is_regular_file(file)) {
    report.fact("table", "built in; there is no " + file);
    report.fact("tasks", std::to_string(readTable("").size()));
    return;
  }
  report.fact("table", file);
  const TableFindings findings = checkTable(readTableFile(file));
  report.fact("tasks", std::to_string(findings.rows));
  if (findings.faults.empty()) return report.fact("faults", "none");
  report.fault("faults", std::to_string(findings.faults.size()), "See `kelctl tasks check " + file + "`.");
}

bool isWritable(const std::filesystem::path& folder) {
  const std::filesystem::path file = folder / ("kelctl-doctor-" + std::to_string(std::random_device()()));
  const bool isOpen = std::ofstream(file).is_open();
  std::error_code ignored;
  std::filesystem::remove(file, ignored);
  return isOpen;
}

void lookAtLogs(Report& report) {
  report.section("Logs");
  const LogSettings logs = readLogSettings();
  for (const Setting& setting : logs.values) {
    report.fact(setting.name, (setting.value.empty() ? "none" : setting.value) + "  (" + setting.source + ')');
  }
  if (isWritable(logs.folder)) return report.fact("folder", logs.folder + " can be written to");
  if (!logs.isOn) return report.fact("folder", logs.folder + " cannot be written to, and no log is switched on");
  report.fault("folder", logs.folder + " cannot be written to",
               "Make the folder " + logs.folder + ", or set LogPath in the registry: what cannot be logged is lost.");
}

/// Runs a call, and reports what became of it and how long it took.
bool timed(Report& report, const std::string& name, const std::function<std::uint32_t()>& call,
           std::uint32_t expected = KEL_OK) {
  const Clock::time_point start = Clock::now();
  const std::uint32_t code = call();
  const std::string time = timeText(Clock::now() - start);
  if (code == expected) {
    report.fact(name, "well, in " + time);
  } else {
    report.fault(name, "returned " + std::to_string(code) + " after " + time, name + ": " + meaning(code));
  }
  return code == expected;
}

void lookAtDevice(Report& report, const std::string& table) {
  report.section("Device");
  const std::string file = libraryFile(tableOf(table));
  std::uint64_t connection = 0;
  // What KEL_Init returns only the pipe library could explain; the connect that follows tells whether it is up.
  KEL_Init();
  const auto connect = [&] { return KEL_Connect(file.empty() ? nullptr : file.c_str(), nullptr, &connection); };
  if (timed(report, "KEL_Connect", connect)) {
    const std::string task = kel::tasks::TASK_ID_VERSIONS_GET_UIDS.name;
    timed(report, task, [&] { return sendTask(connection, task, {}).code; });
    std::string name = "kelctl.bm";
    std::uint64_t userVersion = 0;
    const auto validate = [&] {
      return KEL_ValidateVersion(connection, name.data(), name.data(), static_cast<std::uint32_t>(name.size()),
                                 &userVersion, ".");
    };
    timed(report, "KEL_ValidateVersion", validate, KEL_VERSION_VALID);
    timed(report, "KEL_Disconnect", [&] { return KEL_Disconnect(connection); });
  }
  KEL_Finalize();
}

int doctor(const DoctorOptions& options, Output& output) {
  Report report;
  const bool hasLibraries = lookAtLibraries(report);
  lookAtSettings(report);
  lookAtTable(report, options.table);
  lookAtLogs(report);
  if (hasLibraries && !options.offline) lookAtDevice(report, options.table);
  report.print(output);
  return report.good() ? kDone : kRefused;
}

}  // namespace

void addDoctor(CLI::App& app, Plan& plan) {
  auto [verb, options] = addVerb<DoctorOptions>(app, plan, "doctor",
                                                "Tell on one page what is installed, set and answered, and what to do",
                                                "kelctl doctor\n"
                                                "kelctl doctor --offline\n"
                                                "kelctl doctor --json | jq .advice\n",
                                                doctor);
  addTable(verb, options.table);
  addFlag(verb, "--offline", options.offline,
          "Do not connect. Else the device gets TASK_ID_VERSIONS_GET_UIDS twice, once for a version check");
}

}  // namespace kelctl
