// SPDX-License-Identifier: MIT
// One client's life from connect to disconnect with one call to the system failed, and a second life with none.
//
//   client_life MESSAGES count FAMILY                     writes the stacks that were counted
//   client_life MESSAGES stack FAMILY NUMBER [onwards]
//   client_life MESSAGES call FAMILY NUMBER [onwards]
//
// MESSAGES is the length of its stream.
//
// It tells its course line by line in the file "report" of its working directory, as it happens:
//
//   begin STEP, end STEP RESULT              a call of the interface
//   through STEP                             an exception came through it
//   told TASK ANSWERS MESSAGES ENDS          how often the callbacks of a task were called
//   late TASK                                one was called behind the disconnect
//   left CONNECTIONS                         open links, seen from the device
//   failed..., failures...                   what failed, see faults.h
//   stopped FRAME...                         where the first thread stood when it got SIGTERM
//   died FRAME...                            where a thread stood when it got a signal that ends the program
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <string_view>

#include "KELHandler.h"
#include "SluiceHubSim.h"
#include "faults/posix/faults.h"

namespace {

using namespace kel::faults;

constexpr char kVal[] = "TASK_ID_APPLICATION_DEBUG_VAL";
constexpr char kStreamer[] = "TASK_ID_APPLICATION_DEBUG_STREAMER";
constexpr char kBroadcaster[] = "TASK_ID_APPLICATION_DEBUG_BROADCASTER";

/// How long a client waits for a callback: longer than RxWaitTimeout.
constexpr std::chrono::milliseconds kPatience{2000};

int gReport = -1;

/// A line of the report, written at once.
[[gnu::format(printf, 1, 2)]] void Tell(const char* format, ...) {
  char line[256];
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  if (write(gReport, line, static_cast<std::size_t>(length)) != length) std::_Exit(3);
}

/// What the callbacks of one task, or of the broadcasts, were called for.
struct Told {
  const char* name;
  std::atomic<int> answers = 0;
  std::atomic<int> messages = 0;
  std::atomic<int> ends = 0;
};

Told gAsync{.name = "async"};
Told gStream{.name = "stream"};
Told gBroadcasts{.name = "broadcasts"};
std::mutex gTelling;
std::condition_variable gTold;
std::atomic<bool> gOver{false};  ///< no callback may come any more

void Count(Told& told, std::atomic<int>& counter) {
  if (gOver) Tell("late %s\n", told.name);
  const std::lock_guard lock(gTelling);
  ++counter;
  gTold.notify_all();
}

void Await(const std::atomic<int>& counter) {
  std::unique_lock lock(gTelling);
  gTold.wait_for(lock, kPatience, [&counter] { return counter != 0; });
}

void TakeAnswer(std::uint32_t, std::uint32_t commandID, std::uint32_t, std::uint32_t, void*, std::uint32_t,
                std::uint32_t) {
  Told& told = commandID == 2 ? gAsync : gStream;
  Count(told, told.answers);
}

void TakeMessage(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t streamEnd, std::uint32_t, void*,
                 std::uint32_t, std::uint32_t) {
  Count(gStream, streamEnd != 0 ? gStream.ends : gStream.messages);
}

void TakeBroadcast(char* name, std::uint32_t, void* payload, std::uint32_t, std::uint32_t) {
  std::free(name);
  std::free(payload);
  Count(gBroadcasts, gBroadcasts.messages);
}

/// Makes one call of the interface. Its result, or none if an exception came through.
template <class Call>
std::optional<std::uint32_t> Step(const char* name, Call call) {
  Tell("begin %s\n", name);
  try {
    const std::uint32_t result = call();
    Tell("end %s %u\n", name, result);
    return result;
  } catch (...) {
    Tell("through %s\n", name);
    return {};
  }
}

std::uint32_t SendAndWait(std::uint64_t conn, const char* task, const std::uint32_t (&values)[3]) {
  constexpr std::uint32_t kWrongAnswer = 100;
  void* answer = nullptr;
  std::uint32_t size = 0;
  const std::uint32_t result = KEL_SendReceiveKEL(conn, task, 1, values, sizeof values, &answer, &size, nullptr);
  const bool right = (result == KEL_OK) == (answer != nullptr) &&
                     (result != KEL_OK || (size == sizeof values && std::memcmp(answer, values, size) == 0));
  std::free(answer);
  return right ? result : kWrongAnswer;
}

void FirstLife(std::uint32_t messages) {
  std::uint64_t conn = 0;
  if (Step("connect", [&] { return KEL_Connect(nullptr, TakeBroadcast, &conn); }) != KEL_OK) return Disarm();

  Step("task", [&] { return SendAndWait(conn, kVal, {7, 8, 9}); });

  std::uint32_t seqNum = 0;
  const std::uint32_t values[3] = {messages, 0, 0};
  if (Step("async", [&] {
        return KEL_SendReceiveAsyncKEL(conn, kVal, 2, values, sizeof values, &seqNum, TakeAnswer, nullptr);
      }) == KEL_OK) {
    Await(gAsync.answers);
  }
  if (Step("stream", [&] {
        return KEL_SendReceiveAsyncKEL(conn, kStreamer, 3, values, sizeof values, &seqNum, TakeAnswer, TakeMessage);
      }) == KEL_OK) {
    Await(gStream.ends);
  }
  const std::uint32_t one[3] = {1, 0, 0};
  void* none = nullptr;
  std::uint32_t size = 0;
  if (Step("broadcaster", [&] {
        return KEL_SendReceiveKELEx(conn, kBroadcaster, 4, one, sizeof one, 0, 0, nullptr, &none, &size, nullptr,
                                    nullptr);
      }) == KEL_OK) {
    Await(gBroadcasts.messages);
  }
  std::uint64_t userVersion = 0;
  char file[] = "Statistics.bm";
  Step("version", [&] { return KEL_ValidateVersion(conn, file, "bytes", 5, &userVersion, "."); });

  const auto disconnected = Step("disconnect", [&] { return KEL_Disconnect(conn); });
  Disarm();
  if (disconnected != KEL_OK) Step("disconnect-again", [&] { return KEL_Disconnect(conn); });
}

/// Up to the first call that fails: what comes behind it might have no end.
bool SecondLife() {
  std::uint64_t conn = 0;
  return Step("second-connect", [&] { return KEL_Connect(nullptr, TakeBroadcast, &conn); }) == KEL_OK &&
         Step("second-task",
              [&] {
                return SendAndWait(conn, kVal, {10, 11, 12});
              }) == KEL_OK &&
         Step("second-disconnect", [&] { return KEL_Disconnect(conn); }) == KEL_OK;
}

extern "C" void Stop(int) {
  WriteOwnStack(gReport, "stopped");
  WriteFailure(gReport);
  _exit(4);
}

extern "C" void Die(int signal) {
  WriteOwnStack(gReport, "died");
  WriteFailure(gReport);
  ::signal(signal, SIG_DFL);
  raise(signal);
}

std::optional<Family> FamilyOf(std::string_view name) {
  constexpr std::string_view kNames[] = {"memory", "thread", "file", "load", "object"};
  for (std::size_t i = 0; i < std::size(kNames); ++i) {
    if (kNames[i] == name) return static_cast<Family>(i);
  }
  return {};
}

}  // namespace

