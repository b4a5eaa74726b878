/* SPDX-License-Identifier: MIT */
// What a worker is started with.
#pragma once

#include <chrono>
#include <map>
#include <string>

#include "kel/fleet_access.hpp"
#include "protocol/Subjects.h"

namespace kel::fleet {

struct WorkerOptions {
  DeviceName name;
  Access access;
  std::string table;      ///< A task table in place of the one that the settings name.
  std::string heartbeat;  ///< Empty: the echo of the built-in table, if the table in force has it.
  std::string model = "unknown";
  std::map<std::string, std::string> tags;
  std::string metrics;                     ///< "HOST:PORT" to serve metrics at; empty for none.
  int replicas = 1;                        ///< Of the site's bucket, if it is made here, and of the broadcasts.
  std::chrono::minutes keepBroadcasts{0};  ///< For how long JetStream keeps them; 0: it does not.
};

}  // namespace kel::fleet
