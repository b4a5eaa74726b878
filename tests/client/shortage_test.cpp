// SPDX-License-Identifier: MIT
// What a refusal means while the library may have had no number: over a road that does as it is told.
#include <atomic>
#include <thread>

#include "client/client_test.h"

namespace kel::test {
namespace {

/// Takes requests and answers none by itself; what it refuses, it refuses at once.
class ToldRoad final : public detail::Road {
 public:
  std::atomic<std::uint32_t> refusals{0};  ///< of the next requests
  std::atomic<std::uint32_t> sent{0};
  std::atomic<std::uint32_t> lastId{0};
  std::atomic<detail::Sink*> sink{nullptr};

  std::optional<TaskTable> table(const std::string&) const override { return TaskTable::builtIn(); }
  bool confirmsPosts() const override { return false; }
  bool open(const std::string&, detail::Sink& taker) override {
    sink = &taker;
    return true;
  }
  std::string failure() const override { return ""; }
  void close() override { sink = nullptr; }
  detail::Sent send(const detail::Outgoing& request) override {
    if (refusals != 0) {
      --refusals;
      return detail::Sent::refused;
    }
    lastId = request.id;
    ++sent;
    return detail::Sent::sent;
  }
  void listen() override {}
  void awaitTurn(Clock::time_point) override {}
  Result<bool> validateVersion(std::string, const void*, std::uint32_t, std::uint64_t, const std::string&) override {
    return false;
  }
  std::uint32_t codeOf(detail::Sent) const override { return KEL_E_ASYNC_TASK; }
};

class ShortageTest : public ClientTest {
 protected:
  void SetUp() override { ASSERT_TRUE(client.waitFor(State::connected, kLong)); }

  /// One call that is answered.
  void callAndAnswer() {
    const Call call = client.start(kEcho);
    road->sink.load()->answered(road->lastId, Payload());
    EXPECT_TRUE(call.get().ok());
  }

  ToldRoad* const road = new ToldRoad;
  Client client = Client::begin({}, std::unique_ptr<detail::Road>(road));
};

TEST_F(ShortageTest, ARefusalIsTheDevicesIfThereMustHaveBeenANumber) {
  for (int i = 0; i < 63; ++i) callAndAnswer();
  road->refusals = 1;
  EXPECT_EQ(CauseOf(client.task(kEcho)), Cause::refused);
  EXPECT_EQ(road->sent, 63u);
}

TEST_F(ShortageTest, ACallIsTriedAgainWhileTheLibraryMayStillHaveItsNumbers) {
  for (int i = 0; i < 64; ++i) callAndAnswer();
  std::this_thread::sleep_for(kShort);  // numbers may come back later than that
  road->refusals = 5;
  const Call call = client.start(kEcho);
  while (road->sent != 65) std::this_thread::yield();
  road->sink.load()->answered(road->lastId, Payload());
  EXPECT_TRUE(call.get().ok());
}

TEST_F(ShortageTest, OthersPassACallThatIsTriedAgain) {
  for (int i = 0; i < 64; ++i) callAndAnswer();
  road->refusals = 5;
  const Call refused = client.start(kEcho);
  while (road->refusals != 0) std::this_thread::yield();
  const Call passing = client.start(kEcho);
  while (road->sent < 65) std::this_thread::yield();
  EXPECT_FALSE(refused.isDone());
  while (road->sent < 66) std::this_thread::yield();
}

TEST_F(ShortageTest, ACallThatIsRefusedEachTimeIsRefusedInTheEnd) {
  for (int i = 0; i < 64; ++i) callAndAnswer();
  road->refusals = 1000;
  EXPECT_EQ(CauseOf(client.task(kEcho)), Cause::refused);
  EXPECT_LT(1000 - road->refusals, 20u);
}

TEST_F(ShortageTest, ALossIsSeenAlsoWhereNumbersMayBeShort) {
  Options options = watching();
  auto* const busy = new ToldRoad;
  Client watcher = Client::connect(options, std::unique_ptr<detail::Road>(busy)).value();
  for (int i = 0; i < 64; ++i) {
    const Call call = watcher.start(kEcho);
    busy->sink.load()->answered(busy->lastId, Payload());
    EXPECT_TRUE(call.get().ok());
  }
  busy->refusals = 1'000'000;
  EXPECT_EQ(awaitState(State::lost).reason, "2 heartbeats were not answered");
}

}  // namespace
}  // namespace kel::test
