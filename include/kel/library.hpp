// SPDX-License-Identifier: MIT
/**
 * @file
 * What concerns the library and the pipe library of this process, and no connection.
 *
 * Every function may be called from any thread and from any callback, and does not block.
 */
#pragma once

#include <array>
#include <cstdint>

#include "KELHandler.h"
#include "kel/detail/process_road.hpp"

namespace kel {
inline namespace v1 {

/**
 * Keeps the pipe library started. Each client does so for itself: the first one starts it, and it ends with the last. A
 * program that makes clients again and again, or calls KELHandler.h beside them, keeps one of these for its whole life.
 */
class Library {
 public:
  /** The interface version of the library: 4, 1, 0, 21, 0. */
  static std::array<std::uint32_t, 5> version() {
    const VersionArray version = KEL_GetVersion();
    return {version.number[0], version.number[1], version.number[2], version.number[3], version.number[4]};
  }

  /** The control status, as the pipe library numbers it. */
  std::uint32_t controlStatus() const { return KEL_GetCtrlStatus(); }

  /**
   * Has the pipe library call a function when the control status changes. Its arguments are the pipe library's: cast
   * yours to this type. It runs on a thread of the pipe library. Returns the pipe library's answer.
   */
  std::uint32_t watchControlStatus(KEL_CtrlStatusCallback callback) const {
    return KEL_RegisterCtrlStatusUpdatesCB(callback);
  }
  /** Takes that back. Returns the pipe library's answer. */
  std::uint32_t unwatchControlStatus(KEL_CtrlStatusCallback callback) const {
    return KEL_UnregisterCtrlStatusUpdatesCB(callback);
  }

  /** Gives connection parameters to the pipe library, which says what they mean. Returns its answer. */
  std::uint32_t setConnectionParameters(std::uint64_t parameters, std::uint32_t value) const {
    return KEL_SetConnParams(parameters, value);
  }

 private:
  detail::PipeLibraryUse mUse;
};

}  // namespace v1
}  // namespace kel
