// SPDX-License-Identifier: MIT
// A walk through a fleet that tells what it does, and checks it: status 0 only if all held. Run by fleet/trial.sh,
// which has the servers and devices up.
#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "kel/fleet.hpp"
#include "kel/fleet_site.hpp"
#include "nats/Nats.h"
#include "protocol/Subjects.h"

namespace {

using namespace std::chrono_literals;
namespace tasks = kel::tasks;
using kel::Client;
using kel::Result;
using kel::fleet::Reservation;
using kel::fleet::Site;

constexpr const char* kSite = "trial";
constexpr const char* kDevice = "quiet-1";
constexpr kel::Milliseconds kLong{30'000};

/// What is wrong, or nothing.
using Fault = std::optional<std::string>;

/// A client that comes back by itself.
kel::Options coming() {
  kel::Options options;
  options.supervision.reconnect = true;
  options.supervision.firstPause = 50ms;
  options.supervision.longestPause = 500ms;
  options.connectTimeout = kLong;
  return options;
}

kel::CallOptions repeatable() {
  kel::CallOptions options;
  options.timeout = kLong;
  options.repeatable = true;
  return options;
}

/// The process that offers a device, as it tells itself.
int processOf(const std::string& servers, const std::string& device) {
  kel::fleet::Access access;
  std::istringstream words(servers);
  for (std::string server; std::getline(words, server, ',');) access.servers.push_back(server);
  std::string why;
  const auto connection = kel::fleet::Connection::open(access, {}, why);
  if (!connection) return 0;
  const auto hello = kel::fleet::makeMessage(kel::fleet::Subjects({kSite, device}).hello(), {}, {});
  natsStatus status = NATS_OK;
  const auto answer = connection->request(*hello, kLong, status);
  if (!answer) return 0;
  const nlohmann::json presence = nlohmann::json::parse(kel::fleet::payloadOf(*answer), nullptr, false);
  return presence.is_object() ? presence.value("process", 0) : 0;
}

class Demo {
 public:
  Demo(std::string servers, std::vector<int> processes)
      : mServers(std::move(servers)), mProcesses(std::move(processes)) {}

  bool run() {
    step("Who is there: the site's devices, by their presence in JetStream.", [this] { return look(); });
    step("A task, through the cluster to the device and back.", [this] { return sendTask(); });
    step("A stream, with flow control: 5000 messages in their order, to the marked end.",
         [this] { return readStream(); });
    step("A reservation: it is granted once, and refused to the second who asks.", [this] { return reserve(); });
    step("While it is held, tasks of others are refused, and the holder's are not.", [this] { return useReserved(); });
    step("Given back, the device is everybody's again.", [this] { return giveBack(); });
    step("A server is killed in the midst of tasks. Each ends once, and clients come back.",
         [this] { return loseServer(); });
    step("Reservations go on with the two servers that are left.", [this] { return reserveAgain(); });
    step("The device's keld is killed. Its parent starts it again, and the client finds it.",
         [this] { return loseDevice(); });
    std::cout << (mFaults == 0 ? "All " + std::to_string(mSteps) + " steps held.\n"
                               : std::to_string(mFaults) + " of " + std::to_string(mSteps) + " steps FAILED.\n");
    return mFaults == 0;
  }

 private:
  void step(const char* title, const std::function<Fault()>& body) {
    std::cout << ++mSteps << ". " << title << std::endl;
    const auto begin = std::chrono::steady_clock::now();
    const Fault fault = body();
    const auto took = std::chrono::duration_cast<kel::Milliseconds>(std::chrono::steady_clock::now() - begin);
    std::cout << "   " << (fault ? "FAILED: " + *fault : "held") << ", after " << took.count() << " ms\n" << std::endl;
    if (fault) ++mFaults;
  }
  void note(const std::string& line) const { std::cout << "   " << line << std::endl; }

  std::string uri() const { return "nats://" + mServers + "/" + kSite + "/" + kDevice; }

  Fault look() {
    Result<Site> site = Site::open("nats://" + mServers + "/" + kSite);
    if (!site) return site.error().text();
    mSite.emplace(std::move(*site));
    // The last of them may be on its way into the bucket still.
    const auto until = std::chrono::steady_clock::now() + kLong;
    for (;;) {
      const Result<std::vector<kel::fleet::Device>> all = mSite->devices();
      if (all && all->size() == 15) {
        for (const kel::fleet::Device& device : *all) {
          note(device.name + " on " + device.host + ": " + device.state);
        }
        return {};
      }
      if (std::chrono::steady_clock::now() >= until) return all ? "not all 15 have come" : all.error().text();
    }
  }

  Fault sendTask() {
    Result<Client> client = kel::fleet::connect(uri(), coming());
    if (!client) return client.error().text();
    mClient.emplace(std::move(*client));
    const Result<kel::Payload> answer = mClient->task(tasks::TASK_ID_APPLICATION_DEBUG_VAL, {7, 8, 9});
    if (!answer) return answer.error().text();
    if (answer->values().value() != kel::Values{7, 8, 9}) return "the echo says something else";
    note("sent 7 8 9, and got 7 8 9");
    return {};
  }

  Fault readStream() {
    Result<kel::Stream> stream = mClient->stream(tasks::TASK_ID_APPLICATION_DEBUG_STREAMER, {5000, 0, 0});
    if (!stream) return stream.error().text();
    std::uint32_t next = 0;
    for (const kel::Message& message : *stream) {
      if (message.values().value()[0] != next++) return "a message is out of its order";
    }
    if (stream->reason() != kel::End::finished || stream->dropped() != 0) return "it did not come whole";
    note("read " + std::to_string(next) + " messages, none lost");
    return {};
  }

  static kel::fleet::ReserveOptions wanted(const char* holder, kel::Milliseconds wait = kel::Milliseconds(0)) {
    kel::fleet::ReserveOptions options;
    options.device = kDevice;
    options.holder = holder;
    options.wait = wait;
    return options;
  }

  Fault reserve() {
    Result<Reservation> first = mSite->reserve(wanted("anna"));
    if (!first) return first.error().text();
    mReservation.emplace(std::move(*first));
    const Result<Reservation> second = mSite->reserve(wanted("ben"));
    if (second || second.cause() != kel::Cause::reserved) return "the second got it as well";
    note("anna has it; ben is told: reserved, by " + second.error().subject);
    return {};
  }

  Fault useReserved() {
    const Result<kel::Payload> other = mClient->task(tasks::TASK_ID_APPLICATION_DEBUG_VAL);
    if (other || other.cause() != kel::Cause::reserved) return "the task of another was not refused";
    Result<Client> holder = kel::fleet::connect(uri(), coming(), {{}, mReservation->id()});
    if (!holder) return holder.error().text();
    const Result<kel::Payload> own = holder->task(tasks::TASK_ID_APPLICATION_DEBUG_VAL);
    if (!own) return own.error().text();
    note("the other's task: " + other.error().text() + "; anna's: answered");
    return {};
  }

  Fault giveBack() {
    mReservation->release();
    const auto until = std::chrono::steady_clock::now() + kLong;
    for (;;) {
      const Result<kel::Payload> answer = mClient->task(tasks::TASK_ID_APPLICATION_DEBUG_VAL);
      if (answer) return {};
      if (answer.cause() != kel::Cause::reserved) return answer.error().text();
      if (std::chrono::steady_clock::now() >= until) return "it is still reserved";
    }
  }

  Fault loseServer() {
    // Each is on one of the servers, as it comes.
    std::vector<Client> clients;
    for (int i = 0; i < 12; ++i) {
      Result<Client> client = kel::fleet::connect(uri(), coming());
      if (!client) return client.error().text();
      clients.push_back(std::move(*client));
    }
    std::vector<kel::Call> calls;
    for (std::uint32_t i = 0; i < 600; ++i) {
      // The device takes some 300 at once, and after a loss those that are sent again come on top.
      if (i >= 120) (void)calls[i - 120].waitFor(kLong);
      if (i == 300) kill(mProcesses.back(), SIGKILL);
      calls.push_back(clients[i % clients.size()].start(tasks::TASK_ID_APPLICATION_DEBUG_VAL, {i, 0, 0}, repeatable()));
    }
    for (std::uint32_t i = 0; i < calls.size(); ++i) {
      const Result<kel::Payload> answer = calls[i].get();
      if (!answer) return answer.error().text();
      if (answer->values().value()[0] != i) return "an answer of another task";
    }
    std::uint64_t losses = 0;
    for (Client& client : clients) {
      const Result<kel::Payload> after = client.task(tasks::TASK_ID_APPLICATION_DEBUG_VAL, {}, repeatable());
      if (!after) return after.error().text();
      losses += client.statistics().losses;
    }
    note("600 of 600 tasks of 12 clients answered; losses of a link: " + std::to_string(losses));
    return {};
  }

  Fault reserveAgain() {
    const auto until = std::chrono::steady_clock::now() + kLong;
    for (;;) {
      // Servers that lost one of them first agree on who leads.
      Result<Reservation> again = mSite->reserve(wanted("anna", 1s));
      if (again) {
        note("anna has it again");
        return {};
      }
      if (std::chrono::steady_clock::now() >= until) return again.error().text();
    }
  }

  Fault loseDevice() {
    const int process = processOf(mServers, kDevice);
    if (process == 0) return "the device does not tell its process";
    kill(process, SIGKILL);
    if (!mClient->waitFor(kel::State::lost, kLong)) return "the client has not seen it";
    note("the client has seen the loss");
    const Result<kel::Payload> answer = mClient->task(tasks::TASK_ID_APPLICATION_DEBUG_VAL, {}, repeatable());
    if (!answer) return answer.error().text();
    if (processOf(mServers, kDevice) == process) return "it is the same process still";
    note("it answers again");
    return {};
  }

  const std::string mServers;
  const std::vector<int> mProcesses;
  int mSteps = 0;
  int mFaults = 0;
  std::optional<Site> mSite;
  std::optional<Client> mClient;
  std::optional<Reservation> mReservation;
};

}  // namespace

int main() {
  const char* const servers = std::getenv("KEL_FLEET_SERVERS");
  const char* const processes = std::getenv("KEL_FLEET_PROCESSES");
  if (servers == nullptr || processes == nullptr) {
    std::cerr << "fleet_demo: this is run by `./run fleet demo`\n";
    return 2;
  }
  std::istringstream words(processes);
  std::vector<int> numbers;
  for (int number = 0; words >> number;) numbers.push_back(number);
  if (numbers.empty()) return 2;
  return Demo(servers, numbers).run() ? 0 : 1;
}
