// SPDX-License-Identifier: MIT
// The way from a client to its device. Everything that depends on it lies behind this interface.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "kel/detail/sync.hpp"
#include "kel/options.hpp"
#include "kel/payload.hpp"
#include "kel/task_table.hpp"

namespace kel {
inline namespace v1 {
namespace detail {

/// Takes what comes along a road, on threads of the road's own. It must not call the road. What it throws is
/// std::bad_alloc, and the message is lost then.
class Sink {
 public:
  /// The answer to the request of this number, or the opening of its stream.
  virtual void answered(std::uint32_t id, const Payload& answer) = 0;
  /// Nothing more comes for the request of this number, and that is why; with the library's code for it, or 0.
  virtual void failed(std::uint32_t id, Cause cause, std::uint32_t code) = 0;
  /// False if nobody reads the stream any more.
  virtual bool streamed(std::uint32_t id, Message message) = 0;
  /// So many messages of a stream, or broadcasts, were lost on the road ahead of the next one.
  virtual void missed(std::uint32_t id, std::uint64_t count) = 0;
  virtual void missedBroadcasts(std::uint64_t count) = 0;
  /// A stream has ended without a last message.
  virtual void ended(std::uint32_t id, End end) = 0;
  virtual void broadcast(Broadcast broadcast) = 0;
  /// For a road that need not have broadcasts sent: false if nobody wants them at the moment; see Road::listen().
  virtual bool wantsBroadcasts() const = 0;
  /// The connection is of no use any more.
  virtual void lost(std::string why) = 0;

 protected:
  ~Sink() = default;
};

/// The largest number of a request, which has to fit the road's own.
constexpr std::uint32_t kIdBits = 28;

struct Outgoing {
  const char* task;
  const void* data;
  std::size_t size;
  std::uint32_t id;
  bool expectsAnswer;
  bool isStream;
  std::uint32_t sequenceWord;  ///< of a request that expects no answer
  Clock::time_point deadline;
};

enum class Sent : std::uint8_t {
  sent,
  refused,       ///< neither answer nor stream will come
  notConnected,  ///< likewise
  busy,          ///< likewise; the road would have had to wait
  wrongForm,     ///< likewise; the road takes no such payload
};

/// One connection at a time. open() and close() are called in turns by one thread; send() and await() by any, between
/// them.
class Road {
 public:
  virtual ~Road() = default;

  /// The task table of the device with this option, if this side knows it: then names and forms are checked here.
  virtual std::optional<TaskTable> table(const std::string& path) const = 0;
  /// Whether a request that expects no answer is confirmed all the same, by an answer or a failure.
  virtual bool confirmsPosts() const = 0;

  /// Connects. May block for long. False if it could not.
  virtual bool open(const std::string& table, Sink& sink) = 0;
  /// Why it could not.
  virtual std::string failure() const = 0;
  /// Disconnects, and waits for all calls of the sink. May block for long. Afterwards the sink is not called any more.
  virtual void close() = 0;
  /// Hands a request over. Does not wait for other calls that may last.
  virtual Sent send(const Outgoing& request) = 0;
  /// Somebody wants broadcasts from now on. Called by any thread at any time.
  virtual void listen() = 0;
  /// Waits until send() would not be busy, or the deadline.
  virtual void awaitTurn(Clock::time_point deadline) = 0;
  /// What the library says of a file's version. May block for long.
  virtual Result<bool> validateVersion(std::string file, const void* content, std::uint32_t size,
                                       std::uint64_t userVersion, const std::string& vectors) = 0;
  /// The code of a refusal.
  virtual std::uint32_t codeOf(Sent sent) const = 0;
};

}  // namespace detail
}  // namespace v1
}  // namespace kel
