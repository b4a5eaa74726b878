// SPDX-License-Identifier: MIT
#include "session.h"

#include <cstdlib>
#include <fstream>
#include <memory>
#include <utility>

#include "engine/IniFileReader.h"
#include "interrupt.h"
#include "logging/Registry.h"

namespace kelctl {
namespace {

/// RxWaitTimeout, read as the library reads it.
std::chrono::milliseconds waitLimit() {
  constexpr std::uint32_t kDefault = 10000;
  const std::string name = std::string(".") + kel::platform::kPathSeparator + "Brel.ini";
  if (!std::ifstream(name)) return std::chrono::milliseconds(kDefault);
  std::string folder;
  kel::ReadRegistryString(kel::platform::RegistryRoot::localMachine, "Software\\Brel", "BrelDllsPath", &folder);
  if (!folder.empty()) folder += kel::platform::kPathSeparator;
  kel::IniFileReader settings;
  settings.SetIniFileName((folder + name).c_str());
  return std::chrono::milliseconds(settings.ReadIntValue("Common", "RxWaitTimeout", kDefault));
}

void sendAsync(std::uint64_t connection, const std::string& task, const Bytes& payload,
               KEL_StreamCallback streamCallback) {
  std::uint32_t sequenceNumber = 0;
  const std::uint32_t code =
      KEL_SendReceiveAsyncKEL(connection, task.c_str(), 0, payload.data(), static_cast<std::uint32_t>(payload.size()),
                              &sequenceNumber, queueAnswer, streamCallback);
  if (code != KEL_OK) throw Refused("KEL_SendReceiveAsyncKEL", code);
}

}  // namespace

std::string meaning(std::uint32_t code) {
  switch (code) {
    case KEL_OK:
      return "It succeeded.";
    case KEL_E_CONNECTION:
      return "The connection is not open, or it could not be opened or closed. See that the\n"
             "device is there, and that `kelctl tasks` can read the task table.";
    case KEL_E_ASYNC_TASK:
      return "The task could not be sent: its name is unknown, the device refused it, or too\n"
             "many are open. Look the name up with `kelctl tasks`: case counts.";
    case KEL_E_TASK:
      return "The task's name is unknown, the device refused it, or no answer came in time.\n"
             "Look the name up with `kelctl tasks`: case counts. RxWaitTimeout in Brel.ini\n"
             "says how long an answer is waited for.";
    default:
      return "A result of the pipe library's own.";
  }
}

Refused::Refused(const std::string& call, std::uint32_t code)
    : std::runtime_error(call + " returned " + std::to_string(code) + ":\n" + meaning(code)),
      mCall(call),
      mCode(code) {}

NoAnswer::NoAnswer()
    : std::runtime_error(
          "no answer came in time.\n"
          "The device may be busy, or not there. RxWaitTimeout in Brel.ini says how many\n"
          "milliseconds an answer is waited for: 10000, unless it says otherwise.") {}

Interrupted::Interrupted() : std::runtime_error("interrupted before the answer came.") {}

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
  catchInterrupt();
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

Answer Session::ask(const std::string& task, const Bytes& payload) const {
  sendAsync(mConnection, task, payload, nullptr);
  std::optional<Answer> answer = nextAnswer(Clock::time_point::max());
  if (!answer) throw Interrupted();
  if (answer->errorCode != 0) throw NoAnswer();
  return std::move(*answer);
}

// The library sets a stream no limit, not even for its opening.
void Session::openStream(const std::string& task, const Bytes& payload) const {
  const Clock::time_point deadline = Clock::now() + waitLimit();
  sendAsync(mConnection, task, payload, queueStreamMessage);
  if (nextAnswer(deadline)) return;
  if (interrupted()) throw Interrupted();
  throw NoAnswer();
}

void Session::tell(const std::string& task, const Bytes& payload) const {
  const std::uint32_t code = sendTask(mConnection, task, payload, false).code;
  if (code != KEL_OK) throw Refused("KEL_SendReceiveKELEx", code);
}

}  // namespace kelctl
