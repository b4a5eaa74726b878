/* SPDX-License-Identifier: MIT */
// What a worker tells the program that looks after it, systemd as a rule.
#pragma once

namespace kel::fleet {

/// Sends news in the words of systemd's sd_notify(3), "WATCHDOG=1" for one. Does nothing where nobody asks for it, by
/// the environment variable NOTIFY_SOCKET, and does not wait. Threads: any.
void tellServiceManager(const char* news);

}  // namespace kel::fleet
