/* SPDX-License-Identifier: MIT */
// The verbs that look into an installation and what it leaves behind.
#pragma once

#include "options.h"

namespace kelctl {

void addDoctor(CLI::App& app, Plan& plan);
void addStatus(CLI::App& app, Plan& plan);
void addLog(CLI::App& app, Plan& plan);

}  // namespace kelctl
