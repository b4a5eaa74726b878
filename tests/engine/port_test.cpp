// SPDX-License-Identifier: MIT
// The port that an engine connects to. The adapter has no use for it, so the program stands in front of the adapter.
#include "engine/engine_test.h"

namespace {
kel::test::Noted<std::uint16_t> gPorts;
}

// Where calls of kel::Dorv_Connect() are sent by the linker.
extern "C" std::uint32_t __wrap__ZN3kel12Dorv_ConnectEjPKct(std::uint32_t handle, const char* address,
                                                            std::uint16_t port);
extern "C" std::uint32_t __real__ZN3kel12Dorv_ConnectEjPKct(std::uint32_t handle, const char* address,
                                                            std::uint16_t port);

extern "C" std::uint32_t __wrap__ZN3kel12Dorv_ConnectEjPKct(std::uint32_t handle, const char* address,
                                                            std::uint16_t port) {
  gPorts.add(port);
  return __real__ZN3kel12Dorv_ConnectEjPKct(handle, address, port);
}

namespace kel::test {
namespace {

using PortTest = EngineTest;

TEST_F(PortTest, IsTheDefaultWithoutSettings) {
  start();
  EXPECT_THAT(gPorts.waitFor(1), ::testing::ElementsAre(1234));
}

TEST_F(PortTest, IsCutToItsLowSixteenBits) {
  folder.writeSettings("UpperDriverPortNumber=70000\n");
  start();
  folder.writeSettings("UpperDriverPortNumber=65536\n");
  start();
  EXPECT_THAT(gPorts.waitFor(2), ::testing::ElementsAre(70000 - 65536, 0));
}

}  // namespace
}  // namespace kel::test
