// SPDX-License-Identifier: MIT
// The exports linked in, so that the test can be their loader, and can have the engine behind them fail.
#include <stdexcept>

#include "engine/DorvBinding.h"
#include "interface/client.h"

extern "C" int DllMain(void* module, std::uint32_t reason, void* reserved);

namespace kel::test {
namespace {

/// Does what a loader does for the library.
struct Loaded {
  Loaded() { DllMain(nullptr, 1, nullptr); }
  ~Loaded() { DllMain(nullptr, 0, nullptr); }
};

class LinkedTest : private Loaded, public ClientTest {};

TEST_F(LinkedTest, ADisconnectThatFailedKeepsTheConnectionForASecondOne) {
  const std::uint64_t conn = connect();
  gDorv.Disconnect = [](std::uint32_t) -> std::uint32_t { throw std::runtime_error("of the adapter"); };
  EXPECT_EQ(KEL_Disconnect(conn), KEL_E_CONNECTION);
  gDorv.Disconnect = Dorv_Disconnect;
  EXPECT_EQ(KEL_Disconnect(conn), KEL_OK);
  EXPECT_EQ(KEL_Disconnect(conn), KEL_E_CONNECTION);
  EXPECT_TRUE(OpenConnections().empty());
}

TEST_F(LinkedTest, ThreadsThatComeAndGoAreNoMatterOfTheEntryPoint) {
  const std::uint64_t conn = connect();
  for (const std::uint32_t reason : {2u, 3u}) EXPECT_EQ(DllMain(nullptr, reason, nullptr), 1);
  EXPECT_EQ(SendValues(conn, {1, 2, 3}).payload, Bytes({1, 2, 3}));
}

}  // namespace
}  // namespace kel::test
