// SPDX-License-Identifier: MIT
#include "version.h"

#include <nlohmann/json.hpp>

#include "KELHandler.h"
#include "options.h"

namespace kelctl {
namespace {

int version(Output& output) {
  if (output.json()) {
    output.object({{"verb", "version"}, {"KELHandler", libraryVersion()}, {"kelctl", KELCTL_VERSION}});
  } else {
    output.text("KELHandler  " + libraryVersion() + "\nkelctl      " KELCTL_VERSION "\n");
  }
  return kDone;
}

}  // namespace

// The fifth number is no part of the version as people know it: it is 0 in every release.
std::string libraryVersion() {
  const VersionArray version = KEL_GetVersion();
  return std::to_string(version.number[0]) + '.' + std::to_string(version.number[1]) + '.' +
         std::to_string(version.number[2]) + '.' + std::to_string(version.number[3]);
}

void addVersion(CLI::App& app, Plan& plan) {
  addVerb(app, plan, "version", "Print the versions of library and kelctl", "kelctl version\n", version);
}

}  // namespace kelctl
