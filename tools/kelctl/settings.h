/* SPDX-License-Identifier: MIT */
// The library's settings, read as the library reads them.
#pragma once

#include <chrono>
#include <string>

namespace kelctl {

/// RxWaitTimeout: how long the library waits for an answer.
std::chrono::milliseconds waitLimit();

/// The task table that a connect with this table, or with none, reads; empty where the client layer finds it by itself.
std::string tableOf(const std::string& table);

}  // namespace kelctl
