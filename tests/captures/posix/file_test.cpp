// Captures to files that Windows does not have.
#include <gtest/gtest.h>

#include "captures/pcapng_reader.h"
#include "support/scratch_directory.h"

namespace kel::test {
namespace {

TEST(CaptureFiles, AFullDiskEndsTheCaptureAndIsTold) {
  sim::Capture capture;
  ASSERT_TRUE(capture.Start("/dev/full"));
  testing::internal::CaptureStderr();
  capture.WriteQueued();
  capture.Add({.kind = sim::CaptureKind::kConnect});
  EXPECT_FALSE(capture.IsOn());
  capture.WriteQueued();
  capture.EndWithProcess();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "SluiceHub: capture /dev/full: No space left on device; the capture ends here\n");
}

TEST(CaptureFiles, ALinkStaysAndItsFileGetsTheCapture) {
  const ScratchDirectory folder;
  folder.write("target.pcapng", std::string(100000, 'x'));
  std::filesystem::create_symlink("target.pcapng", "link.pcapng");
  sim::Capture capture;
  ASSERT_TRUE(capture.Start("link.pcapng"));
  capture.Add({.kind = sim::CaptureKind::kConnect});
  capture.EndWithProcess();
  EXPECT_TRUE(std::filesystem::is_symlink("link.pcapng"));
  EXPECT_EQ(ReadCapture("target.pcapng").packets.size(), 1u);
}

TEST(CaptureFiles, AFileThatIsTakenAwayIsNotTorn) {
  const ScratchDirectory folder;
  sim::Capture first;
  ASSERT_TRUE(first.Start("some.pcapng"));
  std::filesystem::create_hard_link("some.pcapng", "kept.pcapng");
  sim::Capture second;
  ASSERT_TRUE(second.Start("some.pcapng"));
  for (std::uint32_t i = 0; i < 3; ++i) first.Add({.kind = sim::CaptureKind::kConnect});
  second.Add({.kind = sim::CaptureKind::kConnect});
  first.EndWithProcess();
  second.EndWithProcess();
  EXPECT_EQ(ReadCapture("kept.pcapng").packets.size(), 3u);
  EXPECT_EQ(ReadCapture("some.pcapng").packets.size(), 1u);
}

}  // namespace
}  // namespace kel::test
