#include "session.h"

#include <cstdlib>
#include <memory>
#include <utility>

namespace kelctl {

std::string meaning(std::uint32_t code) {
  switch (code) {
    case KEL_OK:
      return "It succeeded.";
    case KEL_E_CONNECTION:
      return "The connection is not open, or it could not be opened or closed. See that the\n"
             "device is there, and that `kelctl tasks` can read the task table.";
    case KEL_E_ASYNC_TASK:
      return "The asynchronous task could not be sent: its name is unknown, the device refused\n"
             "it, or too many are open. Check the name with `kelctl tasks`: case counts.";
    case KEL_E_TASK:
      return "The task's name is unknown, the device refused it, or no answer came in time.\n"
             "Check the name with `kelctl tasks`: case counts. RxWaitTimeout in Brel.ini\n"
             "says how long an answer is waited for.";
    default:
      return "A result of the pipe library's own.";
  }
}

Refused::Refused(const std::string& call, std::uint32_t code)
    : std::runtime_error(call + " returned " + std::to_string(code) + ":\n" + meaning(code)) {}

Reply sendTask(std::uint64_t connection, const std::string& task, const Bytes& payload, bool responseExpected,
               KEL_StreamCallback streamCallback) {
  void* answer = nullptr;
  std::uint32_t size = 0;
  Reply reply;
  reply.code =
      KEL_SendReceiveKELEx(connection, task.c_str(), 0, payload.data(), static_cast<std::uint32_t>(payload.size()), 0,
                           responseExpected ? 1 : 0, nullptr, &answer, &size, nullptr, streamCallback);
  const std::unique_ptr<void, decltype(&std::free)> owned(answer, &std::free);
  if (answer != nullptr) {
    const auto* bytes = static_cast<const std::uint8_t*>(answer);
    reply.payload.emplace(bytes, bytes + size);
  }
  return reply;
}

bool isVersionValid(std::uint64_t connection, std::string name, const Bytes& content, const std::string& vectors) {
  std::uint64_t userVersion = 0;
  const std::uint32_t result =
      KEL_ValidateVersion(connection, name.data(), content.data(), static_cast<std::uint32_t>(content.size()),
                          &userVersion, vectors.c_str());
  if (result == KEL_E_CONNECTION) throw Refused("KEL_ValidateVersion", result);
  return result == KEL_VERSION_VALID;
}

Session::Session(const std::string& table, KEL_BroadcastCallback broadcastCallback) {
  // What KEL_Init returns only the pipe library could explain; a connect that follows tells whether it is up.
  KEL_Init();
  const std::uint32_t code = KEL_Connect(table.empty() ? nullptr : table.c_str(), broadcastCallback, &mConnection);
  if (code != KEL_OK) {
    KEL_Finalize();
    throw Refused("KEL_Connect", code);
  }
}

Session::~Session() {
  KEL_Disconnect(mConnection);
  KEL_Finalize();
}

std::optional<Bytes> Session::send(const std::string& task, const Bytes& payload, bool responseExpected,
                                   KEL_StreamCallback streamCallback) const {
  Reply reply = sendTask(mConnection, task, payload, responseExpected, streamCallback);
  if (reply.code != KEL_OK) throw Refused("KEL_SendReceiveKELEx", reply.code);
  return std::move(reply.payload);
}

}  // namespace kelctl
