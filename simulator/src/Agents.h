/* SPDX-License-Identifier: MIT */
// The two agents that the library talks to. Both answer on the sender's thread, with the hub's lock held.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "Hub.h"

namespace kel::sim {

/// An agent's answer. `size` may be above the bytes that there are: tests tell sizes that are not true.
struct Reply {
  std::uint32_t status = 0;
  std::uint32_t ID = 0;
  std::uint32_t size = 0;
  std::array<std::uint8_t, sizeof(KelRequestReply)> bytes{};
  std::string comment{};  ///< for a capture
};

/// KelProxyAgent hands out socket IDs and takes them back.
Reply AskKelProxyAgent(Hub& hub, Connection& connection, const Message& message);

/// L4msgProxy takes task requests. `beforeReply`, unless null, is what the sender waits on before it gives the reply to
/// its caller, for a response that is to come first.
Reply AskL4msgProxy(Hub& hub, Connection& connection, const Message& message, Completion* beforeReply);

}  // namespace kel::sim
