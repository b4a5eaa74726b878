// SPDX-License-Identifier: MIT
#include "nats/Nats.h"

#include <atomic>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <new>
#include <random>
#include <system_error>
#include <thread>
#include <utility>

namespace kel::fleet {

namespace {

/// A server that went silent is given up after two pings without an answer, so after three seconds at the most.
constexpr int kPingIntervalMs = 1000;
constexpr int kPingsWithoutAnswer = 2;

/// A reconnect is tried each server in turn with this pause, and as much again at random.
constexpr int kReconnectPauseMs = 250;

/// What is published while no server is reached waits for one; beyond that it is refused.
constexpr int kWaitingBytes = 1 << 20;

/// What may wait for a handler. Answers and streams are bounded below it by those who send them; of broadcasts the
/// newest are lost beyond it, which shows in their running numbers.
constexpr int kPendingMessages = 65536;
constexpr int kPendingBytes = 256 << 20;

struct DestroyOptions {
  void operator()(natsOptions* options) const { natsOptions_Destroy(options); }
};
using OptionsPtr = std::unique_ptr<natsOptions, DestroyOptions>;

std::string firstLineOf(const std::string& file) {
  std::ifstream in(file);
  std::string line;
  std::getline(in, line);
  while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
  return line;
}

std::string urlOf(const std::string& server, bool isSecure) {
  if (server.find("://") != std::string::npos) return server;
  return (isSecure ? "tls://" : "nats://") + server;
}

}  // namespace

// ---- Messages ----

MessagePtr makeMessage(const std::string& subject, const std::string& reply, std::string_view payload) {
  natsMsg* message = nullptr;
  if (natsMsg_Create(&message, subject.c_str(), reply.empty() ? nullptr : reply.c_str(), payload.data(),
                     static_cast<int>(payload.size())) != NATS_OK) {
    throw std::bad_alloc();
  }
  return MessagePtr(message);
}

void setHeader(natsMsg& message, const char* name, const std::string& value) {
  if (natsMsgHeader_Set(&message, name, value.c_str()) != NATS_OK) throw std::bad_alloc();
}

std::optional<std::string> header(natsMsg& message, const char* name) {
  const char* value = nullptr;
  if (natsMsgHeader_Get(&message, name, &value) != NATS_OK || value == nullptr) return std::nullopt;
  return value;
}

std::string_view payloadOf(natsMsg& message) {
  return {natsMsg_GetData(&message), static_cast<std::size_t>(natsMsg_GetDataLength(&message))};
}

std::string replyTo(natsMsg& message) {
  const char* const reply = natsMsg_GetReply(&message);
  return reply != nullptr ? reply : "";
}

// ---- Subscriptions ----

struct Subscription::Inside {
  MessageHandler handler;
  natsSubscription* subscription = nullptr;
  std::mutex mutex;
  std::condition_variable ended;
  bool isOver = false;

  static void take(natsConnection*, natsSubscription*, natsMsg* message, void* closure) {
    const MessagePtr owned(message);
    try {
      static_cast<Inside*>(closure)->handler(message);
    } catch (const std::bad_alloc&) {
      // The message is lost, as it is where memory ends on its way.
    }
  }

  static void complete(void* closure) {
    auto& self = *static_cast<Inside*>(closure);
    const std::lock_guard<std::mutex> lock(self.mutex);
    self.isOver = true;
    self.ended.notify_all();
  }
};

Subscription& Subscription::operator=(Subscription&& other) noexcept {
  end();
  mInside = std::move(other.mInside);
  return *this;
}

void Subscription::end() {
  const std::shared_ptr<Inside> inside = std::move(mInside);
  if (!inside) return;
  natsSubscription_Unsubscribe(inside->subscription);
  {
    std::unique_lock<std::mutex> lock(inside->mutex);
    inside->ended.wait(lock, [&] { return inside->isOver; });
  }
  natsSubscription_Destroy(inside->subscription);
}

// ---- Connections ----

struct Connection::Watch {
  std::function<void(bool)> onChange;
  std::function<void(const std::string&)> onForbidden;
  /// From the return of open() to the begin of the connection's end; what happens outside of that is not told.
  std::atomic<bool> isInUse{false};
  std::mutex mutex;
  std::condition_variable closed;
  bool isClosed = false;

