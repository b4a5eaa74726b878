// SPDX-License-Identifier: MIT
// Copies of a process that has connections open: they may end, or become another program, whatever its threads were at.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <latch>
#include <thread>
#include <vector>

#include "KELHandler.h"
#include "support/scratch_directory.h"

// Asked by LeakSanitizer: what the threads of the parent had in their hands looks lost in the copy.
extern "C" int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() { return 1; }

// Asked by ThreadSanitizer, which else has each copy wait a second for threads that it does not have.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() { return "atexit_sleep_ms=0"; }

namespace kel::test {
namespace {

constexpr const char* kTask = "TASK_ID_APPLICATION_DEBUG_VAL";
constexpr int kCopies = 100;
constexpr unsigned kSecondsToEnd = 20;  ///< then a copy hangs

void Ignore(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
  std::free(name);
  std::free(payload);
}

void IgnoreAnswer(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, void*, std::uint32_t, std::uint32_t) {}

/// Sends a task and waits for its answer.
void Send(std::uint64_t conn, const char* task, const std::array<std::uint32_t, 3>& values) {
  void* answer = nullptr;
  std::uint32_t size = 0;
  KEL_SendReceiveKEL(conn, task, 0, values.data(), sizeof values, &answer, &size, nullptr);
  std::free(answer);
}

/// Connections with broadcasts coming in, and threads that send tasks on them until the end of the test.
class ForkTest : public testing::Test {
 protected:
  ForkTest() {
    for (std::uint64_t& conn : mConnections) {
      EXPECT_EQ(KEL_Connect(nullptr, Ignore, &conn), KEL_OK);
      mSenders.emplace_back([this, conn] { sendUntilDone(conn); });
    }
    mUnderWay.wait();
  }
  ~ForkTest() override {
    mDone = true;
    for (std::thread& sender : mSenders) sender.join();
    for (const std::uint64_t conn : mConnections) EXPECT_EQ(KEL_Disconnect(conn), KEL_OK);
  }

  /// Has copies end by `last`, which does not return, one after the other.
  template <typename Last>
  void endCopies(Last last) {
    for (int i = 0; i < kCopies; ++i) {
      const pid_t copy = fork();
      ASSERT_GE(copy, 0);
      if (copy == 0) {
        alarm(kSecondsToEnd);
        last();
      }
      int status = 0;
      ASSERT_EQ(waitpid(copy, &status, 0), copy);
      ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "copy " << i << ", status " << status;
    }
  }

 private:
  void sendUntilDone(std::uint64_t conn) {
    const std::array<std::uint32_t, 3> values = {1, 2, 3};
    Send(conn, kTask, values);
    mUnderWay.count_down();
    while (!mDone) {
      Send(conn, kTask, values);
      Send(conn, "TASK_ID_APPLICATION_DEBUG_BROADCASTER", {10, 0, 0});
      std::uint32_t seqNum = 0;
      KEL_SendReceiveAsyncKEL(conn, kTask, 0, values.data(), sizeof values, &seqNum, IgnoreAnswer, nullptr);
    }
  }

  ScratchDirectory mDirectory;
  std::array<std::uint64_t, 4> mConnections{};
  std::latch mUnderWay{4};
  std::atomic<bool> mDone{false};
  std::vector<std::thread> mSenders;
};

TEST_F(ForkTest, ACopyMayExit) {
  endCopies([] { std::exit(0); });
}

TEST_F(ForkTest, ACopyMayBecomeAnotherProgram) {
  endCopies([] {
    execl("/bin/true", "true", nullptr);
    _exit(1);
  });
}

}  // namespace
}  // namespace kel::test
