// SPDX-License-Identifier: MIT
// Who is there, and who has what.
#include <algorithm>
#include <atomic>
#include <future>
#include <thread>

#include "fleet/fleet_test.h"
#include "kel/fleet_site.hpp"
#include "nats/Nats.h"

namespace kel::test {
namespace {

using fleet::Device;
using fleet::Reservation;
using fleet::ReserveOptions;
using fleet::Site;

class ReservationTest : public FleetTest {
 protected:
  ReservationTest() {
    startServer();
    offer();
    site.emplace(openSite());
    awaitDevice("bench", "connected");
  }

  Site openSite() const { return Site::open("nats://" + server->address() + "/lab").value(); }

  /// Waits until the site has the device in that state.
  Device awaitDevice(const std::string& name, const std::string& state) {
    const Clock::time_point until = Clock::now() + kLong;
    for (;;) {
      if (const Result<std::vector<Device>> all = site->devices()) {
        const auto place = std::find_if(all->begin(), all->end(),
                                        [&](const Device& one) { return one.name == name && one.state == state; });
        if (place != all->end()) return *place;
      }
      if (Clock::now() >= until) {
        ADD_FAILURE() << "never " << state;
        return {};
      }
      std::this_thread::yield();
    }
  }

  /// Writes into the site's bucket as others do.
  void put(const std::string& key, const char* value) const {
    std::string why;
    fleet::Access access;
    access.servers = {server->address()};
    const std::unique_ptr<fleet::Connection> other = fleet::Connection::open(access, {}, why);
    natsStatus status = NATS_OK;
    ASSERT_TRUE(other->request(*fleet::makeMessage("$KV.kel_v1_lab." + key, {}, value), kLong, status));
  }

  static ReserveOptions wanted(const std::string& holder, Milliseconds wait = Milliseconds(0)) {
    ReserveOptions options;
    options.device = "bench";
    options.holder = holder;
    options.wait = wait;
    return options;
  }

  Client clientOf(const Reservation& reservation) { return connected(coming(), {{}, reservation.id()}); }