  /// Returns when no thread of the connection's own uses this any more.
  void end(natsConnection* connection) {
    natsConnection_Close(connection);
    {
      std::unique_lock<std::mutex> lock(mutex);
      closed.wait(lock, [this] { return isClosed; });
    }
    natsConnection_Destroy(connection);
  }
};

/// A connection that is being made. libnats waits without limit for the last word of a server that has greeted it, and
/// cannot be told to stop. So that is done on a thread of its own; if it takes too long, the thread is left behind with
/// this and ends when the server goes on or is gone.
struct Connection::Attempt {
  OptionsPtr settings;
  std::shared_ptr<Watch> watch;
  std::mutex mutex;
  std::condition_variable over;
  bool isOver = false;
  bool isGivenUp = false;
  natsStatus status = NATS_TIMEOUT;
  natsConnection* connection = nullptr;

  /// Threads that stay behind at present, in the whole process.
  static inline std::atomic<int> behind{0};
  static constexpr int kMostBehind = 8;

  void make() {
    natsConnection* made = nullptr;
    const natsStatus result = natsConnection_Connect(&made, settings.get());
    {
      const std::lock_guard<std::mutex> lock(mutex);
      isOver = true;
      if (!isGivenUp) {
        status = result;
        connection = made;
        over.notify_all();
        return;
      }
    }
    if (result == NATS_OK) watch->end(made);
    --behind;
  }

