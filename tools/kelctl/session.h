// The library as kelctl calls it: a connection that is given back in any case, and refusals that say what they mean.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "KELHandler.h"
#include "payload.h"

namespace kelctl {

/// What a result code means and what to do next, in lines of less than 80 columns.
std::string meaning(std::uint32_t code);

/// A call that the library refused: its name, the code, the code's meaning.
class Refused : public std::runtime_error {
 public:
  Refused(const std::string& call, std::uint32_t code);
};

/// The outcome of a task. `payload` is there if the device answered, also with no bytes.
struct Reply {
  std::uint32_t code = KEL_OK;
  std::optional<Bytes> payload;
};

/// Sends a task and takes its answer over, whatever the result.
Reply sendTask(std::uint64_t connection, const std::string& task, const Bytes& payload, bool responseExpected = true,
               KEL_StreamCallback streamCallback = nullptr);

/// What KEL_ValidateVersion says of a file with this name and content. Throws Refused.
bool isVersionValid(std::uint64_t connection, std::string name, const Bytes& content, const std::string& vectors);

/// The pipe library started and one connection open, for the life of the object.
class Session {
 public:
  /// An empty `table` is the library's choice. Throws Refused.
  explicit Session(const std::string& table, KEL_BroadcastCallback broadcastCallback = nullptr);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  std::uint64_t connection() const { return mConnection; }

  /// Throws Refused. No payload came if none was expected.
  std::optional<Bytes> send(const std::string& task, const Bytes& payload, bool responseExpected = true,
                            KEL_StreamCallback streamCallback = nullptr) const;

 private:
  std::uint64_t mConnection = 0;
};

}  // namespace kelctl
