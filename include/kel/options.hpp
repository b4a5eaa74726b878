// SPDX-License-Identifier: MIT
/**
 * @file
 * What a client may be told, and what it tells of itself.
 */
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "kel/payload.hpp"
#include "kel/result.hpp"

namespace kel {
inline namespace v1 {

using Milliseconds = std::chrono::milliseconds;

/** Where a client stands. */
enum class State : std::uint8_t {
  connecting,  ///< Not connected yet, or not again. Calls wait to be sent.
  connected,   ///< Calls are sent.
  lost,        ///< The link is gone. Calls wait if the client reconnects, else they fail.
  closed,      ///< For good.
};

/** "connecting", "connected", "lost" or "closed". */
inline const char* text(State state) {
  switch (state) {
    case State::connecting:
      return "connecting";
    case State::connected:
      return "connected";
    case State::lost:
      return "lost";
    case State::closed:
      return "closed";
  }
  return "unknown";
}

inline std::ostream& operator<<(std::ostream& out, State state) { return out << text(state); }

/** A change of state, in the order of their happening. */
struct StateChange {
  State state;
  std::string reason;         ///< Why, in words: "3 heartbeats were not answered".
  std::uint32_t attempt = 0;  ///< With connecting: the how manieth attempt in a row, from 1.
  Milliseconds pause{0};      ///< With lost: how long it waits before the next attempt.
};

/** How a client watches its link, and whether it comes back. */
struct Supervision {
  /** The task that asks the device for a sign of life. Empty: none, since nothing is sent to a device unasked. */
  std::string heartbeat;
  Values heartbeatValues{};
  /** A heartbeat is sent if nothing has come from the device for so long, and waits as long for its answer. There is
      never more than one under way. */
  Milliseconds interval{1000};
  /** So many heartbeats in a row without an answer, and the link counts as lost. Whatever else comes counts as a sign
      of life. */
  std::uint32_t misses = 3;
  /** Without a heartbeat: so many tasks refused in a row, with nothing coming in between, and the link counts as
      lost. 0: never. Only if the client reconnects. */
  std::uint32_t refusals = 3;

  /** Connect again when the link is lost, and when connecting fails. */
  bool reconnect = false;
  /** The first pause before that; each next one is twice as long, up to the longest. Each is made longer or shorter
      by up to a quarter at random, so that many clients do not come at once. */
  Milliseconds firstPause{100};
  Milliseconds longestPause{30000};
  /** So many attempts in a row that fail, and the client closes itself. 0: it goes on. */
  std::uint32_t attempts = 0;

  /** With reconnect: when stopped streams that the device does not end hold so many of the connection's 64 numbers,
      the connection is renewed. What is under way gets a second to come to its end; streams end with linkLost. 0:
      never. */
  std::uint32_t renewAt = 32;
};

/** What a client is made with. */
struct Options {
  /** Path of a task table in place of the one that the settings name; empty for none. */
  std::string table;
  /** The deadline of a call that names none, from its start. The library itself stops waiting for an answer after
      RxWaitTimeout of Brel.ini (10 seconds unless it says otherwise), which no program can set: a call that waits
      longer is told no sooner than it would have been. */
  Milliseconds timeout{10000};
  /** How long Client::connect waits for the connection. */
  Milliseconds connectTimeout{10000};
  /** So many calls are under way at most, streams included. A connection has 64 numbers for them, of which each is free
      again only shortly after its answer; so the default stays some below. 1 to 64. */
  std::uint32_t maxInFlight = 60;
  /** So many further calls wait to be sent. Beyond that they fail with noNumber. */
  std::uint32_t maxQueued = 1024;
  /** Fail a call with wrongForm if its payload is neither empty nor three values, and its task wants values. Else the
      library gets what there is. */
  bool checksForm = true;
  Supervision supervision;
  /** Gets each change of state, on the client's callback thread. May be empty. */
  std::function<void(const StateChange&)> onState;
};

/** How one call is made. */
struct CallOptions {
  /** From now to the call's end; none: that of the client. */
  std::optional<Milliseconds> timeout;
  /** The task may be carried out twice: if the link is lost under way, it is sent again on the next connection. */
  bool repeatable = false;
  /** Goes into the request as its sequence word, with post() alone. */
  std::uint32_t sequenceWord = 0;
};

/** What happens to a message for which its queue has no room. */
enum class WhenFull : std::uint8_t {
  dropOldest,  ///< The oldest message makes room, and is counted.
  wait,        ///< It waits for room. Meanwhile nothing else arrives on the connection, answers included.
};

/** How a stream is read. */
struct StreamOptions {
  /** Time for the stream's opening; none: the client's. */
  std::optional<Milliseconds> timeout;
  /** The stream ends when no message has come for so long. None: never. */
  std::optional<Milliseconds> idle;
  /** The stream ends so long after its opening. None: never. */
  std::optional<Milliseconds> duration;
  /** Messages that wait to be read at most. */
  std::size_t limit = 65536;
  WhenFull whenFull = WhenFull::dropOldest;
};

/** Which broadcasts a subscription gets, and how. */
struct BroadcastOptions {
  /** Only those of this name. Those that the task table does not name are all called "UNKNOWN_TASK". Empty: all. */
  std::string task;
  /** Only those with this sequence word. */
  std::optional<std::uint32_t> sequenceWord;
  std::size_t limit = 4096;
  WhenFull whenFull = WhenFull::dropOldest;
};

/** Why no more messages come. */
enum class End : std::uint8_t {
  none,      ///< They may still come.
  finished,  ///< The device has ended the stream.
  stopped,   ///< The reader has.
  idle,      ///< No message came for too long.
  deadline,  ///< The stream's time is over.
  linkLost,  ///< The link was lost, or the connection renewed.
  closed,    ///< The client was closed.
};

/** The word for it: "finished", "stopped", "idle", "deadline", "link-lost", "closed"; "none" for none. */
inline const char* text(End end) {
  switch (end) {
    case End::none:
      return "none";
    case End::finished:
      return "finished";
    case End::stopped:
      return "stopped";
    case End::idle:
      return "idle";
    case End::deadline:
      return "deadline";
    case End::linkLost:
      return "link-lost";
    case End::closed:
      return "closed";
  }
  return "unknown";
}

inline std::ostream& operator<<(std::ostream& out, End end) { return out << text(end); }

/** Counts since the client was made, and where it stands. */
struct Statistics {
  std::uint64_t answered = 0;           ///< Calls that ended with an answer, or were sent if they wanted none.
  std::uint64_t failed = 0;             ///< Calls that ended with an error.
  std::uint64_t lateAnswers = 0;        ///< Answers that came when their call had ended.
  std::uint64_t repeated = 0;           ///< Calls that were sent again after a loss.
  std::uint64_t streamMessages = 0;     ///< Messages that came for streams.
  std::uint64_t broadcasts = 0;         ///< Broadcasts that came.
  std::uint64_t droppedMessages = 0;    ///< Stream messages that found no room.
  std::uint64_t droppedBroadcasts = 0;  ///< The same of broadcasts, for each subscription that lost one.
  std::uint64_t connections = 0;        ///< Times that a connection was opened.
  std::uint64_t losses = 0;             ///< Times that the link was lost.
  std::uint64_t heartbeats = 0;         ///< Heartbeats that were sent.
  std::uint32_t inFlight = 0;           ///< Calls under way now, streams included.
  std::uint32_t queued = 0;             ///< Calls that wait to be sent now.
  std::uint32_t heldNumbers = 0;        ///< Numbers held now by calls and streams that have ended for the caller only.
};

}  // namespace v1
}  // namespace kel
