/* SPDX-License-Identifier: MIT */
// The scenario of this run: where it is found, and what it does beyond its rules.
#pragma once

#include <string>

#include "Connection.h"
#include "Scenario.h"

namespace kel::sim {

/// The scenario of this process, read at the first call; one without anything if there is none. The hub's lock is not
/// needed. A file that the environment names was read when this library was loaded, before the program could leave the
/// folder in which it was started.
const Reading& TheScenario();

/// A scenario that the program itself puts in the place of that one.
struct ScenarioOfProgram {
  std::string name;
  Reading reading;
};

/// Reads it; one without anything for null. The hub's lock is not needed.
ScenarioOfProgram ReadScenarioOfProgram(const char* fileName);
/// From now on it is the scenario of this process. Under the hub's lock.
void SetScenario(ScenarioOfProgram scenario);

/// Guarded by the hub's lock.
class RunningScenario {
 public:
  /// The scenario in force, or null if it has mistakes, which are written to standard error once.
  const Scenario* Good();
  /// Puts the scenario in force, if it is not yet. False if it has mistakes: nothing is to be connected then.
  bool Begin(Hub& hub);
  /// How a connection that asks for a socket now is refused one; null if it is not.
  const SocketRefusal* RefuseSocket();
  /// Plans what will happen to a connection that has got its socket.
  void PlanFor(Hub& hub, Connection& connection);

 private:
  bool mTold = false;  ///< its mistakes
  bool mBegun = false;
  Clock::time_point mStart;
  Scenario mScenario;  ///< counts what has happened
};

}  // namespace kel::sim
