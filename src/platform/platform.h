/* SPDX-License-Identifier: MIT */
// What the library asks of its operating system, and all that it asks.
//
// This header is a contract: a port is a folder beside win32/ and posix/ that defines every name below with the meaning
// given here, and a run of tests/platform against it. The meaning is that of the Windows objects of the same kind, for
// Windows is the library's home; win32/ is therefore a layer of direct calls.
//
// Conventions
//   1. Every function may be called from any thread, also from one that this library did not start, unless it says so.
//   2. Sections, handles and threads never throw: what fails for want of memory fails as described and changes nothing.
//      What takes or gives texts and files may throw std::bad_alloc, and nothing else.
//   3. Times are in milliseconds and run on a clock that nobody sets. kInfinite never ends.
//   4. Texts are zero-ended and in the system's own narrow encoding.
//   5. A function that fails leaves its reason in lastError(), per thread. After a success the number means nothing.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>

#include "platform/thread_annotations.h"

namespace kel::platform {

// ---------------------------------------------------------------------------------------------------------------------
// Critical sections
// ---------------------------------------------------------------------------------------------------------------------

/// A lock that its owner may enter again.
///
/// init() and destroy() stand where an owner begins and ends with a section. They change nothing: a section locks from
/// its construction to its destruction, for a late thread may still be inside, or come in, when the owner is done with
/// it. So each may be called twice, at any time, and by any thread.
///   - Who is inside stays inside, alone, and gives the section back by leave(), whatever owners do meanwhile.
///   - leave() by a thread that is not inside does nothing.
///   - A section whose owner has ended without leaving stays taken for good. Only on Windows, which gives the number of
///     an ended thread to a later one, is such a later thread let in.
/// A static one is ready before any code has run. Nobody may be inside or wait when the object itself ends.
class CAPABILITY("critical section") CriticalSection {
 public:
  constexpr CriticalSection() = default;
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  void init() {}
  void destroy() {}
  /// Blocks until the section is this thread's, without a limit.
  void enter() ACQUIRE();
  void leave() RELEASE();

 private:
  alignas(8) std::atomic<std::uint32_t> mLock[2]{};  ///< the system's: free while it is zero
  std::atomic<std::uint64_t> mOwner{0};              ///< number of the thread that is inside, or 0
  std::uint32_t mEntries = 0;                        ///< for the owner only
};

/// Holds a critical section for the life of a scope.
class SCOPED_CAPABILITY InSection {
 public:
  explicit InSection(CriticalSection& section) ACQUIRE(section) : mSection(section) { mSection.enter(); }
  ~InSection() RELEASE() { mSection.leave(); }
  InSection(const InSection&) = delete;
  InSection& operator=(const InSection&) = delete;

