// SPDX-License-Identifier: MIT
#include "keld/Responder.h"

#include <chrono>
#include <ctime>
#include <utility>

namespace kel::fleet {

namespace {

constexpr const char* kServiceName = "kel-device";

std::string utcNow() {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%FT%TZ", &parts);
  return text;
}

}  // namespace

Responder::Responder(Connection& connection, std::string id, std::string version, std::string description,
                     std::map<std::string, std::string> metadata, std::vector<Endpoint> endpoints)
    : mConnection(connection),
      mId(std::move(id)),
      mVersion(std::move(version)),
      mDescription(std::move(description)),
      mStarted(utcNow()),
      mMetadata(std::move(metadata)),
      mEndpoints(std::move(endpoints)) {
  using Answer = std::string (Responder::*)() const;
  const std::pair<const char*, Answer> verbs[] = {
      {"PING", &Responder::ping}, {"INFO", &Responder::info}, {"STATS", &Responder::stats}};
  for (const auto& [verb, answer] : verbs) {
    const std::string all = std::string("$SRV.") + verb;
    for (const std::string& subject : {all, all + "." + kServiceName, all + "." + kServiceName + "." + mId}) {
      mSubscriptions.push_back(connection.subscribe(subject, [this, answer = answer](natsMsg* message) {
        const std::string reply = replyTo(*message);
        if (!reply.empty()) mConnection.publish(*makeMessage(reply, {}, (this->*answer)()));
      }));
    }
  }
}

nlohmann::json Responder::head(const char* type) const {
  return {{"type", std::string("io.nats.micro.v1.") + type},
          {"name", kServiceName},
          {"id", mId},
          {"version", mVersion},
          {"metadata", mMetadata}};
}

std::string Responder::ping() const { return head("ping_response").dump(); }

std::string Responder::info() const {
  nlohmann::json json = head("info_response");
  json["description"] = mDescription;
  json["endpoints"] = nlohmann::json::array();
  for (const Endpoint& endpoint : mEndpoints) {
    json["endpoints"].push_back(
        {{"name", endpoint.name}, {"subject", endpoint.subject}, {"queue_group", endpoint.queue}});
  }
  return json.dump();
}

std::string Responder::stats() const {
  nlohmann::json json = head("stats_response");
  json["started"] = mStarted;
  json["endpoints"] = nlohmann::json::array();
  for (const Endpoint& endpoint : mEndpoints) {
    const EndpointCounters::Snapshot counts = endpoint.counters->snapshot();
    json["endpoints"].push_back(
        {{"name", endpoint.name},
         {"subject", endpoint.subject},
         {"queue_group", endpoint.queue},
         {"num_requests", counts.requests},
         {"num_errors", counts.errors},
         {"last_error", counts.lastError},
         {"processing_time", counts.time.count()},
         {"average_processing_time",
          counts.requests == 0 ? 0 : static_cast<std::uint64_t>(counts.time.count()) / counts.requests}});
  }
  return json.dump();
}

}  // namespace kel::fleet
