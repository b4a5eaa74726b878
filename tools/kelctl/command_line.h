/* SPDX-License-Identifier: MIT */
// kelctl as a function, for main() and for tests.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace kelctl {

struct Plan;

/// The whole option tree; what it is asked for goes to `plan`, which must outlive it.
void addVerbs(CLI::App& app, Plan& plan);

/// Does what the words behind the program's name ask for. Returns the exit status; throws nothing.
int run(std::vector<std::string> words);

}  // namespace kelctl
