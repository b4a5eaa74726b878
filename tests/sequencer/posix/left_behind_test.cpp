// SPDX-License-Identifier: MIT
// What is left of sequences that were freed.
#include <malloc.h>

#include "platform/posix/kernel_objects.h"
#include "sequencer/sequencer_test.h"

namespace kel::test {
namespace {

// By the C library's own count: a leak sanitizer has to overlook what refused sequences keep, and with it everything
// that is made in the same place.
TEST_F(QuietSequencer, LeavesNoMemoryBehind) {
  const auto rounds = [&](int count) {
    for (int i = 0; i < count; ++i) {
      const Opened opened = assign();
      insertData(opened.seqNum, "filed");
      insertAsyncData(opened.seqNum, "queued");
      sequencer->FreeSequence(opened.seqNum);
    }
  };
  rounds(1000);
  const std::size_t before = mallinfo2().uordblks;
  rounds(1000);
  EXPECT_LT(mallinfo2().uordblks, before + 8000);  // not eight bytes for each
}

TEST_F(QuietSequencer, LeavesNoHandleBehind) {
  sequencer.reset();
  const std::size_t before = platform::posix::openHandles();
  sequencer = std::make_unique<BrelTasksSequencer>();
  EXPECT_EQ(platform::posix::openHandles(), before + 1);
  assign();
  const Opened opened = assign();
  EXPECT_EQ(platform::posix::openHandles(), before + 7);
  EXPECT_EQ(sequencer->FreeSequence(opened.seqNum), SEQ_FREE_OK);
  EXPECT_EQ(platform::posix::openHandles(), before + 4);
  sequencer.reset();
  EXPECT_EQ(platform::posix::openHandles(), before);
}

}  // namespace
}  // namespace kel::test
