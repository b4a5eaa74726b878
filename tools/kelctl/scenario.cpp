#include <iostream>

#include "Scenario.h"
#include "commands.h"

namespace kelctl {

int checkScenario(const std::string& file) {
  const kel::sim::Reading reading = kel::sim::ReadScenarioFile(file);
  for (const auto& mistake : reading.mistakes) std::cerr << kel::sim::TextOf(file, mistake) << '\n';
  if (!reading.mistakes.empty()) return 1;
  std::cout << file << ": good\n";
  return 0;
}

}  // namespace kelctl
