/* SPDX-License-Identifier: MIT */
// The NATS services protocol, by which standard tools find devices and read their counts: answers to PING, INFO and
// STATS on "$SRV.", for all services, for those named "kel-device", and for this one.
#pragma once

#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "keld/Counters.h"
#include "nats/Nats.h"

namespace kel::fleet {

class Responder {
 public:
  struct Endpoint {
    std::string name;
    std::string subject;
    std::string queue;
    const EndpointCounters* counters;
  };

  /// `version` has three numbers. Counters must outlive the responder.
  Responder(Connection& connection, std::string id, std::string version, std::string description,
            std::map<std::string, std::string> metadata, std::vector<Endpoint> endpoints);

 private:
  nlohmann::json head(const char* type) const;
  std::string ping() const;
  std::string info() const;
  std::string stats() const;

  Connection& mConnection;
  const std::string mId;
  const std::string mVersion;
  const std::string mDescription;
  const std::string mStarted;
  const std::map<std::string, std::string> mMetadata;
  const std::vector<Endpoint> mEndpoints;
  std::vector<Subscription> mSubscriptions;  // last: they end first
};

}  // namespace kel::fleet
