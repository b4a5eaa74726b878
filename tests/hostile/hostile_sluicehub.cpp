// SPDX-License-Identifier: MIT
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

#include "adapter/L5Records.h"
#include "adapter/SluiceHub.h"
#include "hostile/hostile_pipe.h"
#include "logging/Trace.h"
#include "support/left_thread.h"

namespace {

using namespace std::chrono_literals;

// Classes of a sequence byte.
constexpr std::uint32_t kAck = 0;
constexpr std::uint32_t kStreamMessage = 64;
constexpr std::uint32_t kStreamEnd = 128;
constexpr std::uint32_t kNoMeaning = 192;

constexpr std::uint32_t kBroadcastTui = 0x35240;  // its target is 5
constexpr std::uint32_t kDebugRefTui = 0xB8241;

/// Numbers with no pattern, the same for the same seed.
class Random {
 public:
  explicit Random(std::uint64_t seed) : mState(seed) {}
  std::uint32_t below(std::uint32_t limit) {
    std::uint64_t z = mState += 0x9E3779B97F4A7C15;
    z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9;
    z = (z ^ z >> 27) * 0x94D049BB133111EB;
    return static_cast<std::uint32_t>((z ^ z >> 31) % limit);
  }
  template <std::size_t N>
  std::uint32_t oneOf(const std::uint32_t (&numbers)[N]) {
    return numbers[below(N)];
  }

