/* SPDX-License-Identifier: MIT */
// A worker's counts for Prometheus, served over HTTP.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "kel/client.hpp"
#include "keld/Counters.h"

namespace kel::fleet {

class Metrics {
 public:
  /// Throws std::runtime_error if the address "HOST:PORT" cannot be listened at.
  Metrics(const std::string& address, const std::string& site, const std::string& device, const Counters& counters,
          const Client& client);
  ~Metrics();

 private:
  struct Inside;
  std::unique_ptr<Inside> mInside;
};

}  // namespace kel::fleet
