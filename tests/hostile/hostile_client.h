/* SPDX-License-Identifier: MIT */
// A client of the exports, and what it has noted.
#pragma once

#include "KELHandler.h"
#include "hostile/hostile_test.h"

namespace kel::test {

inline constexpr const char* kDebugVal = "TASK_ID_APPLICATION_DEBUG_VAL";
inline constexpr const char* kDebugRef = "TASK_ID_APPLICATION_DEBUG_REF";

/// A client with one connection at a time. Callbacks get no more of their client than `commandID`, so that tells the
/// client and its connection; broadcasts have a callback for each client.
struct Client {
  std::atomic<bool> open{false};
  std::atomic<std::uint32_t> connections{0};
  std::atomic<std::uint32_t> calls{0};
  std::atomic<std::uint32_t> lateCalls{0};
  std::uint64_t conn = 0;
};

inline constexpr std::uint32_t kClients = 3;
inline Client gClients[kClients];

inline std::uint32_t CommandOf(std::uint32_t client) { return client << 24 | gClients[client].connections; }

inline void NoteCall(Client& client, bool late) {
  ++client.calls;
  if (late) ++client.lateCalls;
}

template <std::uint32_t client>
void OnBroadcast(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
  std::free(name);
  std::free(payload);
  NoteCall(gClients[client], !gClients[client].open);
}

inline constexpr KEL_BroadcastCallback kBroadcastCallbacks[kClients] = {OnBroadcast<0>, OnBroadcast<1>, OnBroadcast<2>};

inline void NoteAnswer(std::uint32_t commandID) {
  Client& client = gClients[commandID >> 24];
  NoteCall(client, !client.open || commandID != CommandOf(commandID >> 24));
}

inline void OnAnswer(std::uint32_t, std::uint32_t commandID, std::uint32_t, std::uint32_t, void*, std::uint32_t,
                     std::uint32_t) {
  NoteAnswer(commandID);
}

inline void OnStream(std::uint32_t, std::uint32_t commandID, std::uint32_t, std::uint32_t, std::uint32_t, void*,
                     std::uint32_t, std::uint32_t) {
  NoteAnswer(commandID);
}

inline std::uint32_t Connect(std::uint32_t client, bool withBroadcasts = true) {
  ++gClients[client].connections;
  gClients[client].open = true;
  return KEL_Connect(nullptr, withBroadcasts ? kBroadcastCallbacks[client] : nullptr, &gClients[client].conn);
}

inline std::uint32_t Disconnect(std::uint32_t client) {
  const std::uint32_t result = KEL_Disconnect(gClients[client].conn);
  gClients[client].open = false;
  return result;
}

/// Synchronous tasks: their answer is let go.
inline std::uint32_t Ask(std::uint32_t client, bool responseExpected = true, KEL_StreamCallback stream = nullptr) {
  void* answer = nullptr;
  std::uint32_t size = 0;
  const std::uint32_t result = KEL_SendReceiveKELEx(gClients[client].conn, kDebugVal, CommandOf(client), nullptr, 0, 0,
                                                    responseExpected ? 1 : 0, nullptr, &answer, &size, nullptr, stream);
  std::free(answer);
  return result;
}

/// `*number` gets the task's number if it has one, and is the number that a refused one without an answer frees.
inline std::uint32_t AskAsync(std::uint32_t client, KEL_StreamCallback stream, bool responseExpected,
                              std::uint32_t* number) {
  return KEL_SendReceiveAsyncKELEx(gClients[client].conn, kDebugRef, CommandOf(client), "ask", 3, 0,
                                   responseExpected ? 1 : 0, number, OnAnswer, stream);
}

inline std::uint32_t AskAsync(std::uint32_t client, KEL_StreamCallback stream = nullptr, bool responseExpected = true) {
  std::uint32_t number = 0;
  return AskAsync(client, stream, responseExpected, &number);
}

}  // namespace kel::test