int main(int count, char** arguments) {
  const std::string_view what = count > 3 ? arguments[2] : "";
  const std::optional<Family> family = count > 3 ? FamilyOf(arguments[3]) : std::nullopt;
  if (!family || (what != "count" && count < 5)) return 2;
  const auto messages = static_cast<std::uint32_t>(std::strtoul(arguments[1], nullptr, 10));
  Plan plan{.family = *family};
  if (what != "count") (what == "stack" ? plan.stack : plan.call) = std::strtoull(arguments[4], nullptr, 10);
  plan.onwards = count > 5;

  gReport = open("report", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (gReport < 0) return 2;
  Prepare();
  signal(SIGTERM, Stop);
  for (const int deadly : {SIGABRT, SIGSEGV, SIGBUS, SIGILL, SIGFPE}) signal(deadly, Die);

  KEL_Init();
  Arm(plan);
  FirstLife(messages);
  gOver = true;
  for (const Told* told : {&gAsync, &gStream, &gBroadcasts}) {
    Tell("told %s %d %d %d\n", told->name, told->answers.load(), told->messages.load(), told->ends.load());
  }
  const bool worked = SecondLife();
  if (what == "count") WriteStacks(gReport);
  WriteFailure(gReport);
  if (!worked) _exit(0);
  std::uint64_t open[16];
  Tell("left %u\n", SluiceHubSim_GetConnections(open, 16));
  Step("finalize", [] { return KEL_Finalize(); });
  Tell("done\n");
  return 0;
}
