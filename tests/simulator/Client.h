/* SPDX-License-Identifier: MIT */
// A client of the stand-in that speaks the L5 layer directly and notes everything that comes to its handlers.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "SluiceHubSim.h"
#include "adapter/L5Records.h"
#include "adapter/SluiceHub.h"
#include "adapter/TaskRecord.h"

extern "C" kel::tL5DispatcherFunctions* SLUICE_HUB_GetServiceDispatcherFunctions(void);
extern "C" VersionArray SLUICE_HUB_GetVersion(void);

namespace kel::sim {

using Bytes = std::vector<std::uint8_t>;
using Values = std::vector<std::uint32_t>;

inline constexpr std::uint32_t kDebugVal = 0x38240;
inline constexpr std::uint32_t kDebugRef = 0xB8241;
inline constexpr std::uint32_t kBroadcaster = 0x38242;
inline constexpr std::uint32_t kStreamer = 0x38243;

inline Bytes ToBytes(const Values& values) {
  Bytes bytes(values.size() * sizeof(std::uint32_t));
  if (!bytes.empty()) std::memcpy(bytes.data(), values.data(), bytes.size());
  return bytes;
}

inline Bytes ToBytes(const char* text) { return Bytes(text, text + std::strlen(text) + 1); }

/// The payload of a request: values or bytes.
struct Payload {
  Payload() = default;
  Payload(std::initializer_list<std::uint32_t> values) : bytes(ToBytes(values)) {}
  Payload(const Values& values) : bytes(ToBytes(values)) {}
  Payload(const Bytes& raw) : bytes(raw) {}

  Bytes bytes;
};

/// A task response as it arrived.
struct Response {
  explicit Response(const Bytes& body) {
    std::memcpy(&header, body.data(), sizeof header);
    std::memcpy(&head, body.data() + sizeof header, sizeof head);
    payload.assign(body.begin() + sizeof header + sizeof head, body.end());
  }
  std::uint32_t SequenceByte() const { return GetTuiSeqNum(head.TUI); }
  std::uint32_t Type() const { return GetTuiType(head.TUI); }
  Values PayloadValues() const {
    Values values(payload.size() / sizeof(std::uint32_t));
    if (!values.empty()) std::memcpy(values.data(), payload.data(), values.size() * sizeof(std::uint32_t));
    return values;
  }

  KelResponseHeader header;
  WireTask head;
  Bytes payload;
};

inline tL5DispatcherFunctions& L5() { return *SLUICE_HUB_GetServiceDispatcherFunctions(); }

class Client {
 public:
  struct ReceivedMessage {
    std::uint32_t ID;
    Bytes body;
    std::thread::id thread;
  };
  struct ReceivedEvent {
    std::uint32_t event;
    std::uint32_t reason;
    std::uint32_t context;
  };
  struct Reply {
    std::uint32_t status = 0;
    std::uint32_t ID = 0xDEAD;
    std::uint32_t size = sizeof(KelRequestReply);
    KelRequestReply body{};
  };