 private:
  std::uint64_t mState;
};

/// A connection that was opened once. It is never taken away, so that its value and its handlers stay in use for ever.
struct Connection {
  kel::L5MessagesHandler messages;
  kel::L5EventHandler events;
  std::uint32_t* context;
  std::atomic<std::uint32_t> row{0};
  Connection* former = nullptr;
};

/// What an answer is made of.
struct Request {
  std::uint32_t tui;
  std::uint32_t number;
  std::uint32_t seqTui;
};

constexpr std::uint32_t kLatest = 8;
std::atomic<Connection*> gLatest[kLatest];
std::atomic<std::uint32_t> gOpened{0};
std::atomic<Connection*> gLast{nullptr};

/// TUI and number of the latest requests.
constexpr std::uint32_t kRequests = 32;
std::atomic<std::uint32_t> gRequests[kRequests];
std::atomic<std::uint32_t> gRequested{0};

struct {
  std::atomic<const char*> connecting{""}, before{""}, after{""}, disconnecting{""}, pouring{""};
  std::atomic<std::uint32_t> refuses{0};
} gManners;

std::atomic<std::uint64_t> gSeed{1};
std::atomic<std::uint64_t> gDeliveries{0};

/// A source of its own for each thread and each use.
Random FreshRandom() { return Random(gSeed.fetch_add(0x51ED270B, std::memory_order_relaxed)); }

// ---------------------------------------------------------------------------------------------------------------------
// Deliveries
// ---------------------------------------------------------------------------------------------------------------------

struct Body {
  std::unique_ptr<std::uint8_t[]> bytes;
  std::uint32_t size;
};

constexpr std::uint32_t kHeadSize = sizeof(kel::KelResponseHeader) + sizeof(kel::WireTask);

/// A body that announces so much payload, in a block of `size` bytes.
Body MakeBody(std::uint32_t row, std::uint32_t word, std::uint32_t seqTui, std::uint32_t announced,
              std::uint32_t size) {
  struct {
    kel::KelResponseHeader header;
    kel::WireTask wire;
  } head{};
  static_assert(sizeof head == kHeadSize);
  head.header.handle = static_cast<std::uint16_t>(row);
  head.wire.TUI = word;
  head.wire.payloadSize = announced;
  head.wire.seqTUI = seqTui;
  Body body{std::make_unique<std::uint8_t[]>(size), size};
  std::memcpy(body.bytes.get(), &head, std::min(size, kHeadSize));
  return body;
}

void Hand(const Connection& connection, std::uint32_t messageID, const void* body, std::uint32_t size,
          bool hasReply = true) {
  std::uint32_t replyID = 0, replySize = 0;
  std::uint8_t reply = 0;
  connection.messages(reinterpret_cast<std::uintptr_t>(&connection), kel::L5_AGENT_KELPROXY, messageID, body, size,
                      hasReply ? &replyID : nullptr, hasReply ? &reply : nullptr, hasReply ? &replySize : nullptr,
                      nullptr, nullptr);
  gDeliveries.fetch_add(1, std::memory_order_relaxed);
}

void Hand(const Connection& connection, const Body& body, bool hasReply = true) {
  Hand(connection, kel::KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION, body.bytes.get(), body.size, hasReply);
}

void Deliver(const Connection& connection, char letter, const Request& request, Random& random) {
  const std::uint32_t row = connection.row.load(std::memory_order_relaxed);
  const std::uint32_t size = random.oneOf({0, 1, 12, 12, 12, 100, 8192, 8193});
  const auto whole = [&](std::uint32_t toRow, std::uint32_t tui, std::uint32_t sequenceByte) {
    return MakeBody(toRow, tui | sequenceByte << 24, request.seqTui, size, kHeadSize + size);
  };
  const auto answer = [&](std::uint32_t sequenceClass) {
    return whole(row, request.tui, request.number | sequenceClass);
  };
  switch (letter) {
    case 'A':
      return Hand(connection, answer(kAck));
    case 'M':
      return Hand(connection, answer(kStreamMessage));
    case 'E':
      return Hand(connection, answer(kStreamEnd));
    case 'U':
      return Hand(connection, answer(kNoMeaning));
    case 'N':
      return Hand(connection, answer(kAck), false);
    case 'O':
      return Hand(connection, whole(row, kDebugRefTui, random.below(64)));
    case 'B':
      return Hand(connection, whole(row, kBroadcastTui, random.below(256)));
    case 'R':
      return Hand(connection, whole(random.oneOf({14, 15, 16, 17, 254, 255, 256, 0x7FFF, 0xFFFF}), kDebugRefTui, 0));
    case 'S':
      return Hand(connection, MakeBody(row, request.tui | request.number << 24, 0, 12,
                                       random.oneOf({0, 1, 2, 11, 12, 27, 28, 39})));
    case 'H':
      return Hand(connection,
                  MakeBody(row, request.tui | request.number << 24, 0,
                           random.oneOf({5, 8193, 0x7FFFFFFF, 0xFFFFFFE4, 0xFFFFFFF0, 0xFFFFFFFF}), kHeadSize + 4));
    case 'I': {
      const Body body = answer(kAck);
      return Hand(connection, random.oneOf({0, 1, 1000, 1001, 1002, 1004, 0xFFFFFFFF}), body.bytes.get(), body.size);
    }
    case 'L':
    case 'V': {
      const std::uint32_t reason = random.oneOf({17, 0, 1, 16, 18, 0xFFFFFFFF});
      connection.events(reinterpret_cast<std::uintptr_t>(&connection),
                        letter == 'L' ? kel::L5_EVENT_DISCONNECTED : random.oneOf({1, 2, 17, 0xFFFFFFFF}), &reason,
                        connection.context);
      gDeliveries.fetch_add(1, std::memory_order_relaxed);
      return;
    }
    default:
      std::abort();  // no letter
  }
}

void DeliverAll(const Connection& connection, const char* letters, const Request& request) {
  Random random = FreshRandom();
  for (; *letters != 0; ++letters) Deliver(connection, *letters, request, random);
}

/// One of the latest requests, every second time the last one, as if it had not been answered.
Request AnyRequest(Random& random) {
  const std::uint32_t back = random.below(2) == 0 ? 1 : random.below(kRequests);
  const std::uint32_t packed = gRequests[(gRequested - back) % kRequests].load(std::memory_order_relaxed);
  return {packed & 0xFFFFFF, packed >> 24, 0};
}

// ---------------------------------------------------------------------------------------------------------------------
// Threads
// ---------------------------------------------------------------------------------------------------------------------

/// Never destroyed: threads may be left when the process ends.
struct Threads {
  std::mutex mutex;
  std::condition_variable changed;
  std::uint32_t running = 0;
  std::atomic<bool> pouring{false};
};
Threads& gThreads = *new Threads;

template <class Work>
void Start(Work work) {
  {
    const std::lock_guard lock(gThreads.mutex);
    ++gThreads.running;
  }
  kel::test::LeaveToItself([work] {
    work();
    const std::lock_guard lock(gThreads.mutex);
    --gThreads.running;
    gThreads.changed.notify_all();
  });
}

/// Deliveries that this side's call waits for; they come on a thread of the library as all do.
void DeliverMeanwhile(const Connection& connection, const char* letters, const Request& request) {
  if (*letters != 0) std::thread([&] { DeliverAll(connection, letters, request); }).join();
}

void Pour() {
  Random random = FreshRandom();
  for (std::uint32_t turn = 1; gThreads.pouring; ++turn) {
    const char* letters = gManners.pouring;
    // Every second time the last one.
    const Connection* connection =
        (random.below(2) == 0 ? gLast : gLatest[random.below(kLatest)]).load(std::memory_order_acquire);
    if (connection != nullptr && *letters != 0) {
      Deliver(*connection, letters[random.below(static_cast<std::uint32_t>(std::strlen(letters)))], AnyRequest(random),
              random);
    }
    // Those who have to take it all need the processor as well.
    if (turn % 16 == 0) std::this_thread::sleep_for(200us);
  }
}

// ---------------------------------------------------------------------------------------------------------------------
// The L5 functions
// ---------------------------------------------------------------------------------------------------------------------

std::uint32_t L5Connect(void*, kel::L5MessagesHandler messages, kel::L5EventHandler events, std::uint32_t* context,
                        std::uint32_t, std::uint64_t* value) {
  auto* connection = new Connection{messages, events, context};
  connection->former = gLast.exchange(connection, std::memory_order_acq_rel);
  gLatest[gOpened++ % kLatest].store(connection, std::memory_order_release);
  DeliverMeanwhile(*connection, gManners.connecting, {kDebugRefTui, 0, 0});
  *value = reinterpret_cast<std::uintptr_t>(connection);
  return 0;
}

std::uint32_t L5Disconnect(std::uint64_t value) {
  DeliverMeanwhile(*reinterpret_cast<Connection*>(value), gManners.disconnecting, {kDebugRefTui, 0, 0});
  return 0;
}

std::uint32_t AcquireSocket(Connection& connection, const void* row, std::uint32_t* replyMessageID, void* reply,
                            std::uint32_t* replySize) {
  connection.row.store(*static_cast<const std::uint8_t*>(row), std::memory_order_relaxed);
  Random random = FreshRandom();
  *replyMessageID = kel::KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID_RESPONSE;
  *static_cast<std::uint8_t*>(reply) = static_cast<std::uint8_t>(random.below(255));
  *replySize = 1;
  if ((gManners.refuses & HOSTILE_REFUSES_SOCKETS) == 0) return 0;
  switch (random.below(5)) {
    case 0:
      return 1;
    case 1:
      *replyMessageID = 1000;
      break;
    case 2:
      *static_cast<std::uint8_t*>(reply) = kel::kNoSocket;
      break;
    case 3:
      *replySize = 0;
      break;
    default:
      *replySize = 0xFFFFFFFF;
      break;
  }
  return 0;
}

std::uint32_t TakeRequest(const Connection& connection, const void* body, std::uint32_t* replyMessageID, void* reply,
                          std::uint32_t* replySize) {
  kel::WireTask wire;
  std::memcpy(&wire, static_cast<const std::uint8_t*>(body) + sizeof(kel::KelRequestHeader), sizeof wire);
  *replyMessageID = 0;
  std::memset(reply, 0, *replySize);
  // A request without a sequence is not answered: its number would be another's.
  const Request request{wire.TUI & 0xFFFFFF, wire.seqTUI >> 24 & 63, wire.seqTUI};
  if (wire.seqTUI != 0) {
    gRequests[gRequested++ % kRequests].store(request.tui | request.number << 24, std::memory_order_relaxed);
    DeliverMeanwhile(connection, gManners.before, request);
    if (const char* letters = gManners.after; *letters != 0) {
      Start([&connection, letters, request] { DeliverAll(connection, letters, request); });
    }
  }

  Random random = FreshRandom();
  const std::uint32_t refuses = gManners.refuses;
  const std::uint32_t kind = wire.responseExpected == 1 ? HOSTILE_REFUSES_EXPECTANT : HOSTILE_REFUSES_OTHERS;
  if ((refuses & kind) == 0 || ((refuses & HOSTILE_REFUSES_SOME) != 0 && random.below(2) == 0)) return 0;
  switch (random.below(3)) {
    case 0:
      return 5;
    case 1:
      *replyMessageID = 7;
      break;
    default:
      static_cast<kel::KelRequestReply*>(reply)->L4status = 9;
      break;
  }
  *replySize = 0xFFFFFFFF;
  return 0;
}

std::uint32_t SendReceiveMessage(std::uint64_t value, std::uint32_t agent, std::uint32_t messageID, const void* body,
                                 std::uint32_t, std::uint32_t* replyMessageID, void* reply, std::uint32_t* replySize) {
  auto& connection = *reinterpret_cast<Connection*>(value);
  if (agent == kel::L5_AGENT_L4MSGPROXY) return TakeRequest(connection, body, replyMessageID, reply, replySize);
  if (messageID == kel::KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID) {
    return AcquireSocket(connection, body, replyMessageID, reply, replySize);
  }
  return 1;  // a socket that is given back is refused, which nobody minds
}

kel::tL5DispatcherFunctions gFunctions = {nullptr, L5Connect, L5Disconnect, SendReceiveMessage};

}  // namespace

