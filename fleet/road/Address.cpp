// SPDX-License-Identifier: MIT
// Where a device is, from its URI or its name.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>

#include "kel/fleet.hpp"
#include "protocol/Subjects.h"

namespace kel::fleet {

namespace {

constexpr std::string_view kScheme = "nats://";

Error notAnAddress(std::string why) { return {Cause::notConnected, 0, std::move(why)}; }

std::string configFile() {
  if (const char* named = std::getenv("KELHANDLER_FLEET"); named != nullptr && *named != '\0') return named;
  const char* home = std::getenv("HOME");
  return std::string(home != nullptr ? home : ".") + "/.config/kelhandler/fleet.json";
}

/// What the configuration holds; null if there is none.
Result<nlohmann::json> readConfig(const std::string& path) {
  std::ifstream file(path);
  if (!file) return nlohmann::json();
  nlohmann::json json = nlohmann::json::parse(file, nullptr, false);
  if (!json.is_object()) return notAnAddress(path + " holds no JSON object");
  return json;
}

/// The URI that the configuration has for a name.
Result<std::string> resolved(const std::string& name) {
  const std::string path = configFile();
  const Result<nlohmann::json> config = readConfig(path);
  if (!config) return config.error();
  const nlohmann::json& json = *config;
  if (json.is_null()) return notAnAddress(name + " is no URI, and there is no file " + path);
  const auto devices = json.find("devices");
  if (devices == json.end() || !devices->is_object()) return notAnAddress(path + " has no object \"devices\"");
  const auto uri = devices->find(name);
  if (uri == devices->end() || !uri->is_string()) return notAnAddress(path + " has no device " + name);
  return uri->get<std::string>();
}

Result<Address> readNats(std::string_view rest) {
  Address address;
  const std::size_t siteAt = rest.find('/');
  const std::size_t deviceAt = siteAt == std::string_view::npos ? siteAt : rest.find('/', siteAt + 1);
  if (deviceAt == std::string_view::npos) return notAnAddress("a device's URI is nats://HOST[,HOST]/SITE/DEVICE");
  std::string_view hosts = rest.substr(0, siteAt);
  if (hosts.find('@') != std::string_view::npos) {
    return notAnAddress("a URI holds no user and no password: they are given by files");
  }
  while (!hosts.empty()) {
    const std::size_t comma = hosts.find(',');
    const std::string_view host = hosts.substr(0, comma);
    if (!host.empty()) address.servers.emplace_back(host);
    hosts = comma == std::string_view::npos ? std::string_view() : hosts.substr(comma + 1);
  }
  address.site = rest.substr(siteAt + 1, deviceAt - siteAt - 1);
  address.device = rest.substr(deviceAt + 1);
  if (address.servers.empty()) return notAnAddress("the URI names no server");
  if (!isName(address.site) || !isName(address.device)) {
    return notAnAddress("site and device are up to 64 letters, digits, '-' and '_'");
  }
  return address;
}

struct AccessKey {
  const char* name;
  std::string Access::*member;
};

constexpr AccessKey kAccessKeys[] = {{"user", &Access::user},         {"passwordFile", &Access::passwordFile},
                                     {"nkeyFile", &Access::nkeyFile}, {"credentialsFile", &Access::credentialsFile},
                                     {"caFile", &Access::caFile},     {"certificateFile", &Access::certificateFile},
                                     {"keyFile", &Access::keyFile}};

}  // namespace

Result<Access> configuredAccess() {
  const std::string path = configFile();
  const Result<nlohmann::json> config = readConfig(path);
  if (!config) return config.error();
  Access access;
  if (config->is_null() || !config->contains("access")) return access;
  const nlohmann::json& object = config->at("access");
  if (!object.is_object()) return notAnAddress("\"access\" in " + path + " is no object");
  for (const auto& [name, value] : object.items()) {
    const auto key = std::find_if(std::begin(kAccessKeys), std::end(kAccessKeys),
                                  [&name = name](const AccessKey& known) { return name == known.name; });
    if (key == std::end(kAccessKeys)) return notAnAddress("\"access\" in " + path + " has an unknown key " + name);
    if (!value.is_string()) return notAnAddress("\"" + name + "\" in " + path + " is no text");
    access.*key->member = value.get<std::string>();
  }
  return access;
}

Result<Address> addressOf(const std::string& uri) {
  if (uri == "kel:") return Address();
  if (uri.compare(0, kScheme.size(), kScheme) == 0) return readNats(std::string_view(uri).substr(kScheme.size()));
  if (uri.find(':') != std::string::npos) return notAnAddress("there is no such kind of URI: kel: and nats: there are");
  const Result<std::string> named = resolved(uri);
  if (!named) return named.error();
  if (named->find(':') == std::string::npos) return notAnAddress(uri + " leads to another name and not to a URI");
  return addressOf(*named);
}

}  // namespace kel::fleet
