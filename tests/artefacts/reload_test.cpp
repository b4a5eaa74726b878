// SPDX-License-Identifier: MIT
// The library as a guest of a program that is not linked with it: loaded, used and unloaded, again and again.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <future>
#include <thread>
#include <utility>

#include "KELHandler.h"
#include "artefacts/loaded_modules.h"
#include "platform/platform.h"
#include "support/scratch_directory.h"

// Asked by LeakSanitizer: of code that has been unloaded it cannot tell which leaks are meant.
extern "C" int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() { return 1; }

namespace kel::test {
namespace {

constexpr const char* kLibrary = "KELHandler";

class LoadedLibrary {
 public:
  LoadedLibrary() : mModule(platform::loadLibrary(kLibrary)) {}
  ~LoadedLibrary() { unload(); }
  LoadedLibrary(const LoadedLibrary&) = delete;
  LoadedLibrary& operator=(const LoadedLibrary&) = delete;

  bool isLoaded() const { return mModule != nullptr; }

  bool unload() {
    const platform::Module module = std::exchange(mModule, nullptr);
    return module != nullptr && platform::freeLibrary(module);
  }

  /// An export by its type in the header and its name.
  template <class Function>
  Function* find(const char* name) const {
    return reinterpret_cast<Function*>(platform::findSymbol(mModule, name));
  }

 private:
  platform::Module mModule;
};

void Ignore(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
  std::free(name);
  std::free(payload);
}

std::atomic<int> gAnswers{0};

void CountAnswer(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, void*, std::uint32_t, std::uint32_t) {
  ++gAnswers;
  gAnswers.notify_one();
}

/// A whole client's life: connects, with a thread for broadcasts, sends a task and so many asynchronous ones,
/// disconnects.
void Use(const LoadedLibrary& library, int asynchronous = 0) {
  const auto init = library.find<decltype(KEL_Init)>("KEL_Init");
  const auto connect = library.find<decltype(KEL_Connect)>("KEL_Connect");
  const auto send = library.find<decltype(KEL_SendReceiveKEL)>("KEL_SendReceiveKEL");
  const auto disconnect = library.find<decltype(KEL_Disconnect)>("KEL_Disconnect");
  const auto finalize = library.find<decltype(KEL_Finalize)>("KEL_Finalize");
  ASSERT_TRUE(init && connect && send && disconnect && finalize);

  ASSERT_EQ(init(), 0U);
  std::uint64_t conn = 0;
  ASSERT_EQ(connect(nullptr, Ignore, &conn), KEL_OK);
  const std::array<std::uint32_t, 3> values = {1, 2, 3};
  void* answer = nullptr;
  std::uint32_t size = 0;
  ASSERT_EQ(send(conn, "TASK_ID_APPLICATION_DEBUG_VAL", 0, values.data(), sizeof values, &answer, &size, nullptr),
            KEL_OK);
  EXPECT_EQ(size, sizeof values);
  EXPECT_EQ(std::memcmp(answer, values.data(), sizeof values), 0);
  std::free(answer);
  const auto sendAsync = library.find<decltype(KEL_SendReceiveAsyncKEL)>("KEL_SendReceiveAsyncKEL");
  gAnswers = 0;
  for (int i = 0; i < asynchronous; ++i) {
    std::uint32_t seqNum = 0;
    EXPECT_EQ(sendAsync(conn, "TASK_ID_APPLICATION_DEBUG_VAL", 0, values.data(), sizeof values, &seqNum, CountAnswer,
                        nullptr),
              KEL_OK);
  }
  for (int seen = gAnswers; seen < asynchronous; seen = gAnswers) gAnswers.wait(seen);
  EXPECT_EQ(disconnect(conn), KEL_OK);
  EXPECT_EQ(finalize(), 0U);
}

class Reload : public testing::Test {
 protected:
  ScratchDirectory mDirectory;
};

TEST_F(Reload, WorksAgainAndAgain) {
  for (int round = 0; round < 5; ++round) {
    LoadedLibrary library;
    ASSERT_TRUE(library.isLoaded()) << platform::errorText(platform::lastError());
    Use(library);
    EXPECT_TRUE(library.unload()) << "round " << round;
  }
}

/// Whether the library goes when its last user lets go. A thread of its own that is just ending may keep it for a
/// moment longer, and then it goes with the next one that lets go.
bool LeavesProcess() {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (IsLoaded(kLibrary) && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
    LoadedLibrary().unload();
  }
  return !IsLoaded(kLibrary);
}

TEST_F(Reload, LeavesNothingThatKeepsItInTheProcess) {
  for (int round = 0; round < 5; ++round) {
    LoadedLibrary library;
    ASSERT_TRUE(library.isLoaded());
    EXPECT_TRUE(IsLoaded(kLibrary));
    std::thread([&library] { Use(library); }).join();
    EXPECT_TRUE(library.unload());
    EXPECT_TRUE(LeavesProcess()) << "round " << round;
  }
}

// Threads of the library are still on their way out, each at another point of it, when the client lets go.
TEST_F(Reload, WorksAThousandTimes) {
  for (int round = 0; round < 1000; ++round) {
    LoadedLibrary library;
    ASSERT_TRUE(library.isLoaded());
    Use(library);
    ASSERT_TRUE(library.unload());
  }
  EXPECT_TRUE(LeavesProcess());
}

TEST_F(Reload, LeavesNoThreadOfATaskBehind) {
  for (int round = 0; round < 20; ++round) {
    LoadedLibrary library;
    ASSERT_TRUE(library.isLoaded());
    Use(library, 64);
    ASSERT_TRUE(library.unload());
    ASSERT_TRUE(LeavesProcess()) << "round " << round;
  }
}

TEST_F(Reload, MayBeUnloadedWhileAThreadThatHasUsedItLivesOn) {
  for (int round = 0; round < 5; ++round) {
    LoadedLibrary library;
    ASSERT_TRUE(library.isLoaded());
    std::promise<void> used;
    std::promise<void> unloaded;
    std::thread user([&] {
      Use(library);
      used.set_value();
      unloaded.get_future().wait();
    });
    used.get_future().wait();
    EXPECT_TRUE(library.unload());
    EXPECT_TRUE(LeavesProcess()) << "round " << round;
    unloaded.set_value();
    user.join();
  }
}

TEST_F(Reload, WorksWithoutUse) {
  for (int round = 0; round < 5; ++round) {
    LoadedLibrary library;
    ASSERT_TRUE(library.isLoaded());
    EXPECT_TRUE(library.unload());
    EXPECT_TRUE(LeavesProcess());
  }
}

TEST_F(Reload, ALibraryLoadedTwiceStaysForItsSecondUser) {
  LoadedLibrary first;
  LoadedLibrary second;
  EXPECT_TRUE(first.unload());
  EXPECT_TRUE(IsLoaded(kLibrary));
  Use(second);
  EXPECT_TRUE(second.unload());
  EXPECT_TRUE(LeavesProcess());
}

TEST_F(Reload, NothingButTheExportsIsFound) {
  LoadedLibrary library;
  EXPECT_NE(library.find<decltype(KEL_GetVersion)>("KEL_GetVersion"), nullptr);
  EXPECT_EQ(library.find<void()>("Dorv_Init"), nullptr);
  EXPECT_EQ(library.find<void()>("BrelInit"), nullptr);
}

}  // namespace
}  // namespace kel::test