extern "C" {

void Hostile_Behave(const HostileManners* manners) {
  gManners.connecting = manners->connecting;
  gManners.before = manners->before;
  gManners.after = manners->after;
  gManners.disconnecting = manners->disconnecting;
  gManners.pouring = manners->pouring;
  gManners.refuses = manners->refuses;
}

void Hostile_Pour(std::uint32_t threads, std::uint64_t seed) {
  gSeed = seed;
  gThreads.pouring = true;
  for (std::uint32_t i = 0; i < threads; ++i) Start(Pour);
}

std::uint32_t Hostile_Quiet(std::uint32_t milliseconds) {
  gThreads.pouring = false;
  std::unique_lock lock(gThreads.mutex);
  gThreads.changed.wait_for(lock, std::chrono::milliseconds(milliseconds), [] { return gThreads.running == 0; });
  return gThreads.running;
}

std::uint64_t Hostile_Deliveries() { return gDeliveries; }

void Hostile_Message(std::uint32_t messageID, const void* body, std::uint32_t size) {
  if (const Connection* connection = gLast) Hand(*connection, messageID, body, size);
}

void Hostile_Event(std::uint32_t event, const std::uint32_t* reason) {
  if (const Connection* connection = gLast) {
    connection->events(reinterpret_cast<std::uintptr_t>(connection), event, reason, connection->context);
  }
}

HOSTILE_API kel::tL5DispatcherFunctions* SLUICE_HUB_GetServiceDispatcherFunctions() { return &gFunctions; }
HOSTILE_API VersionArray SLUICE_HUB_GetVersion() { return {{4, 1, 0, 21, 0}}; }
HOSTILE_API std::uint32_t IsVersionValidationEnabled() { return 1; }
HOSTILE_API std::uint32_t ValidateVersion(const wchar_t*, VersionArray, VersionArray) { return 1; }
HOSTILE_API std::uint32_t SLUICE_HUB_Init() { return 0; }
HOSTILE_API std::uint32_t SLUICE_HUB_Finalize() { return 0; }
HOSTILE_API std::uint32_t SLUICE_HUB_RegisterCtrlStatusUpdatesCB(KEL_CtrlStatusCallback) { return 0; }
HOSTILE_API std::uint32_t SLUICE_HUB_UnregisterCtrlStatusUpdatesCB(KEL_CtrlStatusCallback) { return 0; }
HOSTILE_API std::uint32_t SLUICE_HUB_GetCtrlStatus() { return 0; }
HOSTILE_API std::uint32_t SLUICE_HUB_SetConnParams(std::uint64_t, std::uint32_t) { return 0; }
HOSTILE_API void Beacon_WriteTrace(std::uint32_t, std::uint32_t, const wchar_t*, const wchar_t*, std::uint32_t,
                                   const wchar_t*, ...) {}

}  // extern "C"
