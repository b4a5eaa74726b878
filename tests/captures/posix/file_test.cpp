// SPDX-License-Identifier: MIT
// Captures to files that Windows does not have.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <future>
#include <iterator>
#include <string>

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

TEST(CaptureFiles, ADiskThatStandsStillKeepsNobodyWaiting) {
  const ScratchDirectory folder;
  ASSERT_EQ(::mkfifo("disk", 0600), 0);
  std::promise<void> moves;
  auto written = std::async(std::launch::async, [&] {
    std::ifstream disk("disk", std::ios::binary);
    moves.get_future().wait();
    return std::string(std::istreambuf_iterator<char>(disk), {});
  });
  constexpr std::uint32_t kPackets = 10000;  // more than the pipe and the queue take
  {
    sim::Capture capture(100000);
    ASSERT_TRUE(capture.Start("disk"));
    capture.StartWriting();
    for (std::uint32_t i = 0; i < kPackets; ++i) capture.Add({.kind = sim::CaptureKind::kConnect});
    moves.set_value();
    capture.StopWriting().join();
    capture.WriteQueued();
  }
  folder.write("some.pcapng", written.get());
  const CaptureFile file = ReadCapture("some.pcapng");
  EXPECT_GT(file.dropped, 0u);
  EXPECT_EQ(file.packets.size() + file.dropped, kPackets);
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
