/* SPDX-License-Identifier: MIT */
// The adapter's entry points as the engines call them: through pointers, which each init() sets to the same values.
#pragma once

#include <atomic>

#include "adapter/Dorv.h"

namespace kel {

/// One entry point.
template <class Function>
class DorvEntry;

template <class Result, class... Arguments>
class DorvEntry<Result(Arguments...)> {
 public:
  void operator=(Result (*function)(Arguments...)) { mFunction.store(function, std::memory_order_relaxed); }
  Result operator()(Arguments... arguments) const { return mFunction.load(std::memory_order_relaxed)(arguments...); }

 private:
  std::atomic<Result (*)(Arguments...)> mFunction{nullptr};
};

struct DorvBinding {
  DorvEntry<decltype(Dorv_Init)> Init;
  DorvEntry<decltype(Dorv_Finalize)> Finalize;
  DorvEntry<decltype(Dorv_Connect)> Connect;
  DorvEntry<decltype(Dorv_Disconnect)> Disconnect;
  DorvEntry<decltype(Dorv_Send)> Send;
};

extern DorvBinding gDorv;

}  // namespace kel
