/* SPDX-License-Identifier: MIT */
// What the console asks of the operating system.
#pragma once

namespace kel::console {

/// Lets a socket have its port again right after the console was started anew, and share it with nobody.
void claimPort(int socket);

/// From here on Ctrl-C and the request to end are kept for awaitEnd(). Before any thread is started.
void keepSignals();
/// Waits for one of them. The next one ends the program at once.
void awaitEnd();

/// Sets a variable of the environment, unless somebody has set it.
void setDefault(const char* name, const char* value);

}  // namespace kel::console
