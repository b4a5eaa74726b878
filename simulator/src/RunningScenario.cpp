// SPDX-License-Identifier: MIT
#include "RunningScenario.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "Hub.h"

namespace kel::sim {
namespace {

constexpr const char* kVariable = "SLUICEHUB_SCENARIO";
constexpr const char* kUsualName = "SluiceHub.json";

/// An empty variable is one that is not there.
const char* NamedByEnvironment() {
  const char* name = std::getenv(kVariable);
  return name != nullptr && *name != 0 ? name : nullptr;
}

/// The file's name, or nothing.
const std::string& ScenarioName() {
  static const auto* const name = [] {
    if (const char* named = NamedByEnvironment()) return new std::string(named);
    std::error_code ignored;
    return new std::string(std::filesystem::exists(kUsualName, ignored) ? kUsualName : "");
  }();
  return *name;
}

[[maybe_unused]] const bool gReadWhenLoaded = NamedByEnvironment() != nullptr && TheScenario().mistakes.empty();

/// The scenario that the program has set, guarded by the hub's lock; null if it has set none. Never destroyed.
const ScenarioOfProgram* gSet = nullptr;

void Tell(const std::string& name, const std::vector<Mistake>& mistakes, const char* where) {
  for (const Mistake& mistake : mistakes) std::fprintf(stderr, "%s\n", TextOf(name, mistake).c_str());
  std::fprintf(stderr, "SluiceHub: nothing is connected until this scenario is mended. It was found\n%s.\n", where);
}

}  // namespace

// Never destroyed: connections may be there until the process has ended.
const Reading& TheScenario() {
  static const auto* const reading = [] {
    auto* read = new Reading;
    if (!ScenarioName().empty()) *read = ReadScenarioFile(ScenarioName());
    // The capture begins later, when the program may have left the folder that the name counts from.
    if (std::string& capture = read->scenario.capture; !capture.empty()) capture = AbsoluteName(capture);
    return read;
  }();
  return *reading;
}

ScenarioOfProgram ReadScenarioOfProgram(const char* fileName) {
  if (fileName == nullptr) return {};
  ScenarioOfProgram read{fileName, ReadScenarioFile(fileName)};
  if (std::string& capture = read.reading.scenario.capture; !capture.empty()) capture = AbsoluteName(capture);
  return read;
}

void SetScenario(ScenarioOfProgram scenario) { delete std::exchange(gSet, new ScenarioOfProgram(std::move(scenario))); }

const Scenario* RunningScenario::Good() {
  const Reading& reading = gSet != nullptr ? gSet->reading : TheScenario();
  if (reading.mistakes.empty()) return &reading.scenario;
  if (std::exchange(mTold, true)) return nullptr;
  if (gSet != nullptr) {
    Tell(gSet->name, reading.mistakes, "by the program, in SluiceHubSim_SetScenario");
  } else {
    Tell(ScenarioName(), reading.mistakes,
         NamedByEnvironment() != nullptr ? "by the environment variable SLUICEHUB_SCENARIO"
                                         : "in the working directory");
  }
  return nullptr;
}

bool RunningScenario::Begin(Hub& hub) {
  const Scenario* const scenario = Good();
  if (scenario == nullptr || mBegun) return scenario != nullptr;
  mBegun = true;
  mScenario = *scenario;
  mStart = Clock::now();
  for (const RuleTerms& terms : mScenario.rules) hub.rules.Add(terms);
  hub.rules.Seed(mScenario.seed);
  if (!mScenario.capture.empty()) hub.capture.Start(mScenario.capture);
  return true;
}

const SocketRefusal* RunningScenario::RefuseSocket() {
  const auto now = Clock::now();
  for (SocketRefusal& refusal : mScenario.socketRefusals) {
    const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(now - mStart).count();
    if (since >= refusal.fromMs && since < refusal.untilMs && refusal.connections.Take()) return &refusal;
  }
  return nullptr;
}

void RunningScenario::PlanFor(Hub& hub, Connection& connection) {
  for (const PlannedBroadcasts& plan : mScenario.broadcasts) {
    auto broadcasts = hub.NewDelivery(Delivery::Kind::kSeries, KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION, plan.atMs);
    broadcasts->series.TUI = plan.TUI;
    broadcasts->series.isBroadcast = true;
    broadcasts->series.hasEnd = false;
    broadcasts->series.count = plan.count;
    broadcasts->series.intervalMs = plan.everyMs;
    broadcasts->series.payloadSize = plan.payloadSize;
    broadcasts->series.payload = plan.payload;
    connection.Post(std::move(broadcasts));
  }
  for (PlannedLoss& loss : mScenario.linkLosses) {
    if (!loss.connections.Take()) continue;
    auto lost = hub.NewDelivery(Delivery::Kind::kLinkLoss, L5_EVENT_DISCONNECTED, loss.atMs);
    lost->reason = loss.reason;
    connection.Post(std::move(lost));
  }
}

}  // namespace kel::sim
