// A disconnect that fails. The exports are linked in, so that the engine behind them can be made to fail.
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

class FailedDisconnectTest : private Loaded, public ClientTest {};

TEST_F(FailedDisconnectTest, KeepsTheConnectionForASecondOne) {
  const std::uint64_t conn = connect();
  gDorv.Disconnect = [](std::uint32_t) -> std::uint32_t { throw std::runtime_error("of the adapter"); };
  EXPECT_EQ(KEL_Disconnect(conn), KEL_E_CONNECTION);
  gDorv.Disconnect = Dorv_Disconnect;
  EXPECT_EQ(KEL_Disconnect(conn), KEL_OK);
  EXPECT_EQ(KEL_Disconnect(conn), KEL_E_CONNECTION);
  EXPECT_TRUE(OpenConnections().empty());
}

}  // namespace
}  // namespace kel::test