  /// Null, with the reason in `status`, if nothing came of it in time.
  natsConnection* await(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(mutex);
    isGivenUp = !over.wait_for(lock, limit, [this] { return isOver; });
    if (isGivenUp) ++behind;
    return connection;
  }
};

std::unique_ptr<Connection> Connection::open(const Access& access, ConnectionOptions options, std::string& why) {
  natsOptions* raw = nullptr;
  if (natsOptions_Create(&raw) != NATS_OK) throw std::bad_alloc();
  const auto attempt = std::make_shared<Attempt>();
  attempt->settings.reset(raw);

  const bool isSecure = !access.caFile.empty();
  std::vector<std::string> urls;
  for (const std::string& server : access.servers) urls.push_back(urlOf(server, isSecure));
  std::vector<const char*> servers;
  for (const std::string& url : urls) servers.push_back(url.c_str());

  std::unique_ptr<Connection> connection(new Connection);
  connection->mWatch = attempt->watch = std::make_shared<Watch>();
  connection->mWatch->onChange = std::move(options.onChange);
  connection->mWatch->onForbidden = std::move(options.onForbidden);
  Watch* const watch = connection->mWatch.get();

  natsStatus status = natsOptions_SetServers(raw, servers.data(), static_cast<int>(servers.size()));
  const auto set = [&status](natsStatus next) {
    if (status == NATS_OK) status = next;
  };
  set(natsOptions_SetName(raw, options.name.c_str()));
  set(natsOptions_SetPingInterval(raw, kPingIntervalMs));
  set(natsOptions_SetMaxPingsOut(raw, kPingsWithoutAnswer));
  set(natsOptions_SetTimeout(raw, options.connectTimeout.count()));
  set(natsOptions_SetSendAsap(raw, true));
  set(natsOptions_SetNoEcho(raw, true));
  set(natsOptions_SetAllowReconnect(raw, options.reconnects));
  if (options.reconnects) {
    set(natsOptions_SetMaxReconnect(raw, -1));
    set(natsOptions_SetReconnectWait(raw, kReconnectPauseMs));
    set(natsOptions_SetReconnectJitter(raw, kReconnectPauseMs, kReconnectPauseMs));
    set(natsOptions_SetReconnectBufSize(raw, kWaitingBytes));
  }
  connection->mInboxes = access.user.empty() ? "_INBOX" : "_INBOX." + access.user;
  set(natsOptions_SetCustomInboxPrefix(raw, connection->mInboxes.c_str()));
  if (!access.user.empty()) {
    set(natsOptions_SetUserInfo(raw, access.user.c_str(), firstLineOf(access.passwordFile).c_str()));
  }
  if (!access.nkeyFile.empty()) {
    // The public key that belongs to the seed stands in a file beside it, as nkey tools write them.
    set(natsOptions_SetNKeyFromSeed(raw, firstLineOf(access.nkeyFile + ".pub").c_str(), access.nkeyFile.c_str()));
  }
  if (!access.credentialsFile.empty()) {
    set(natsOptions_SetUserCredentialsFromFiles(raw, access.credentialsFile.c_str(), nullptr));
  }
  if (isSecure) {
    set(natsOptions_SetSecure(raw, true));
    set(natsOptions_LoadCATrustedCertificates(raw, access.caFile.c_str()));
  }
  if (!access.certificateFile.empty()) {
    set(natsOptions_LoadCertificatesChain(raw, access.certificateFile.c_str(), access.keyFile.c_str()));
  }
  set(natsOptions_SetClosedCB(
      raw,
      [](natsConnection*, void* closure) {
        auto& self = *static_cast<Watch*>(closure);
        const std::lock_guard<std::mutex> lock(self.mutex);
        self.isClosed = true;
        self.closed.notify_all();
      },
      watch));
  const auto tell = [](bool isConnected) {
    return isConnected ? [](natsConnection*, void* closure) {
      auto& self = *static_cast<Watch*>(closure);
      if (self.onChange && self.isInUse.load()) self.onChange(true);
    } : [](natsConnection*, void* closure) {
      auto& self = *static_cast<Watch*>(closure);
      if (self.onChange && self.isInUse.load()) self.onChange(false);
    };
  };
  set(natsOptions_SetDisconnectedCB(raw, tell(false), watch));
  set(natsOptions_SetReconnectedCB(raw, tell(true), watch));
  // Other errors of the connection are told by its state and by each call's status; nothing is printed.
  set(natsOptions_SetErrorHandler(
      raw,
      [](natsConnection* nats, natsSubscription*, natsStatus error, void* closure) {
        auto& self = *static_cast<Watch*>(closure);
        const char* what = nullptr;
        if (error != NATS_NOT_PERMITTED || !self.onForbidden || !self.isInUse.load()) return;
        natsConnection_GetLastError(nats, &what);
        if (what != nullptr) self.onForbidden(what);
      },
      watch));

  if (status == NATS_OK && Attempt::behind.load() >= Attempt::kMostBehind) status = NATS_TIMEOUT;
  if (status == NATS_OK) {
    std::thread thread;
    try {
      thread = std::thread([attempt] { attempt->make(); });
    } catch (const std::system_error&) {
      why = "the system gives no thread";
      return nullptr;
    }
    // Each server may take its time twice: until it is reached, and until it has said who it is.
    const auto limit = options.connectTimeout * static_cast<int>(2 * urls.size() + 1);
    connection->mConnection = attempt->await(limit);
    status = attempt->status;
    // One that is over is waited for, so that nothing of it is left when the process ends.
    if (attempt->isGivenUp) {
      thread.detach();
    } else {
      thread.join();
    }
  }
  if (connection->mConnection != nullptr) {
    watch->isInUse.store(true);
    if (options.reconnects || connection->isConnected()) return connection;
    status = NATS_CONNECTION_DISCONNECTED;  // before there was somebody to be told
  }
  why = natsStatus_GetText(status);
  return nullptr;
}

Connection::~Connection() {
  if (mConnection == nullptr) return;
  mWatch->isInUse.store(false);
  mWatch->end(mConnection);
}

bool Connection::isConnected() const { return natsConnection_Status(mConnection) == NATS_CONN_STATUS_CONNECTED; }

std::size_t Connection::maxPayload() const {
  return static_cast<std::size_t>(natsConnection_GetMaxPayload(mConnection));
}

std::string Connection::newInbox() const {
  std::random_device random;
  return mInboxes + "." + std::to_string(random()) + std::to_string(random()) + std::to_string(random());
}

Subscription Connection::subscribe(const std::string& subject, MessageHandler handler, const std::string& queue,
                                   std::chrono::milliseconds timeout) {
  Subscription subscription;
  const auto inside = std::make_shared<Subscription::Inside>();
  inside->handler = std::move(handler);
  natsStatus status = NATS_OK;
  using Inside = Subscription::Inside;
  if (!queue.empty()) {
    status = natsConnection_QueueSubscribe(&inside->subscription, mConnection, subject.c_str(), queue.c_str(),
                                           &Inside::take, inside.get());
  } else if (timeout.count() != 0) {
    status = natsConnection_SubscribeTimeout(&inside->subscription, mConnection, subject.c_str(), timeout.count(),
                                             &Inside::take, inside.get());
  } else {
    status = natsConnection_Subscribe(&inside->subscription, mConnection, subject.c_str(), &Inside::take, inside.get());
  }
  if (status != NATS_OK) return subscription;
  natsSubscription_SetOnCompleteCB(inside->subscription, &Inside::complete, inside.get());
  natsSubscription_SetPendingLimits(inside->subscription, kPendingMessages, kPendingBytes);
  subscription.mInside = inside;
  return subscription;
}

natsStatus Connection::publish(natsMsg& message) { return natsConnection_PublishMsg(mConnection, &message); }

MessagePtr Connection::request(natsMsg& message, std::chrono::milliseconds timeout, natsStatus& status) {
  natsMsg* reply = nullptr;
  status = natsConnection_RequestMsg(&reply, mConnection, &message, timeout.count());
  return MessagePtr(reply);
}

bool Connection::flush(std::chrono::milliseconds timeout) {
  return natsConnection_FlushTimeout(mConnection, timeout.count()) == NATS_OK;
}

}  // namespace kel::fleet
