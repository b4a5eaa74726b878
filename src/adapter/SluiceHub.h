/* SPDX-License-Identifier: MIT */
// The closed pipe library SluiceHub, as far as this library uses it: what is linked, and what is looked up at run time.
//
// It reaches the process by both roads at once. The imports below are resolved when the library is loaded; the two
// functions of the second group are looked up after the adapter has loaded the same file once more
// (adapter/Loading.cpp). Beacon_WriteTrace, the ninth import, stands with the trace calls (logging/Trace.h).
#pragma once

#include <cstdint>

#include "KELHandler.h"

extern "C" {

// Results are those of the closed library and go to the client unread.
std::uint32_t SLUICE_HUB_Init(void);
std::uint32_t SLUICE_HUB_Finalize(void);
std::uint32_t SLUICE_HUB_RegisterCtrlStatusUpdatesCB(KEL_CtrlStatusCallback callback);
std::uint32_t SLUICE_HUB_UnregisterCtrlStatusUpdatesCB(KEL_CtrlStatusCallback callback);
std::uint32_t SLUICE_HUB_GetCtrlStatus(void);
std::uint32_t SLUICE_HUB_SetConnParams(std::uint64_t params, std::uint32_t value);

/// 0 if the interface versions are not to be compared.
std::uint32_t IsVersionValidationEnabled(void);
/// Compares the pipe library's interface version with the one that a user was built for. 0 and 1 accept it.
std::uint32_t ValidateVersion(const wchar_t* userName, VersionArray ofLibrary, VersionArray ofUser);

}  // extern "C"

namespace kel {

/// Receives each L5 message that nobody waits for. Runs on a thread of the pipe library.
using L5MessagesHandler = void (*)(std::uint64_t connection, std::uint32_t source, std::uint32_t messageID,
                                   const void* buffer, std::uint32_t bufferSize, std::uint32_t* replyMessageID,
                                   void* replyBuffer, std::uint32_t* replySize, void* unused1, void* unused2);

/// Receives each change of the link's state. Runs on a thread of the pipe library.
using L5EventHandler = void (*)(std::uint64_t connection, std::uint32_t event, const std::uint32_t* reason,
                                const std::uint32_t* context);

/// The pipe library's table of L5 functions; it stays the library's. Statuses: 0 is success. More slots may follow.
struct tL5DispatcherFunctions {
  void (*unused)();

  /// Opens a connection. `*context` goes back to the event handler, `*connection` gets an opaque value that is not 0.
  std::uint32_t (*L5Connect)(void* null, L5MessagesHandler messages, L5EventHandler events, std::uint32_t* context,
                             std::uint32_t zero, std::uint64_t* connection);

  std::uint32_t (*L5Disconnect)(std::uint64_t connection);

  /// Sends a message to an agent and blocks until it has answered. `*replySize` holds the room in `reply` and gets the
  /// reply's size in bytes. An indication passes null for the three reply arguments.
  std::uint32_t (*SendReceiveMessage)(std::uint64_t connection, std::uint32_t agent, std::uint32_t messageID,
                                      const void* buffer, std::uint32_t bufferSize, std::uint32_t* replyMessageID,
                                      void* reply, std::uint32_t* replySize);
};

using GetServiceDispatcherFunctions = tL5DispatcherFunctions* (*)();
using GetSluiceHubVersion = VersionArray (*)();

}  // namespace kel
