/* SPDX-License-Identifier: MIT */
// What the console answers to which request; docs/console.md has the table.
#pragma once

#include "Consoles.h"
#include "Guard.h"

namespace httplib {
class Server;
}

namespace kel::console {

/// The consoles and the guard must outlive the server.
void addRoutes(httplib::Server& server, Consoles& consoles, const Guard& guard);

}  // namespace kel::console
