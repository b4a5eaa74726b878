// SPDX-License-Identifier: MIT
// What the sequencer does when the system has no event left.
#include "support/posix/exhausted_handles.h"
#include "platform/posix/kernel_objects.h"
#include "sequencer/sequencer_test.h"

namespace kel::test {
namespace {

TEST_F(QuietSequencer, LosesTheNumberAndTheEventsOfASequenceThatHasNotAllItsEvents) {
  for (std::size_t events = 0; events < 3; ++events) {
    const ExhaustedHandles handles(events);
    const std::size_t before = platform::posix::openHandles();
    const Opened failed = assign();
    EXPECT_EQ(failed.status, SEQ_ASSIGN_FAILED);
    EXPECT_EQ(failed.syncDataEvent, nullptr);
    EXPECT_EQ(platform::posix::openHandles(), before + events);
    EXPECT_FALSE(isOpen(static_cast<std::uint32_t>(events)));
  }
  EXPECT_EQ(assign().seqNum, 3u);
  EXPECT_EQ(numbersLeft(), 60u);
}

}  // namespace
}  // namespace kel::test
