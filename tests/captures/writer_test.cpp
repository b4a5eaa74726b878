// SPDX-License-Identifier: MIT
// The writer of captures by itself: its queue, its file, what it says.
#include <gtest/gtest.h>

#include <numeric>

#include "captures/pcapng_reader.h"
#include "support/scratch_directory.h"

namespace kel::test {
namespace {

using sim::Capture;
using sim::CaptureFrame;
using sim::CaptureKind;

constexpr char kFile[] = "some.pcapng";

std::vector<std::uint8_t> Body(std::size_t size) {
  std::vector<std::uint8_t> body(size);
  std::iota(body.begin(), body.end(), std::uint8_t{0});
  return body;
}

CaptureFrame Request(std::uint32_t exchange, const std::vector<std::uint8_t>& body) {
  return {.kind = CaptureKind::kRequest, .connection = 1, .agent = 6, .ID = 1, .exchange = exchange, .body = body};
}

constexpr std::uint32_t kRounds = 2000;

/// Stands for the last disconnect.
void StopAndWrite(Capture& capture) {
  if (std::thread writer = capture.StopWriting(); writer.joinable()) writer.join();
  capture.WriteQueued();
}

TEST(CaptureWriter, EachPartOfAPacketHasItsPlace) {
  const ScratchDirectory folder;
  Capture capture;
  ASSERT_TRUE(capture.Start(kFile));
  const std::vector<std::uint8_t> body = {0xAA, 0xBB, 0xCC};
  capture.Add({.kind = CaptureKind::kReply,
               .connection = 2,
               .agent = 3,
               .ID = 4,
               .status = 5,
               .exchange = 6,
               .body = body,
               .comment = "seven"});
  StopAndWrite(capture);
  const CaptureFile file = ReadCapture(kFile);
  ASSERT_EQ(file.packets.size(), 1u);
  EXPECT_EQ(file.packets[0].bytes, (std::vector<std::uint8_t>{1, 4, 24, 0, 2, 0, 0, 0, 3, 0, 0,    0,    4,   0,
                                                              0, 0, 5,  0, 0, 0, 6, 0, 0, 0, 0xAA, 0xBB, 0xCC}));
  EXPECT_EQ(file.packets[0].originalSize, 27u);
  EXPECT_EQ(file.packets[0].comment, "seven");
  EXPECT_EQ(file.packets[0].direction, 1u);
}

TEST(CaptureWriter, WhatTheHostSendsIsOutbound) {
  const ScratchDirectory folder;
  Capture capture;
  ASSERT_TRUE(capture.Start(kFile));
  for (const auto kind : {CaptureKind::kConnect, CaptureKind::kDisconnect, CaptureKind::kRequest, CaptureKind::kReply,
                          CaptureKind::kMessage, CaptureKind::kEvent}) {
    capture.Add({.kind = kind});
  }
  StopAndWrite(capture);
  std::vector<std::uint32_t> directions;
  for (const CapturedPacket& packet : ReadCapture(kFile).packets) directions.push_back(packet.direction);
  EXPECT_EQ(directions, (std::vector<std::uint32_t>{2, 2, 2, 1, 1, 1}));
}

TEST(CaptureWriter, AQueueThatGoesRoundManyTimesKeepsEveryByte) {
  const ScratchDirectory folder;
  Capture capture(1000);
  ASSERT_TRUE(capture.Start(kFile));
  for (std::uint32_t i = 1; i <= 500; ++i) {
    capture.Add(Request(i, Body(i)));
    capture.WriteQueued();
  }
  StopAndWrite(capture);
  const CaptureFile file = ReadCapture(kFile);
  ASSERT_EQ(file.packets.size(), 500u);
  for (std::uint32_t i = 1; i <= 500; ++i) EXPECT_EQ(file.packets[i - 1].Body(), Body(i));
  EXPECT_EQ(file.dropped, 0u);
}

TEST(CaptureWriter, TheThreadWritesByItself) {
  const ScratchDirectory folder;
  Capture capture;
  ASSERT_TRUE(capture.Start(kFile));
  const auto before = std::filesystem::file_size(kFile);
  capture.StartWriting();
  capture.Add(Request(1, Body(100)));
  while (std::filesystem::file_size(kFile) < before + 300) std::this_thread::yield();
  EXPECT_EQ(ReadCapture(kFile).packets.size(), 1u);
  StopAndWrite(capture);
}

TEST(CaptureWriter, TheThreadEndsEachTimeThatItIsToldTo) {
  const ScratchDirectory folder;
  Capture capture;
  ASSERT_TRUE(capture.Start(kFile));
  for (std::uint32_t i = 1; i <= kRounds; ++i) {
    capture.StartWriting();
    capture.Add(Request(i, Body(10)));
    StopAndWrite(capture);
  }
  EXPECT_EQ(ReadCapture(kFile).packets.size(), kRounds);
}

TEST(CaptureWriter, WhatFindsNoRoomIsDroppedAndTheCountTold) {
  const ScratchDirectory folder;
  Capture capture(1000);
  ASSERT_TRUE(capture.Start(kFile));
  for (std::uint32_t i = 1; i <= 100; ++i) capture.Add(Request(i, Body(50)));
  testing::internal::CaptureStderr();
  StopAndWrite(capture);
  const CaptureFile file = ReadCapture(kFile);
  const std::size_t kept = file.packets.size();
  EXPECT_GT(kept, 3u);
  EXPECT_EQ(file.received, 100u);
  EXPECT_EQ(file.dropped, 100u - kept);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "SluiceHub: capture some.pcapng: " + std::to_string(100 - kept) +
                                                        " of 100 packets were dropped: slow disk\n");
}

TEST(CaptureWriter, ThePacketBehindAGapTellsHowManyAreMissing) {
  const ScratchDirectory folder;
  Capture capture(1000);
  ASSERT_TRUE(capture.Start(kFile));
  for (std::uint32_t i = 1; i <= 100; ++i) capture.Add(Request(i, Body(50)));
  capture.WriteQueued();
  capture.Add(Request(101, Body(50)));
  capture.Add(Request(102, Body(50)));
  StopAndWrite(capture);
  const CaptureFile file = ReadCapture(kFile);
  const std::size_t kept = file.packets.size() - 2;
  EXPECT_EQ(file.packets[kept - 1].droppedBefore, 0u);
  EXPECT_EQ(file.packets[kept].Exchange(), 101u);
  EXPECT_EQ(file.packets[kept].droppedBefore, 100 - kept);
  EXPECT_EQ(file.packets[kept + 1].droppedBefore, 0u);
}

TEST(CaptureWriter, AHugeBodyIsCutAndItsSizeTold) {
  const ScratchDirectory folder;
  Capture capture;
  ASSERT_TRUE(capture.Start(kFile));
  capture.Add(Request(1, Body(300000)));
  StopAndWrite(capture);
  const CaptureFile file = ReadCapture(kFile);
  ASSERT_EQ(file.packets.size(), 1u);
  EXPECT_EQ(file.packets[0].bytes.size(), 262144u);
  EXPECT_EQ(file.packets[0].originalSize, 300024u);
}

TEST(CaptureWriter, TheEndOfTheProcessWritesWhatTheThreadHasNot) {
  const ScratchDirectory folder;
  Capture capture;
  ASSERT_TRUE(capture.Start(kFile));
  for (std::uint32_t i = 1; i <= 10; ++i) {
    capture.Add(Request(i, Body(i)));
    if (i == 5) capture.WriteQueued();
  }
  capture.EndWithProcess();
  const CaptureFile file = ReadCapture(kFile);
  EXPECT_EQ(file.packets.size(), 10u);
  EXPECT_EQ(file.received, 10u);
  EXPECT_EQ(file.statistics, 1);
  EXPECT_FALSE(capture.IsOn());
}

TEST(CaptureWriter, TheEndOfTheProcessMayMeetTheThreadAtWork) {
  const ScratchDirectory folder;
  Capture capture;
  ASSERT_TRUE(capture.Start(kFile));
  capture.StartWriting();
  for (std::uint32_t i = 1; i <= 2000; ++i) capture.Add(Request(i, Body(i)));
  capture.EndWithProcess();
  const CaptureFile file = ReadCapture(kFile);
  ASSERT_EQ(file.packets.size(), 2000u);
  EXPECT_EQ(file.packets.back().Body(), Body(2000));
  StopAndWrite(capture);
}

TEST(CaptureWriter, StatisticsAreWrittenOnceForTheSamePackets) {
  const ScratchDirectory folder;
  Capture capture;
  ASSERT_TRUE(capture.Start(kFile));
  capture.Add(Request(1, Body(1)));
  StopAndWrite(capture);
  capture.EndWithProcess();
  EXPECT_EQ(ReadCapture(kFile).statistics, 1);
}

TEST(CaptureWriter, AFileThatCannotBeOpenedIsToldOnce) {
  const ScratchDirectory folder;
  Capture capture;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(capture.Start("no_such_folder/some.pcapng"));
  EXPECT_FALSE(capture.Start(kFile));
  EXPECT_FALSE(capture.IsOn());
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "SluiceHub: capture no_such_folder/some.pcapng: No such file or directory; nothing is captured\n");
}

TEST(CaptureWriter, AFileOfThatNameIsReplaced) {
  const ScratchDirectory folder;
  folder.write(kFile, std::string(100000, 'x'));
  Capture capture;
  ASSERT_TRUE(capture.Start(kFile));
  StopAndWrite(capture);
  EXPECT_TRUE(ReadCapture(kFile).packets.empty());
}

TEST(CaptureWriter, AMarkInTheNameMakesAFileForEachProcess) {
  const ScratchDirectory folder;
  Capture capture;
  ASSERT_TRUE(capture.Start("of %p.pcapng"));
  const auto name = std::filesystem::directory_iterator(folder.path())->path().filename().string();
  EXPECT_THAT(name, testing::StartsWith("of "));
  EXPECT_EQ(name.size(), std::string("of 01234567.pcapng").size());
}

}  // namespace
}  // namespace kel::test
