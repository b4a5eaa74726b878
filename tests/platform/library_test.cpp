// SPDX-License-Identifier: MIT
// Shared libraries and errors.
#include "platform/background.h"

namespace kel::platform {
namespace {

constexpr std::uint32_t kModuleNotFound = 126;
constexpr std::uint32_t kSymbolNotFound = 127;

TEST(Library, ALibraryBesideTheProgramIsFoundByItsBareName) {
  const Module library = loadLibrary("PlatformTestLibrary");
  ASSERT_NE(library, nullptr);
  const auto answer = reinterpret_cast<int (*)()>(findSymbol(library, "PlatformTestAnswer"));
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer(), 42);
  EXPECT_TRUE(freeLibrary(library));
}

TEST(Library, ALibraryIsOneModuleHoweverOftenItIsLoaded) {
  const Module first = loadLibrary("PlatformTestLibrary");
  const Module second = loadLibrary("PlatformTestLibrary");
  EXPECT_EQ(first, second);
  EXPECT_TRUE(freeLibrary(first));
  EXPECT_NE(findSymbol(second, "PlatformTestAnswer"), nullptr);
  EXPECT_TRUE(freeLibrary(second));
}

TEST(Library, AMissingLibraryIsError126) {
  EXPECT_EQ(loadLibrary("NoSuchLibrary"), nullptr);
  EXPECT_EQ(lastError(), kModuleNotFound);
}

TEST(Library, AMissingSymbolIsError127) {
  const Module library = loadLibrary("PlatformTestLibrary");
  EXPECT_EQ(findSymbol(library, "NoSuchSymbol"), nullptr);
  EXPECT_EQ(lastError(), kSymbolNotFound);
  EXPECT_TRUE(freeLibrary(library));
}

TEST(Library, NothingHasNoSymbols) { EXPECT_EQ(findSymbol(nullptr, "NoSuchSymbol"), nullptr); }

TEST(Library, NothingCannotBeFreed) { EXPECT_FALSE(freeLibrary(nullptr)); }

TEST(Error, EachThreadHasItsOwn) {
  EXPECT_FALSE(setEvent(nullptr));
  const std::uint32_t mine = lastError();
  Background([] { EXPECT_EQ(loadLibrary("NoSuchLibrary"), nullptr); }).join();
  EXPECT_EQ(lastError(), mine);
}

TEST(Error, EveryNumberHasWords) {
  for (const std::uint32_t error : {0U, 1U, 2U, 4U, 6U, 8U, 13U, 87U, 126U, 127U, 288U, 1814U, 0xFFFFFFFFU}) {
    EXPECT_FALSE(errorText(error).empty()) << error;
    EXPECT_EQ(errorText(error).find('\n'), std::string::npos) << error;
  }
  EXPECT_NE(errorText(kModuleNotFound), errorText(kSymbolNotFound));
}

}  // namespace
}  // namespace kel::platform
