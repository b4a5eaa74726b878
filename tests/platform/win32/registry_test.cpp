// SPDX-License-Identifier: MIT
// The registry, by values that every system has: the tests write nothing there.
#include <gtest/gtest.h>

#include "platform/platform.h"

namespace kel::platform {
namespace {

constexpr RegistryRoot kRoot = RegistryRoot::localMachine;
constexpr const char* kKey = "Software\\Microsoft\\Windows NT\\CurrentVersion";

TEST(Registry, ANumberIsRead) {
  std::uint32_t number = 0;
  EXPECT_TRUE(registryNumber(kRoot, kKey, "InstallDate", &number));
  EXPECT_NE(number, 0U);
}

TEST(Registry, ATextIsReadWithoutItsEndMark) {
  std::string text;
  EXPECT_TRUE(registryText(kRoot, kKey, "SystemRoot", &text));
  EXPECT_EQ(text, "C:\\windows");
}

TEST(Registry, ATextOfMoreThanFourBytesIsNoNumber) {
  std::uint32_t number = 7;
  EXPECT_FALSE(registryNumber(kRoot, kKey, "SystemRoot", &number));
  EXPECT_EQ(number, 7U);
}

TEST(Registry, WhatIsMissingLeavesEverythingAlone) {
  std::uint32_t number = 7;
  std::string text = "before";
  EXPECT_FALSE(registryNumber(kRoot, kKey, "NoSuchValue", &number));
  EXPECT_FALSE(registryText(kRoot, kKey, "NoSuchValue", &text));
  EXPECT_FALSE(registryText(kRoot, "Software\\NoSuchKey", "SystemRoot", &text));
  EXPECT_EQ(lastError(), 2U);
  EXPECT_EQ(number, 7U);
  EXPECT_EQ(text, "before");
}

}  // namespace
}  // namespace kel::platform
