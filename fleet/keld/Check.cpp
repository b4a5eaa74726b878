// SPDX-License-Identifier: MIT
#include "keld/Check.h"

#include <filesystem>
#include <ostream>

#include "directory/Bucket.h"
#include "kel/task_table.hpp"
#include "nats/Nats.h"
#include "protocol/Wire.h"

namespace kel::fleet {

namespace {

namespace fs = std::filesystem;

/// A file of secrets is its owner's alone.
bool isOpenToOthers(const std::string& file) {
  std::error_code error;
  const fs::perms perms = fs::status(file, error).permissions();
  return !error && (perms & (fs::perms::group_all | fs::perms::others_all)) != fs::perms::none;
}

ConnectionOptions checking() {
  ConnectionOptions options;
  options.name = "keld check";
  return options;
}

}  // namespace

std::string mistakeIn(const WorkerOptions& options) {
  if (!isName(options.name.site)) return "the site's name is not up to 64 letters, digits, '-' and '_'";
  if (!isName(options.name.device)) return "the device's name is not up to 64 letters, digits, '-' and '_'";
  const Access& access = options.access;
  const int ways =
      (access.user.empty() ? 0 : 1) + (access.nkeyFile.empty() ? 0 : 1) + (access.credentialsFile.empty() ? 0 : 1);
  if (ways > 1) return "user, nkey and credentials exclude each other";
  if (!access.user.empty() && access.passwordFile.empty()) return "the user has no password file";
  if (access.certificateFile.empty() != access.keyFile.empty()) return "certificate and key go together";
  if (!access.user.empty() && !isName(access.user)) return "the user's name is no part of a subject";
  const std::string metricsHost = options.metrics.substr(0, options.metrics.rfind(':'));
  if (!metricsHost.empty() && metricsHost != "127.0.0.1" && metricsHost != "[::1]" && metricsHost != "localhost") {
    return "metrics ask nobody for a password, and so are served on loopback only";
  }
  for (const std::string& server : access.servers) {
    if (server.find('@') != std::string::npos) return "a server's address holds no user and no password";
  }
  return {};
}

bool check(const WorkerOptions& options, std::ostream& out) {
  bool isGood = true;
  const auto tell = [&](bool isRight, const std::string& what) {
    out << (isRight ? "ok       " : "mistake  ") << what << '\n';
    isGood = isGood && isRight;
  };
  const std::string mistake = mistakeIn(options);
  tell(mistake.empty(), mistake.empty() ? "the options" : mistake);
  for (const std::string& file :
       {options.access.passwordFile, options.access.nkeyFile, options.access.credentialsFile, options.access.keyFile}) {
    if (!file.empty()) tell(!isOpenToOthers(file), file + (isOpenToOthers(file) ? " can be read by others" : ""));
  }
  const TaskTable table = TaskTable::inForce(options.table);
  tell(table.size() != 0, "the task table has " + std::to_string(table.size()) + " tasks");
  if (!options.heartbeat.empty()) {
    const bool isThere = table.find(options.heartbeat).has_value();
    tell(isThere, "the heartbeat " + options.heartbeat + (isThere ? "" : " is not in it"));
  }
  if (!mistake.empty()) return false;

  std::string why;
  const std::unique_ptr<Connection> connection = Connection::open(options.access, checking(), why);
  tell(connection != nullptr, connection ? "the NATS servers let us in" : "the NATS servers: " + why);
  if (!connection) return false;
  const std::optional<Bucket> bucket = Bucket::open(*connection, bucketOf(options.name.site), options.replicas, why);
  tell(bucket.has_value(), bucket ? "the bucket of the site" : "the bucket of the site: " + why);
  const MessagePtr hello = makeMessage(Subjects(options.name).hello(), {}, {});
  natsStatus status = NATS_OK;
  const bool isTaken = connection->request(*hello, std::chrono::seconds(1), status) != nullptr;
  tell(!isTaken, isTaken ? "another keld offers a device of this name now" : "the device's name is free");
  return isGood;
}

}  // namespace kel::fleet
