// SPDX-License-Identifier: MIT
// Many devices of one site on three servers: how long they take to come, to answer, and to answer again after a server
// was killed; what each takes of memory; and what they send when nobody asks anything. Status 0 only if all of them
// came and answered. Run by many.sh, which has the servers and devices up.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "kel/fleet_site.hpp"
#include "kel/tasks.hpp"
#include "nats/Nats.h"
#include "protocol/Subjects.h"
#include "protocol/Wire.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr const char* kSite = "many";
/// Longer than anything here takes unless something is wrong.
constexpr auto kLongest = 600s;
constexpr auto kAtRest = 30s;

double secondsSince(steady_clock::time_point begin) {
  return std::chrono::duration<double>(steady_clock::now() - begin).count();
}

/// What stands behind a word in a file below /proc, in kB; of all programs of this name.
double kilobytesOf(const std::string& program, const std::string& word) {
  double sum = 0;
  std::error_code ignored;
  for (const auto& process : std::filesystem::directory_iterator("/proc", ignored)) {
    std::string name;
    std::ifstream(process.path() / "comm") >> name;
    if (name != program) continue;
    std::ifstream file(process.path() / "smaps_rollup");
    for (std::string line; std::getline(file, line);) {
      if (line.rfind(word, 0) == 0) sum += std::atof(line.c_str() + word.size());
    }
  }
  return sum;
}

class Trial {
 public:
  Trial(kel::fleet::Access access, std::string uri, std::size_t count)
      : mAccess(std::move(access)), mUri(std::move(uri)), mCount(count) {}

  bool run(int serverToKill) {
    const auto begin = steady_clock::now();
    const bool allCame = awaitDevices();
    std::printf("%zu of %zu devices are registered and connected: %.1f s after the last was started\n", mNames.size(),
                mCount, secondsSince(begin));
    if (!allCame || !connect()) return false;
    if (!askEach("each answers a task, one after the other")) return false;
    std::printf("memory: %.1f MB for each device (%.0f MB in all keld), servers %.0f MB\n",
                kilobytesOf("keld", "Pss:") / 1024 / static_cast<double>(mCount), kilobytesOf("keld", "Pss:") / 1024,
                kilobytesOf("nats-server", "Pss:") / 1024);
    rest();
    kill(serverToKill, SIGKILL);
    std::printf("one of three servers is killed\n");
    return askEach("each answers a task again, from the kill on");
  }

 private:
  /// False if they have not all come in time.
  bool awaitDevices() {
    std::optional<kel::fleet::Site> site;
    for (const auto end = steady_clock::now() + kLongest; steady_clock::now() < end;
         std::this_thread::sleep_for(100ms)) {
      if (!site) {
        kel::Result<kel::fleet::Site> opened = kel::fleet::Site::open(mUri, mAccess);
        if (!opened) continue;
        site.emplace(std::move(*opened));
      }
      const auto devices = site->devices();
      if (!devices) continue;
      mNames.clear();
      for (const kel::fleet::Device& device : *devices) {
        if (device.state == "connected") mNames.push_back(device.name);
      }
      if (mNames.size() >= mCount) return true;
    }
    return false;
  }

  bool connect() {
    std::string why;
    kel::fleet::ConnectionOptions options;
    options.reconnects = true;
    mConnection = kel::fleet::Connection::open(mAccess, std::move(options), why);
    if (!mConnection) std::printf("no connection: %s\n", why.c_str());
    return mConnection != nullptr;
  }

  /// One that does not answer is asked again, until they all have.
  bool askEach(const char* what) {
    const auto begin = steady_clock::now();
    std::vector<double> times;
    std::size_t again = 0;
    for (const std::string& name : mNames) {
      for (bool isAnswered = false; !isAnswered;) {
        if (secondsSince(begin) > std::chrono::duration<double>(kLongest).count()) {
          std::printf("%s does not answer\n", name.c_str());
          return false;
        }
        const auto sent = steady_clock::now();
        isAnswered = ask(name);
        if (isAnswered) times.push_back(secondsSince(sent) * 1e3);
        if (!isAnswered) ++again;
      }
    }
    std::sort(times.begin(), times.end());
    std::printf("%s: %.1f s in all, %.2f ms in the middle, %.1f ms at the most, %zu asked again\n", what,
                secondsSince(begin), times[times.size() / 2], times.back(), again);
    return true;
  }

  bool ask(const std::string& name) {
    const kel::Values values{7, 8, 9};
    const auto message = kel::fleet::makeMessage(kel::fleet::Subjects({kSite, name}).task(), {},
                                                 {reinterpret_cast<const char*>(values.data()), sizeof values});
    kel::fleet::setProtocol(*message);
    kel::fleet::setHeader(*message, kel::fleet::headers::kTask, kel::tasks::TASK_ID_APPLICATION_DEBUG_VAL.name);
    natsStatus status = NATS_OK;
    const auto answer = mConnection->request(*message, 2000ms, status);
    return answer && !kel::fleet::header(*answer, kel::fleet::headers::kCause) &&
           kel::fleet::payloadOf(*answer) == kel::fleet::payloadOf(*message);
  }

  /// Counts what passes while nobody asks anything.
  void rest() {
    std::atomic<std::uint64_t> messages{0};
    std::vector<kel::fleet::Subscription> all;
    for (const char* subject : {"kel.>", "$KV.>"}) {
      all.push_back(mConnection->subscribe(subject, [&](natsMsg*) { ++messages; }));
    }
    mConnection->flush(2000ms);
    messages = 0;
    std::this_thread::sleep_for(kAtRest);
    const double each = static_cast<double>(messages) / std::chrono::duration<double>(kAtRest).count();
    std::printf("at rest: %.0f messages a second, %.2f for each device\n", each, each / static_cast<double>(mCount));
  }

  const kel::fleet::Access mAccess;
  const std::string mUri;
  const std::size_t mCount;
  std::vector<std::string> mNames;
  std::unique_ptr<kel::fleet::Connection> mConnection;
};

}  // namespace

int main(int argc, char** argv) {
  const char* const servers = std::getenv("KEL_FLEET_SERVERS");
  if (argc != 3 || servers == nullptr) {
    std::fprintf(stderr, "usage: KEL_FLEET_SERVERS=HOST:PORT,... fleet_many DEVICES SERVERS-PROCESS\n");
    return 2;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  kel::fleet::Access access;
  std::istringstream words(servers);
  for (std::string server; std::getline(words, server, ',');) access.servers.push_back(server);
  const std::string uri = std::string("nats://") + servers + "/" + kSite;
  const bool held = Trial(access, uri, static_cast<std::size_t>(std::atoi(argv[1]))).run(std::atoi(argv[2]));
  std::printf("%s\n", held ? "passed" : "FAILED");
  return held ? 0 : 1;
}
