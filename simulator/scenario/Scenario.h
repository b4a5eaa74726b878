/* SPDX-License-Identifier: MIT */
// A scenario: how the stand-in device behaves in one run, as a JSON file tells it. docs/scenarios.md has the language.
//
// This is a library of its own, text in and scenario or mistakes out. Nothing here keeps a state, and every function
// may be called from any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "SluiceHubSim.h"

namespace kel::sim {

struct Payload {
  std::uint32_t type = 0;  ///< as in a TUI: 0 VAL, 1 REF
  std::vector<std::uint8_t> bytes;
};

/// Lets the first `skip` occasions pass and then takes `times` of them, or all if that is 0.
struct Turns {
  std::uint32_t skip = 0;
  std::uint32_t times = 0;
  std::uint32_t passed = 0;
  std::uint32_t taken = 0;

  /// Whether this occasion is one to take; counts it.
  bool Take() {
    if (passed < skip) {
      ++passed;
      return false;
    }
    if (times != 0 && taken == times) return false;
    ++taken;
    return true;
  }
};

/// What a rule for task requests says: what the control interface can say, and more.
struct RuleTerms {
  SluiceHubSimRule what{};         ///< its `data` is not used
  std::vector<std::uint8_t> data;  ///< but this copy

  bool echo = false;                             ///< the request's payload comes back
  std::uint32_t jitterMs = 0;                    ///< the delay is longer by up to this
  std::uint64_t dropChance = 0;                  ///< so many responses of 2^32 are dropped
  std::uint32_t dropEvery = 0;                   ///< if not 0: every so-manieth response is dropped
  std::shared_ptr<const Payload> streamPayload;  ///< of each message; null for the usual pattern
  std::optional<std::uint32_t> lostLinkReason;   ///< the request finds the link lost, for this reason
};

/// Broadcasts to each connection. Times count from when it got its socket.
struct PlannedBroadcasts {
  std::uint32_t TUI = 0;
  std::uint32_t atMs = 0;
  std::uint32_t everyMs = 0;
  std::uint32_t count = 1;
  std::uint32_t payloadSize = 0;           ///< as in SluiceHubSimRule::streamPayloadSize
  std::shared_ptr<const Payload> payload;  ///< null for the usual pattern
};

/// The loss of a connection's link, so much later than it got its socket.
struct PlannedLoss {
  Turns connections;
  std::uint32_t atMs = 0;
  std::uint32_t reason = SLUICEHUBSIM_REASON_SHUTDOWN;
};

/// No socket for a connection. Times count from the first connect. With neither status nor reply ID the answer is that
/// no socket is free.
struct SocketRefusal {
  Turns connections;
  std::uint32_t fromMs = 0;
  std::uint32_t untilMs = UINT32_MAX;
  std::uint32_t sendStatus = 0;
  std::uint32_t replyID = 0;
};

/// A change of the control status. Times count from the first look at it, or the first wish to be told of it.
struct PlannedControlStatus {
  std::uint32_t atMs = 0;
  std::uint32_t status = 0;
};

struct Scenario {
  std::uint32_t seed = 1;
  std::string capture;  ///< file name, or empty
  std::vector<RuleTerms> rules;
  std::vector<PlannedBroadcasts> broadcasts;
  std::vector<PlannedLoss> linkLosses;
  std::vector<SocketRefusal> socketRefusals;
  std::vector<PlannedControlStatus> controlStatus;  ///< by time
};

/// One thing that is wrong, in words for "FILE:LINE: found; expected so-and-so".
struct Mistake {
  std::uint32_t line;  ///< from 1, or 0 for the whole file
  std::string found;
  std::string expected;
};

struct Reading {
  Scenario scenario;              ///< not to be used if there are mistakes
  std::vector<Mistake> mistakes;  ///< by line
};

/// No file that a scenario is made of may be larger, and no payload, in bytes.
inline constexpr std::uint32_t kLargestScenarioFile = 1048576;

/// Reads a scenario's text. Files that it names lie in `folder`, which is empty or ends in a separator, unless their
/// names are absolute.
Reading ReadScenario(std::string_view text, const std::string& folder);

/// Reads a scenario's file.
Reading ReadScenarioFile(const std::string& name);

/// A mistake in words, without a line end.
std::string TextOf(const std::string& fileName, const Mistake& mistake);

}  // namespace kel::sim
