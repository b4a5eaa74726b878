// SPDX-License-Identifier: MIT
#include "directory/Lease.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace kel::fleet {

namespace {

using Json = nlohmann::json;

Json jsonOf(const Party& party) { return {{"id", party.id}, {"name", party.name}, {"since", party.since}}; }

std::optional<Party> partyOf(const Json& json) {
  if (!json.is_object()) return std::nullopt;
  const auto id = json.find("id");
  const auto name = json.find("name");
  const auto since = json.find("since");
  if (id == json.end() || !id->is_string() || id->get_ref<const std::string&>().empty()) return std::nullopt;
  Party party;
  party.id = id->get<std::string>();
  if (name != json.end() && name->is_string()) party.name = name->get<std::string>();
  if (since != json.end() && since->is_number_integer()) party.since = since->get<std::int64_t>();
  return party;
}

}  // namespace

std::string Lease::write() const {
  Json json{{"timeToLiveMs", timeToLive.count()}, {"line", Json::array()}};
  if (holder) json["holder"] = jsonOf(*holder);
  for (const Party& party : line) json["line"].push_back(jsonOf(party));
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Lease Lease::read(std::string_view text) {
  const Json json = Json::parse(text, nullptr, false);
  Lease lease;
  if (!json.is_object()) return lease;
  if (const auto holder = json.find("holder"); holder != json.end()) lease.holder = partyOf(*holder);
  if (const auto time = json.find("timeToLiveMs"); time != json.end() && time->is_number_unsigned()) {
    lease.timeToLive = std::chrono::milliseconds(std::min<std::uint64_t>(time->get<std::uint64_t>(), 86'400'000));
  }
  if (const auto line = json.find("line"); line != json.end() && line->is_array()) {
    for (const Json& one : *line) {
      if (std::optional<Party> party = partyOf(one)) lease.line.push_back(std::move(*party));
    }
  }
  return lease;
}

std::optional<std::size_t> Lease::placeOf(std::string_view id) const {
  const auto place = std::find_if(line.begin(), line.end(), [&](const Party& party) { return party.id == id; });
  if (place == line.end()) return std::nullopt;
  return static_cast<std::size_t>(place - line.begin());
}

void Lease::leaveLine(std::string_view id) {
  line.erase(std::remove_if(line.begin(), line.end(), [&](const Party& party) { return party.id == id; }), line.end());
}

}  // namespace kel::fleet
