/* SPDX-License-Identifier: MIT */
// A process that has no kernel object left to make. For platforms whose table of handles can be filled in a moment.
#pragma once

#include <vector>

#include "platform/platform.h"

namespace kel::test {

/// While one lives, only `left` more handles can be had.
class ExhaustedHandles {
 public:
  explicit ExhaustedHandles(std::size_t left) {
    while (const platform::Handle handle = platform::createEvent(false, false)) mTaken.push_back(handle);
    for (; left > 0; --left) {
      platform::closeHandle(mTaken.back());
      mTaken.pop_back();
    }
  }
  ~ExhaustedHandles() {
    for (platform::Handle handle : mTaken) platform::closeHandle(handle);
  }
  ExhaustedHandles(const ExhaustedHandles&) = delete;
  ExhaustedHandles& operator=(const ExhaustedHandles&) = delete;

 private:
  std::vector<platform::Handle> mTaken;
};

}  // namespace kel::test
