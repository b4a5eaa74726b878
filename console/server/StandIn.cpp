// SPDX-License-Identifier: MIT
#include "StandIn.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#include "Scenario.h"

// A pipe library that is not the stand-in has none of its controls.
#pragma weak SluiceHubSim_SetScenario

namespace kel::console {
namespace {

std::string fileInForce() {
  const char* const named = std::getenv("SLUICEHUB_SCENARIO");
  if (named != nullptr && *named != '\0') return named;
  return std::filesystem::exists("SluiceHub.json") ? "SluiceHub.json" : "";
}

std::string folderOf(const std::string& file) { return std::filesystem::path(file).replace_filename("").string(); }

std::string readAll(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

/// The stand-in reads a scenario from a file, beside those that it names.
class ScenarioFile {
 public:
  ScenarioFile(const std::string& folder, const std::string& text)
      : mName(folder + ".kelconsole-" + std::to_string(std::random_device()()) + ".json") {
    std::ofstream file(mName, std::ios::binary);
    if (!(file << text).flush()) throw std::runtime_error("the file " + mName + " could not be written");
  }
  ~ScenarioFile() {
    std::error_code ignored;
    std::filesystem::remove(mName, ignored);
  }
  ScenarioFile(const ScenarioFile&) = delete;
  ScenarioFile& operator=(const ScenarioFile&) = delete;

  const std::string& name() const { return mName; }

 private:
  const std::string mName;
};

}  // namespace

StandIn::StandIn() : mFolder(folderOf(fileInForce())), mFile(fileInForce()), mText(readAll(mFile)) {}

bool StandIn::isHere() const { return &SluiceHubSim_SetScenario != nullptr; }

Json StandIn::json() const {
  const std::lock_guard lock(mMutex);
  return {{"file", mFile}, {"text", mText}};
}

Json StandIn::check(const std::string& text) const {
  Json mistakes = Json::array();
  for (const sim::Mistake& mistake : sim::ReadScenario(text, mFolder).mistakes) {
    mistakes.push_back({{"line", mistake.line}, {"found", mistake.found}, {"expected", mistake.expected}});
  }
  return mistakes;
}

Json StandIn::apply(const std::string& text) {
  Json mistakes = check(text);
  if (!mistakes.empty()) return mistakes;
  const std::lock_guard lock(mMutex);
  const ScenarioFile file(mFolder, text);
  SluiceHubSim_SetScenario(file.name().c_str());
  mText = text;
  return mistakes;
}

}  // namespace kel::console
