/* SPDX-License-Identifier: MIT */
// What this tool asks of its operating system beyond what the library does.
#pragma once

#include <cstdio>

namespace kelctl {

/// Whether a standard stream leads to a terminal, and so to a person: not to a file, a pipe or the null device. Where
/// the answer is true, the terminal takes escape sequences from then on, if it knows any.
bool isTerminal(std::FILE* stream);

/// Has bytes pass a stream as they are, where a text stream would change line ends. Nothing may be left in the stream's
/// buffer. There is no way back.
void passBytes(std::FILE* stream);

}  // namespace kelctl
