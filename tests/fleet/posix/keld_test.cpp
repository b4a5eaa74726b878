// SPDX-License-Identifier: MIT
// keld as a program.
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "fleet/fleet_test.h"
#include "nats/Nats.h"
#include "support/environment_variable.h"

namespace kel::test {
namespace {

class KeldTest : public FleetTest {
 protected:
  KeldTest() { startServer(); }

  std::vector<std::string> keld(std::vector<std::string> words) const {
    words.insert(words.begin(), KELD);
    words.insert(words.end(), {"--server", server->address()});
    return words;
  }

  Client connectedTo(const std::string& device) { return fleet::connect(server->uri(device), coming()).value(); }

  /// The process that offers a device.
  pid_t processOf(const std::string& device) {
    std::string why;
    fleet::Access access;
    access.servers = {server->address()};
    const auto asker = fleet::Connection::open(access, {}, why);
    natsStatus status = NATS_OK;
    const auto answer = asker->request(*fleet::makeMessage("kel.v1.lab." + device + ".hello", {}, {}), kLong, status);
    if (!answer) return 0;
    return nlohmann::json::parse(fleet::payloadOf(*answer)).at("process").get<pid_t>();
  }
};

/// Waits for what a program tells whoever looks after it.
class ServiceManager {
 public:
  explicit ServiceManager(const std::filesystem::path& file)
      : mSocket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)), mVariable("NOTIFY_SOCKET", file.c_str()) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    file.string().copy(address.sun_path, sizeof address.sun_path - 1);
    bind(mSocket, reinterpret_cast<sockaddr*>(&address), sizeof address);
    const timeval patience{30, 0};
    setsockopt(mSocket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  }
  ~ServiceManager() { close(mSocket); }

  std::string next() {
    char news[100];
    const ssize_t size = recv(mSocket, news, sizeof news, 0);
    return size > 0 ? std::string(news, static_cast<std::size_t>(size)) : "";
  }

 private:
  const int mSocket;
  const EnvironmentVariable mVariable;
};

std::string fetch(int port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  std::string page;
  if (connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
    const std::string request = "GET /metrics HTTP/1.0\r\nHost: localhost\r\n\r\n";
    if (write(socket, request.data(), request.size()) > 0) {
      char part[4096];
      for (ssize_t got = read(socket, part, sizeof part); got > 0; got = read(socket, part, sizeof part)) {
        page.append(part, static_cast<std::size_t>(got));
      }
    }
  }
  close(socket);
  return page;
}

TEST_F(KeldTest, AWorkerThatCrashesIsStartedAgainAndTakesNoOtherDown) {
  Program parent(keld({"run", "--site", "lab", "--devices", "2", "--device", "unit"}), "the device is offered");
  Client first = connectedTo("unit-1");
  Client second = connectedTo("unit-2");
  const pid_t process = processOf("unit-1");
  const pid_t other = processOf("unit-2");
  ASSERT_NE(process, other);
  ASSERT_EQ(kill(process, SIGKILL), 0);
  EXPECT_TRUE(second.task(kEcho).ok());
  ASSERT_TRUE(first.waitFor(State::lost, kLong));
  CallOptions late;
  late.timeout = kLong;
  late.repeatable = true;
  EXPECT_TRUE(first.task(kEcho, {}, late).ok());
  EXPECT_NE(processOf("unit-1"), process);
  EXPECT_EQ(processOf("unit-2"), other);
  EXPECT_EQ(second.statistics().losses, 0u);
  parent.signal(SIGTERM);
  EXPECT_EQ(parent.wait(), 0);
  EXPECT_TRUE(second.waitFor(State::lost, kLong));
}

TEST_F(KeldTest, AWorkerWhoseNameIsTakenComesWhenItIsFree) {
  offered.emplace(workerOptions("unit-1"));
  connectedTo("unit-1");
  Program parent(keld({"run", "--site", "lab", "--devices", "1", "--device", "unit"}), "is started again");
  offered->end();
  EXPECT_TRUE(connectedTo("unit-1").task(kEcho).ok());
  EXPECT_NE(processOf("unit-1"), getpid());
}

TEST_F(KeldTest, AStoppedWorkerWithdrawsItsDevice) {
  Program worker(keld({"run", "--site", "lab", "--device", "bench"}), "the device is offered");
  Client client = connected();
  worker.signal(SIGTERM);
  EXPECT_EQ(worker.wait(), 0);
  EXPECT_TRUE(client.waitFor(State::lost, kLong));
  EXPECT_EQ(processOf("bench"), 0);
}

TEST_F(KeldTest, CheckTellsMistakesBeforeAWorkerIsStarted) {
  const auto statusOf = [&](std::vector<std::string> words) {
    words.insert(words.begin(), "check");
    return Program(keld(std::move(words)), "").wait();
  };
  EXPECT_EQ(statusOf({"--site", "lab", "--device", "bench"}), 0);
  EXPECT_EQ(statusOf({"--site", "lab", "--device", "a.b"}), 1);
  EXPECT_EQ(statusOf({"--site", "lab", "--device", "bench", "--heartbeat", "NO_SUCH_TASK"}), 1);
  EXPECT_EQ(statusOf({"--site", "lab", "--device", "bench", "--metrics", "0.0.0.0:9100"}), 1);
  EXPECT_EQ(statusOf({"--device", "bench"}), 2);
  folder.write("password", "secret\n");
  EXPECT_EQ(statusOf({"--site", "lab", "--device", "bench", "--user", "keld", "--password-file",
                      (folder.path() / "password").string()}),
            1)
      << "others can read it";
}

TEST_F(KeldTest, ItsCountsAreThereForPrometheus) {
  const int port = freePort();
  Program worker(keld({"run", "--site", "lab", "--device", "bench", "--metrics", "127.0.0.1:" + std::to_string(port)}),
                 "the device is offered");
  Client client = connected();
  EXPECT_TRUE(client.task(kEcho).ok());
  EXPECT_EQ(CauseOf(client.task("NO_SUCH_TASK")), Cause::unknownTask);
  const std::string page = fetch(port);
  EXPECT_NE(page.find("kel_tasks_total{site=\"lab\",device=\"bench\"} 2"), std::string::npos) << page;
  EXPECT_NE(page.find("cause=\"unknown-task\"} 1"), std::string::npos);
  EXPECT_NE(page.find("kel_connected{site=\"lab\",device=\"bench\"} 1"), std::string::npos);
}

TEST_F(KeldTest, TellsWhoLooksAfterItThatItIsAlive) {
  ServiceManager manager(folder.path() / "notify");
  Program worker(keld({"run", "--site", "lab", "--device", "bench"}), "the device is offered");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(manager.next(), "WATCHDOG=1");
}

TEST_F(KeldTest, TellsThatItIsAliveWhileNoServerIsThere) {
  ServiceManager manager(folder.path() / "notify");
  server->kill();
  Program worker(keld({"run", "--site", "lab", "--device", "bench"}), "cannot be reached yet");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(manager.next(), "WATCHDOG=1");
}

}  // namespace
}  // namespace kel::test