 private:
  CriticalSection& mSection;
};

// ---------------------------------------------------------------------------------------------------------------------
// Handles: events, owner mutexes, threads
// ---------------------------------------------------------------------------------------------------------------------

/// Names one kernel object. nullptr names none. Each handle is closed once, with closeHandle(), by the object that
/// holds it; a handle that was closed is a stale value, with which every function below fails cleanly. The object
/// itself lives until its handle is closed, nobody waits on it and, for a thread or a mutex, it has ended or is no
/// longer owned.
using Handle = void*;

inline constexpr std::uint32_t kInfinite = 0xFFFFFFFF;

// Results of a wait. A wait on several objects adds the index of the object to the first two.
inline constexpr std::uint32_t kWaitObject = 0;       ///< the object was signalled, or the mutex is now this thread's
inline constexpr std::uint32_t kWaitAbandoned = 128;  ///< the same for a mutex whose owner ended without releasing it
inline constexpr std::uint32_t kWaitTimeout = 258;
inline constexpr std::uint32_t kWaitFailed = 0xFFFFFFFF;

/// Most objects that one wait may name.
inline constexpr std::uint32_t kMostWaited = 64;

/// An unnamed event. An auto-reset one lets one waiter through for each time it is set and is then not set again; a
/// manual-reset one stays set for everybody until resetEvent(). Null on failure.
Handle createEvent(bool manualReset, bool set);

/// Sets an event. Who waits at that moment is released then and there: two sets of an auto-reset event with two waiters
/// release both, and a set of a manual-reset event followed at once by a reset releases all who waited. Setting an
/// event that is set changes nothing. False for a handle that is no event.
bool setEvent(Handle event);

/// Takes a set event back. False for a handle that is no event.
bool resetEvent(Handle event);

/// An unnamed mutex that knows its owner: a wait for it makes the waiting thread its owner, at once if it is so
/// already, and each such wait needs one releaseMutex(). Null on failure.
Handle createMutex(bool owned);

/// False, and nothing changed, if this thread is not the owner. Of several who want the mutex any may be the next; but
/// nobody who waits is passed over again and again.
bool releaseMutex(Handle mutex);

/// Stands round work in which a thread takes mutexes time and again. Everything above holds in it as it does outside; a
/// platform may do once there what it else does for each mutex. Scopes may lie in each other.
class MutexScope {
 public:
  MutexScope();
  ~MutexScope();
  MutexScope(const MutexScope&) = delete;
  MutexScope& operator=(const MutexScope&) = delete;
};

/// A thread's work. Its result is the thread's exit code, which nobody reads.
using ThreadFunction = std::uint32_t (*)(void* argument);

/// Starts a thread with the default stack. `*threadId` gets its number. The handle is signalled from the thread's end
/// on. Null on failure, and then the argument was not touched. The module that this code lies in stays mapped until the
/// thread is gone, waited for or not. Where there are signals that are sent to a process, the thread blocks them all,
/// so that a client's handlers run on the client's own threads.
/// Threads one after the other may run on the same thread of the system's. To everything here they are different ones:
/// what one has left taken stays taken, and what it has changed of its signals or its name is put back.
Handle createThread(ThreadFunction function, void* argument, std::uint32_t* threadId);

/// The same for a function that begins with waitForAny() and these arguments. The wait counts from here. It may be
/// begun for the thread while that still has nothing else to do, so that nobody wakes it only to have it wait.
Handle createWaitingThread(ThreadFunction function, void* argument, std::uint32_t* threadId, std::uint32_t count,
                           const Handle* objects, std::uint32_t milliseconds);

/// Has threads of the system's that are kept for later ones end, and keeps none until the next createThread(). It does
/// not wait for them. Without it such a thread ends after a second without work.
void releaseThreads();

/// THREAD_PRIORITY_HIGHEST.
inline constexpr int kPriorityHighest = 2;

/// Asks that a thread run ahead of others. That is a wish: where an ordinary user has no say in it the thread keeps its
/// priority and the call succeeds. False only for a handle that is no thread.
bool setThreadPriority(Handle thread, int priority);

/// Waits until the object is signalled, at most `milliseconds`; 0 looks without sleeping. The result is one of the four
/// above. A mutex or an auto-reset event is taken by the wait that it ends, and by that wait only.
std::uint32_t waitForOne(Handle object, std::uint32_t milliseconds);

/// The same for the first of `count` objects, at most kMostWaited, that is signalled. With several signalled at entry
/// the lowest index wins, and only that one is taken. A wait of 0 may look at them one after the other.
std::uint32_t waitForAny(std::uint32_t count, const Handle* objects, std::uint32_t milliseconds);

/// Makes the handle stale. Who waits on the object goes on waiting. False, and nothing changed, for null and for a
/// stale handle.
bool closeHandle(Handle handle);

void sleepFor(std::uint32_t milliseconds);

// ---------------------------------------------------------------------------------------------------------------------
// Libraries and errors
// ---------------------------------------------------------------------------------------------------------------------

using Module = void*;
using Symbol = void (*)();

/// Loads `name` + ".dll" or "lib" + `name` + ".so" by the system's own search, or counts it once more. Null on failure.
Module loadLibrary(const char* name);
Symbol findSymbol(Module library, const char* name);
bool freeLibrary(Module library);

/// Number of this thread's last failure, and the system's words for such a number.
std::uint32_t lastError();
std::string errorText(std::uint32_t error);

// ---------------------------------------------------------------------------------------------------------------------
// Built-in resources and settings
// ---------------------------------------------------------------------------------------------------------------------

/// Bytes that were bound into the library, followed by a zero byte that `size` does not count. They live as long as the
/// module. `bytes` is null if there is no such resource.
struct Resource {
  const char* bytes = nullptr;
  std::uint32_t size = 0;
};

/// `name` is "#" and the resource's number. A null module is the program itself.
Resource findResource(Module module, const char* name, const char* type);

/// A key's text from an ini file, in the manner of GetPrivateProfileStringA: names are compared without case, the first
/// match counts, blanks round the value and one pair of quotes are taken off, a line that opens with ';' is a comment.
/// The text, or the default without its trailing blanks, goes to `value` with its end mark, cut at `size` - 1
/// characters. Returns its length.
std::uint32_t iniValue(const char* section, const char* key, const char* defaultText, char* value, std::uint32_t size,
                       const char* fileName);

/// Roots of the registry, by the numbers that Windows gives them.
enum class RegistryRoot : std::uint32_t { localMachine = 0x80000002 };

/// A 32-bit value of a registry key. What is stored there may be of another type if it has at most four bytes. False,
/// and `*number` untouched, if it cannot be read.
bool registryNumber(RegistryRoot root, const char* subKey, const char* valueName, std::uint32_t* number);
/// Several of them, from one look at the key. Returns how many could be read; the numbers of the others stay untouched.
std::uint32_t registryNumbers(RegistryRoot root, const char* subKey, std::uint32_t count, const char* const* valueNames,
                              std::uint32_t* numbers);
/// A text of a registry key. False, and `*text` untouched, if it cannot be read.
bool registryText(RegistryRoot root, const char* subKey, const char* valueName, std::string* text);

/// A decimal number from the environment of the process, as the system has it: where the run-time library keeps a copy
/// of its own, that one is not asked. False, and `*number` untouched, if there is no such variable or it holds anything
/// else. Nobody may change the environment meanwhile.
bool environmentNumber(const char* name, std::uint32_t* number);

// ---------------------------------------------------------------------------------------------------------------------
// Files and dates
// ---------------------------------------------------------------------------------------------------------------------

/// Stands between the folders of a path.
extern const char kPathSeparator;

/// Opens a file to read its bytes as they stand. Null if it does not open, and a folder never does.
std::FILE* openToRead(const char* fileName);

/// A text-mode stream that appends to a file which other writers may hold open as well. It formats in the classic
/// locale, whatever the client has made the global one. Test it: it may not have opened.
std::ofstream openToAppend(const std::string& fileName);

inline constexpr std::size_t kDateTextSize = 64;

/// Today as "MM/DD/YY" and now as "HH:MM:SS", local time. The result is an error number, 0 if all went well.
int dateText(char (&text)[kDateTextSize]);
int timeText(char (&text)[kDateTextSize]);

}  // namespace kel::platform
