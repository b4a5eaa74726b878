// SPDX-License-Identifier: MIT
// ZeroMQ inside one process, in the same shapes.
#include <benchmark/benchmark.h>
#include <zmq.h>

#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

#include "client.h"
#include "words.h"

namespace {

/// One for each run: a closed socket keeps its address for a while, in the context that it belongs to.
class Context {
 public:
  ~Context() { zmq_ctx_term(mContext); }
  void* get() const { return mContext; }

 private:
  void* const mContext = zmq_ctx_new();
};

class Socket {
 public:
  Socket(const Context& context, int type) : mSocket(zmq_socket(context.get(), type)) {
    // Queues without a limit, like the library's; nothing is kept at the end.
    const int none = 0;
    zmq_setsockopt(mSocket, ZMQ_SNDHWM, &none, sizeof none);
    zmq_setsockopt(mSocket, ZMQ_RCVHWM, &none, sizeof none);
    zmq_setsockopt(mSocket, ZMQ_LINGER, &none, sizeof none);
  }
  ~Socket() { zmq_close(mSocket); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  void bind(const char* address) {
    if (zmq_bind(mSocket, address) != 0) std::abort();
  }
  void connect(const char* address) {
    if (zmq_connect(mSocket, address) != 0) std::abort();
  }
  void subscribe() { zmq_setsockopt(mSocket, ZMQ_SUBSCRIBE, "", 0); }
  void send(const void* bytes, std::size_t size) { zmq_send(mSocket, bytes, size, 0); }
  std::size_t receive(void* bytes, std::size_t room) {
    return static_cast<std::size_t>(zmq_recv(mSocket, bytes, room, 0));
  }

 private:
  void* const mSocket;
};

/// A thread that sends everything back, until something empty comes.
class Echo {
 public:
  Echo() {
    mNear.bind("inproc://echo");
    mThread = std::thread([this] {
      Socket far(mContext, ZMQ_PAIR);
      far.connect("inproc://echo");
      std::vector<char> bytes(bench::kRefSize);
      while (const std::size_t size = far.receive(bytes.data(), bytes.size())) far.send(bytes.data(), size);
    });
  }
  ~Echo() {
    mNear.send(nullptr, 0);
    mThread.join();
  }
  Echo(const Echo&) = delete;
  Echo& operator=(const Echo&) = delete;

  Socket& socket() { return mNear; }

 private:
  const Context mContext;
  Socket mNear{mContext, ZMQ_PAIR};
  std::thread mThread;
};

void Exchange(benchmark::State& state, std::size_t size, std::int64_t count) {
  Echo echo;
  std::vector<char> bytes(size);
  for (auto _ : state) {
    for (std::int64_t i = 0; i < count; ++i) echo.socket().send(bytes.data(), size);
    for (std::int64_t i = 0; i < count; ++i) echo.socket().receive(bytes.data(), size);
  }
  state.SetItemsProcessed(state.iterations() * count);
}

void ZeroMqRoundTrip(benchmark::State& state) { Exchange(state, static_cast<std::size_t>(state.range(0)), 1); }
BENCHMARK(ZeroMqRoundTrip)->Arg(bench::kValSize)->Arg(bench::kRefSize)->Iterations(4000)->UseRealTime();

void ZeroMqInFlight(benchmark::State& state) { Exchange(state, bench::kValSize, state.range(0)); }
BENCHMARK(ZeroMqInFlight)->Arg(1)->Iterations(4000)->UseRealTime();
BENCHMARK(ZeroMqInFlight)->Arg(64)->Iterations(300)->UseRealTime();

/// Small messages from one thread to another. The sockets go from thread to thread in an order that the threads' words
/// make sure of.
void Series(benchmark::State& state, Socket& from, Socket& to) {
  bench::ParkedThread producer([&] {
    const char message[bench::kValSize] = {};
    for (std::uint32_t i = 0; i < bench::kSeriesLength; ++i) from.send(message, sizeof message);
  });
  char message[bench::kValSize];
  for (auto _ : state) {
    producer.wake();
    for (std::uint32_t i = 0; i < bench::kSeriesLength; ++i) to.receive(message, sizeof message);
  }
  state.SetItemsProcessed(state.iterations() * bench::kSeriesLength);
}

void ZeroMqPushPull(benchmark::State& state) {
  const Context context;
  Socket pull(context, ZMQ_PULL), push(context, ZMQ_PUSH);
  pull.bind("inproc://push");
  push.connect("inproc://push");
  Series(state, push, pull);
}
BENCHMARK(ZeroMqPushPull)->Iterations(20)->UseRealTime();

void ZeroMqPublish(benchmark::State& state) {
  const Context context;
  Socket publisher(context, ZMQ_XPUB), subscriber(context, ZMQ_SUB);
  publisher.bind("inproc://publish");
  subscriber.connect("inproc://publish");
  subscriber.subscribe();
  // What is published before the subscription has arrived would be dropped.
  char subscription[1];
  publisher.receive(subscription, sizeof subscription);
  Series(state, publisher, subscriber);
}
BENCHMARK(ZeroMqPublish)->Iterations(20)->UseRealTime();

void ZeroMqConnect(benchmark::State& state) {
  const Context context;
  Socket server(context, ZMQ_ROUTER);
  server.bind("inproc://connect");
  for (auto _ : state) {
    Socket client(context, ZMQ_DEALER);
    client.connect("inproc://connect");
  }
}
BENCHMARK(ZeroMqConnect)->Iterations(300)->UseRealTime();

}  // namespace