  /// Opens a connection and acquires a socket for adapter row `row`.
  explicit Client(std::uint8_t row = 3) : mRow(row) {
    mConnectStatus = L5().L5Connect(nullptr, OnMessage, OnEvent, &mRow, 0, &mConnection);
    if (mConnection == 0) return;
    {
      const std::lock_guard lock(sClientsMutex);
      sClients[mConnection] = this;
    }
    socketID = AcquireSocket();
  }
  ~Client() {
    if (!mLeftOpen) Disconnect();
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  std::uint32_t Disconnect() {
    const std::uint32_t status = L5().L5Disconnect(mConnection);
    const std::lock_guard lock(sClientsMutex);
    sClients.erase(mConnection);
    return status;
  }
  void LeaveOpen() { mLeftOpen = true; }

  std::uint64_t Connection() const { return mConnection; }
  std::uint32_t ConnectStatus() const { return mConnectStatus; }

  Reply Ask(std::uint32_t agent, std::uint32_t messageID, const Bytes& body) const {
    Reply reply;
    reply.status =
        L5().SendReceiveMessage(mConnection, agent, messageID, body.data(), static_cast<std::uint32_t>(body.size()),
                                &reply.ID, &reply.body, &reply.size);
    return reply;
  }
  std::uint8_t AcquireSocket() const {
    std::uint32_t replyID = 0;
    std::uint8_t socket = kNoSocket;
    std::uint32_t size = 1;
    const auto row = static_cast<std::uint8_t>(mRow);
    L5().SendReceiveMessage(mConnection, L5_AGENT_KELPROXY, KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID, &row, 1, &replyID,
                            &socket, &size);
    return socket;
  }
  std::uint32_t ReleaseSocket(std::uint8_t socket) const {
    return L5().SendReceiveMessage(mConnection, L5_AGENT_KELPROXY, KEL_PROXY_L5_MSG_ID_RELEASE_SOCKET_ID_INDICATION,
                                   &socket, 1, nullptr, nullptr, nullptr);
  }

  static Bytes RequestBody(std::uint32_t TUI, const Bytes& payload, std::uint32_t seqTUI,
                           std::uint32_t responseExpected) {
    const auto size = static_cast<std::uint32_t>(payload.size());
    const KelRequestHeader header{kKelRequestOpcode, static_cast<std::uint16_t>(sizeof(task) + size), {}};
    const WireTask head{TUI, size, seqTUI, {responseExpected}};
    Bytes body(sizeof header + sizeof head + size);
    std::memcpy(body.data(), &header, sizeof header);
    std::memcpy(body.data() + sizeof header, &head, sizeof head);
    if (size != 0) std::memcpy(body.data() + sizeof header + sizeof head, payload.data(), size);
    return body;
  }
  /// Sends a task request under a sequence number.
  Reply Send(std::uint32_t TUI, const Payload& payload, std::uint8_t sequenceNumber = 1,
             std::uint32_t responseExpected = 1) const {
    std::uint32_t seqTUI = MakeSeqTUI(TUI, sequenceNumber);
    if (responseExpected == 1) seqTUI = (seqTUI & ~0xFFu) | socketID;
    return Ask(L5_AGENT_L4MSGPROXY, L4MSGPROXY_L5_MSG_ID_KEL_REQUEST,
               RequestBody(TUI, payload.bytes, seqTUI, responseExpected));
  }

  /// Called within the message handler, on the delivery thread.
  void WhenMessageComes(std::function<void()> action) { mAction = std::move(action); }

  std::vector<ReceivedMessage> Messages() {
    const std::lock_guard lock(mMutex);
    return mMessages;
  }
  std::vector<ReceivedEvent> Events() {
    const std::lock_guard lock(mMutex);
    return mEvents;
  }
  /// Waits for the first event; an exception if it does not come in ten seconds.
  ReceivedEvent WaitForEvent() {
    std::unique_lock lock(mMutex);
    mChanged.wait_for(lock, std::chrono::seconds(10), [&] { return !mEvents.empty(); });
    return mEvents.at(0);
  }
  /// Waits for the first `count` messages. Fewer come back if they did not arrive in ten seconds.
  std::vector<Response> WaitForResponses(std::size_t count) {
    std::unique_lock lock(mMutex);
    mChanged.wait_for(lock, std::chrono::seconds(10), [&] { return mMessages.size() >= count; });
    std::vector<Response> responses;
    for (const auto& message : mMessages) responses.emplace_back(message.body);
    return responses;
  }
  /// Sends a request and gives the next response that comes.
  Response Exchange(std::uint32_t TUI, const Payload& payload) {
    const std::size_t before = Messages().size();
    Send(TUI, payload);
    return WaitForResponses(before + 1).at(before);
  }

  std::uint8_t socketID = kNoSocket;

 private:
  static Client* Find(std::uint64_t connection) {
    const std::lock_guard lock(sClientsMutex);
    const auto found = sClients.find(connection);
    return found != sClients.end() ? found->second : nullptr;
  }
  static void OnMessage(std::uint64_t connection, std::uint32_t, std::uint32_t messageID, const void* buffer,
                        std::uint32_t size, std::uint32_t* replyID, void*, std::uint32_t* replySize, void*, void*) {
    *replyID = 0;
    *replySize = 0;
    Client* client = Find(connection);
    if (client == nullptr) return;
    if (client->mAction) client->mAction();
    const auto* bytes = static_cast<const std::uint8_t*>(buffer);
    const std::lock_guard lock(client->mMutex);
    client->mMessages.push_back({messageID, Bytes(bytes, bytes + size), std::this_thread::get_id()});
    client->mChanged.notify_all();
  }
  static void OnEvent(std::uint64_t connection, std::uint32_t event, const std::uint32_t* reason,
                      const std::uint32_t* context) {
    Client* client = Find(connection);
    if (client == nullptr) return;
    const std::lock_guard lock(client->mMutex);
    client->mEvents.push_back({event, *reason, *context});
    client->mChanged.notify_all();
  }

  // Leaked, so that a connection left open finds them until the process ends.
  inline static std::mutex& sClientsMutex = *new std::mutex;
  inline static std::map<std::uint64_t, Client*>& sClients = *new std::map<std::uint64_t, Client*>;

  std::uint32_t mRow;
  std::uint32_t mConnectStatus = 0;
  std::uint64_t mConnection = 0;
  bool mLeftOpen = false;
  std::function<void()> mAction;
  std::mutex mMutex;
  std::condition_variable mChanged;
  std::vector<ReceivedMessage> mMessages;
  std::vector<ReceivedEvent> mEvents;
};

}  // namespace kel::sim
