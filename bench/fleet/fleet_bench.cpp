// SPDX-License-Identifier: MIT
// Tasks and streams through NATS, each beside bare NATS of the same shape: a request of as many bytes with an answer of
// as many, by a program that does nothing else. Run by fleet.sh, which has servers, devices and echoes up: the first of
// each on the first server, where this program is as well, and the second on another one of the cluster.
#include <benchmark/benchmark.h>

#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "kel/fleet.hpp"
#include "nats/Nats.h"

namespace {

namespace fleet = kel::fleet;

constexpr std::uint32_t kInFlight = 64;
constexpr std::uint32_t kStreamLength = 2000;
constexpr std::chrono::seconds kLong{30};
const std::string kPayload(12, 'x');

/// Whether a row's device and echo are on the client's server, or on the other one.
enum class Place { same, across };

std::string numberOf(Place place) { return place == Place::same ? "1" : "2"; }
std::string server() {
  const char* const address = std::getenv("KEL_FLEET_SERVER");
  return address != nullptr ? address : "127.0.0.1:4222";
}

/// Connections live as long as the process, so that no row pays for one.
kel::Client& device(Place place) {
  static std::vector<std::unique_ptr<kel::Client>> clients(2);
  std::unique_ptr<kel::Client>& client = clients[place == Place::same ? 0 : 1];
  if (!client) {
    const std::string uri = "nats://" + server() + "/bench/device-" + numberOf(place);
    client = std::make_unique<kel::Client>(fleet::connect(uri).value());
  }
  return *client;
}

fleet::Connection& nats() {
  static const std::unique_ptr<fleet::Connection> connection = [] {
    fleet::Access access;
    access.servers = {server()};
    std::string why;
    std::unique_ptr<fleet::Connection> made = fleet::Connection::open(access, {}, why);
    if (!made) throw std::runtime_error(why);
    return made;
  }();
  return *connection;
}

// ---- One at a time ----

void FleetTask(benchmark::State& state, Place place) {
  kel::Client& client = device(place);
  for (auto _ : state) {
    if (!client.task(kel::tasks::TASK_ID_APPLICATION_DEBUG_VAL, {1, 2, 3})) state.SkipWithError("no answer");
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK_CAPTURE(FleetTask, same, Place::same)->Name("FleetTask/same")->Iterations(2000)->UseRealTime();
BENCHMARK_CAPTURE(FleetTask, across, Place::across)->Name("FleetTask/across")->Iterations(2000)->UseRealTime();

void NatsRequest(benchmark::State& state, Place place) {
  const fleet::MessagePtr request = fleet::makeMessage("echo." + numberOf(place), {}, kPayload);
  for (auto _ : state) {
    natsStatus status = NATS_OK;
    if (!nats().request(*request, kLong, status)) state.SkipWithError(natsStatus_GetText(status));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK_CAPTURE(NatsRequest, same, Place::same)->Name("NatsRequest/same")->Iterations(2000)->UseRealTime();
BENCHMARK_CAPTURE(NatsRequest, across, Place::across)->Name("NatsRequest/across")->Iterations(2000)->UseRealTime();

// ---- Many at once ----

void FleetTasks(benchmark::State& state, Place place) {
  kel::Client& client = device(place);
  std::vector<kel::Call> calls;
  for (auto _ : state) {
    for (std::uint32_t i = 0; i < kInFlight; ++i) {
      calls.push_back(client.start(kel::tasks::TASK_ID_APPLICATION_DEBUG_VAL, {1, 2, 3}));
    }
    for (const kel::Call& call : calls) {
      if (!call.get()) state.SkipWithError("no answer");
    }
    calls.clear();
  }
  state.SetItemsProcessed(state.iterations() * kInFlight);
}
BENCHMARK_CAPTURE(FleetTasks, same, Place::same)->Name("FleetTasks/same")->Iterations(50)->UseRealTime();
BENCHMARK_CAPTURE(FleetTasks, across, Place::across)->Name("FleetTasks/across")->Iterations(50)->UseRealTime();

/// Counts messages to a subject of its own.
class Inbox {
 public:
  Inbox() {
    mMessages = nats().subscribe(mSubject, [this](natsMsg*) {
      const std::lock_guard<std::mutex> lock(mMutex);
      if (++mCount == mWanted) mEnough.notify_all();
    });
  }

  const std::string& subject() const { return mSubject; }
  /// Has the next so many counted from now on.
  void expect(std::uint32_t count) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mCount = 0;
    mWanted = count;
  }
  bool await() {
    std::unique_lock<std::mutex> lock(mMutex);
    return mEnough.wait_for(lock, kLong, [this] { return mCount >= mWanted; });
  }

 private:
  const std::string mSubject = nats().newInbox();
  std::mutex mMutex;
  std::condition_variable mEnough;
  std::uint32_t mCount = 0;
  std::uint32_t mWanted = 0;
  fleet::Subscription mMessages;  // last: it ends first
};

void NatsRequests(benchmark::State& state, Place place) {
  Inbox answers;
  const fleet::MessagePtr request = fleet::makeMessage("echo." + numberOf(place), answers.subject(), kPayload);
  for (auto _ : state) {
    answers.expect(kInFlight);
    for (std::uint32_t i = 0; i < kInFlight; ++i) nats().publish(*request);
    if (!answers.await()) state.SkipWithError("no answer");
  }
  state.SetItemsProcessed(state.iterations() * kInFlight);
}
BENCHMARK_CAPTURE(NatsRequests, same, Place::same)->Name("NatsRequests/same")->Iterations(50)->UseRealTime();
BENCHMARK_CAPTURE(NatsRequests, across, Place::across)->Name("NatsRequests/across")->Iterations(50)->UseRealTime();

// ---- Messages of a stream ----

void FleetStream(benchmark::State& state, Place place) {
  kel::Client& client = device(place);
  for (auto _ : state) {
    kel::Result<kel::Stream> stream =
        client.stream(kel::tasks::TASK_ID_APPLICATION_DEBUG_STREAMER, {kStreamLength, 0, 0});
    std::uint32_t count = 0;
    while (stream && stream->next()) ++count;
    if (count <= kStreamLength) state.SkipWithError("the stream has not come whole");
  }
  state.SetItemsProcessed(state.iterations() * kStreamLength);
}
BENCHMARK_CAPTURE(FleetStream, same, Place::same)->Name("FleetStream/same")->Iterations(10)->UseRealTime();
BENCHMARK_CAPTURE(FleetStream, across, Place::across)->Name("FleetStream/across")->Iterations(10)->UseRealTime();

void NatsStream(benchmark::State& state, Place place) {
  Inbox messages;
  const fleet::MessagePtr request =
      fleet::makeMessage("echo." + numberOf(place) + ".stream", messages.subject(), std::to_string(kStreamLength));
  for (auto _ : state) {
    messages.expect(kStreamLength);
    nats().publish(*request);
    if (!messages.await()) state.SkipWithError("the messages have not all come");
  }
  state.SetItemsProcessed(state.iterations() * kStreamLength);
}
BENCHMARK_CAPTURE(NatsStream, same, Place::same)->Name("NatsStream/same")->Iterations(10)->UseRealTime();
BENCHMARK_CAPTURE(NatsStream, across, Place::across)->Name("NatsStream/across")->Iterations(10)->UseRealTime();

}  // namespace
