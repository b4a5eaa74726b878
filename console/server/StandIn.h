/* SPDX-License-Identifier: MIT */
// The stand-in device of this process: which scenario is in force, and another one in its place.
#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "Json.h"

namespace kel::console {

/// Every function may be called by any thread.
class StandIn {
 public:
  StandIn();

  /// False for a device of another kind, which has no scenario.
  bool isHere() const;

  /// {"file", "text"}: the scenario in force, without a file if there is none.
  Json json() const;

  /// The mistakes of a scenario's text: [{"line", "found", "expected"}].
  Json check(const std::string& text) const;

  /// Puts it in force: the device that is connected to next behaves so. Files that it names lie where those of the
  /// first scenario do. Its mistakes; if there are any, nothing changes. Throws std::runtime_error if it cannot be
  /// written.
  Json apply(const std::string& text);

 private:
  const std::string mFolder;  ///< empty, or with a separator at its end
  mutable std::mutex mMutex;
  std::string mFile;  // guarded by mMutex
  std::string mText;  // guarded by mMutex
};

}  // namespace kel::console