  std::optional<Site> site;
};

TEST_F(ReservationTest, ADeviceTellsWhatItIs) {
  fleet::WorkerOptions options = workerOptions("second");
  options.model = "x";
  options.tags = {{"room", "7"}};
  const Offered second(options);
  const Device device = awaitDevice("second", "connected");
  EXPECT_EQ(device.model, "x");
  EXPECT_EQ(device.tags.at("room"), "7");
  EXPECT_EQ(device.protocol, 1u);
  EXPECT_FALSE(device.host.empty());
  EXPECT_TRUE(device.holder.empty());
}

TEST_F(ReservationTest, ADeviceThatIsWithdrawnIsNotThereAnyMore) {
  offered->end();
  EXPECT_TRUE(soon([&] { return site->devices().value().empty(); }));
}

TEST_F(ReservationTest, OthersTasksAreRefusedAsLongAsItIsHeld) {
  Client other = connected();
  ASSERT_TRUE(other.task(kEcho).ok());
  Reservation mine = site->reserve(wanted("anna")).value();
  EXPECT_EQ(CauseOf(other.task(kEcho)), Cause::reserved);
  EXPECT_EQ(other.stream(kStreamer).cause(), Cause::reserved);
  EXPECT_EQ(other.post(kEchoBytes).cause(), Cause::reserved);
  EXPECT_TRUE(clientOf(mine).task(kEcho).ok());
  EXPECT_TRUE(soon([&] { return awaitDevice("bench", "connected").holder == "anna"; }));
  EXPECT_GT(awaitDevice("bench", "connected").heldSince, 0);
  mine.release();
  EXPECT_FALSE(mine.isHeld());
  EXPECT_TRUE(soon([&] { return other.task(kEcho).ok(); }));
}

TEST_F(ReservationTest, ASecondHolderIsToldWhoHasIt) {
  const Reservation mine = site->reserve(wanted("anna")).value();
  const Result<Reservation> other = site->reserve(wanted("ben"));
  ASSERT_FALSE(other);
  EXPECT_EQ(other.cause(), Cause::reserved);
  EXPECT_EQ(other.error().subject, "anna");
}

TEST_F(ReservationTest, OfManyAtOnceOneGetsIt) {
  std::atomic<int> held{0};
  std::vector<std::thread> threads;
  std::vector<std::optional<Reservation>> kept(6);
  for (std::optional<Reservation>& one : kept) {
    threads.emplace_back([&] {
      Site own = openSite();
      Result<Reservation> got = own.reserve(wanted("one of many"));
      if (!got) return;
      ++held;
      one.emplace(std::move(*got));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(held, 1);
}

TEST_F(ReservationTest, ThoseInLineGetItInTheirOrder) {
  Reservation mine = site->reserve(wanted("anna")).value();
  std::mutex mutex;
  std::vector<std::string> order;
  std::vector<std::thread> threads;
  for (const char* name : {"ben", "carl"}) {
    threads.emplace_back([&, name] {
      Site own = openSite();
      Reservation got = own.reserve(wanted(name, kLong)).value();
      const std::lock_guard<std::mutex> lock(mutex);
      order.emplace_back(name);
    });
    const std::size_t place = threads.size();
    EXPECT_TRUE(soon([&] { return site->devices().value().at(0).waiting == place; }));
  }
  mine.release();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(order, (std::vector<std::string>{"ben", "carl"}));
}

TEST_F(ReservationTest, WhoeverGivesUpWaitingLeavesTheLine) {
  const Reservation mine = site->reserve(wanted("anna")).value();
  EXPECT_EQ(site->reserve(wanted("ben", Milliseconds(300))).cause(), Cause::reserved);
  EXPECT_TRUE(soon([&] { return site->devices().value().at(0).waiting == 0; }));
}

TEST_F(ReservationTest, ALeaseIsRenewedBeyondItsTimeToLive) {
  ReserveOptions options = wanted("anna");
  options.timeToLive = Milliseconds(3000);
  const Reservation mine = site->reserve(options).value();
  // Somebody waits in the meantime: the line is in the same record as the lease.
  EXPECT_EQ(site->reserve(wanted("ben", Milliseconds(7500))).cause(), Cause::reserved);
  EXPECT_TRUE(mine.isHeld());
}

TEST_F(ReservationTest, AnyDeviceWithTheTagsIsTaken) {
  fleet::WorkerOptions options = workerOptions("second");
  options.model = "x";
  const Offered second(options);
  awaitDevice("second", "connected");
  ReserveOptions any;
  any.tags = {{"model", "x"}};
  const Reservation mine = site->reserve(any).value();
  EXPECT_EQ(mine.device(), "second");
  EXPECT_EQ(site->reserve(any).cause(), Cause::reserved);
  any.tags = {{"model", "y"}};
  EXPECT_EQ(site->reserve(any).cause(), Cause::notConnected);
}

TEST_F(ReservationTest, AnyDeviceIsTakenWhenItsLeaseRunsOut) {
  put("lease.bench", R"({"timeToLiveMs": 1500, "holder": {"id": "1-2", "name": "a holder that died"}, "line": []})");
  const Clock::time_point end = Clock::now() + Milliseconds(1500);  // by then it may be free again
  while (awaitDevice("bench", "connected").holder.empty() && Clock::now() < end) std::this_thread::yield();
  ReserveOptions any = wanted("ben", kLong);
  any.device.clear();
  const Result<Reservation> next = site->reserve(any);
  ASSERT_TRUE(next) << next.error().text();
  EXPECT_EQ(next->device(), "bench");
}

TEST_F(ReservationTest, ADeviceThatSaysNothingIsGoneByItsReadersOwnClock) {
  put("presence.silent", R"({"model": "x", "state": "connected"})");
  awaitDevice("silent", "connected");
  const Clock::time_point begin = Clock::now();
  awaitDevice("silent", "gone");
  EXPECT_GE(Clock::now() - begin, fleet::kPresenceLasts - Milliseconds(500));
  EXPECT_EQ(awaitDevice("bench", "connected").name, "bench") << "this one speaks";
  // To a reader that comes now it is as old as it is against the newest word in the bucket.
  site.emplace(openSite());
  const Clock::time_point now = Clock::now();
  awaitDevice("silent", "gone");
  EXPECT_LT(Clock::now() - now, fleet::kPresenceLasts - Milliseconds(1000));
}

TEST_F(ReservationTest, ASiteIsFollowedBeyondTheEndOfAServer) {
  server->kill();
  server->restart();
  const Offered second(workerOptions("second"));
  awaitDevice("second", "connected");
  const Reservation mine = site->reserve(wanted("anna", kLong)).value();
  EXPECT_TRUE(soon([&] { return awaitDevice("bench", "connected").holder == "anna"; }));
}

TEST_F(ReservationTest, ALeaseThatIsNotRenewedIsTakenOverAndItsHolderIsTold) {
  std::promise<void> lost;
  ReserveOptions options = wanted("anna");
  options.timeToLive = Milliseconds(1000);
  options.onLost = [&] { lost.set_value(); };
  const Reservation mine = site->reserve(options).value();
  // The servers are away for longer than the lease lives, so that it cannot be renewed.
  server->freeze();
  EXPECT_EQ(lost.get_future().wait_for(kLong), std::future_status::ready);
  EXPECT_FALSE(mine.isHeld());
  server->thaw();
  Site own = openSite();
  const Reservation next = own.reserve(wanted("ben", kLong)).value();
  EXPECT_TRUE(next.isHeld());
}

TEST_F(ReservationTest, BroadcastsAreKeptForThoseWhoComeLater) {
  fleet::WorkerOptions options = workerOptions("second");
  options.keepBroadcasts = std::chrono::minutes(5);
  const Offered second(options);
  awaitDevice("second", "connected");
  Client client = fleet::connect(server->uri("second"), coming()).value();
  Subscription broadcasts = client.broadcasts();
  // Its stream is made while the device is already there.
  while (!site->keptBroadcasts("second", std::chrono::minutes(1))) std::this_thread::yield();
  ASSERT_TRUE(client.task(kBroadcaster, {3, 0, 0}).ok());
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(broadcasts.next(kLong));
  std::vector<fleet::KeptBroadcast> kept;
  while (kept.size() < 3) kept = site->keptBroadcasts("second", std::chrono::minutes(1)).value();
  ASSERT_EQ(kept.size(), 3u);
  for (std::uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(kept[i].values().value()[0], i);
    EXPECT_FALSE(kept[i].task.empty());
    EXPECT_EQ(kept[i].number, kept[0].number + i);
    EXPECT_GE(kept[i].time, kept[0].time);
  }
  EXPECT_TRUE(site->keptBroadcasts("second", Milliseconds(0)).value().empty());
  EXPECT_EQ(site->keptBroadcasts("bench", std::chrono::minutes(1)).error().subject,
            "the broadcasts of bench: its broadcasts are not kept");
}

}  // namespace
}  // namespace kel::test
