// SPDX-License-Identifier: MIT
// A connection that the library fails to close: over calls in the place of the library's own, of which disconnecting
// fails, with a broadcast on its way.
#include <atomic>
#include <cstdlib>
#include <thread>

#include "client/client_test.h"

namespace {

KEL_BroadcastCallback gBroadcastCallback = nullptr;
std::atomic<int> gDisconnects{0};

void DeliverBroadcast() {
  char* const name = static_cast<char*>(std::calloc(1, 1));
  gBroadcastCallback(name, 0, std::calloc(1, 1), 0, 0);
}

}  // namespace

std::uint32_t KEL_Init() { return KEL_OK; }
std::uint32_t KEL_Finalize() { return KEL_OK; }

std::uint32_t KEL_Connect(const char*, KEL_BroadcastCallback callback, std::uint64_t* conn) {
  gBroadcastCallback = callback;
  *conn = 1;
  return KEL_OK;
}

std::uint32_t KEL_Disconnect(std::uint64_t) {
  ++gDisconnects;
  return KEL_E_CONNECTION;
}

std::uint32_t KEL_SendReceiveAsyncKELEx(std::uint64_t, const char*, std::uint32_t, const void*, std::uint32_t,
                                        std::uint32_t, std::uint32_t, std::uint32_t*, KEL_AsyncCallback,
                                        KEL_StreamCallback) {
  return KEL_OK;
}

std::uint32_t KEL_ValidateVersion(std::uint64_t, char*, const void*, std::uint32_t, void*, const char*) {
  return KEL_VERSION_VALID;
}

namespace kel::test {
namespace {

TEST(UnclosedTest, ABroadcastOnItsWayIsWaitedForAndLaterOnesFindNobody) {
  Event arrived, goesOn, closed;
  auto client = std::make_unique<Client>(Client::connect().value());
  auto news = std::make_unique<Subscription>(client->broadcasts());
  news->tellWhenReady([&] {
    if (gDisconnects != 0) return;  // the end
    arrived.set();
    goesOn.wait();
  });
  std::thread library(DeliverBroadcast);
  ASSERT_TRUE(arrived.wait());
  std::thread closing([&] {
    client.reset();
    news.reset();
    closed.set();
  });
  while (gDisconnects != 2) std::this_thread::yield();
  EXPECT_FALSE(closed.wait(kWhile));
  goesOn.set();
  EXPECT_TRUE(closed.wait());
  library.join();
  closing.join();
  DeliverBroadcast();
}

}  // namespace
}  // namespace kel::test
