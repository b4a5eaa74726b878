/* SPDX-License-Identifier: MIT */
// The library's log: text lines in a dated file, switched on in the registry.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace kel {

// Levels of a line. Any other number is switched off.
inline constexpr std::uint32_t kInfo = 0;
inline constexpr std::uint32_t kWarning = 1;
inline constexpr std::uint32_t kError = 2;

/// What every line gives as its format flags: decimal, right-aligned, with base.
inline constexpr std::uint32_t kLogFlags = 648;

/// Registry key of all the library's loggers.
inline constexpr const char* kLoggerRegistryKey = "Software\\Brel\\ALogger";

/// Writes lines of the form
///
///     [0 - 0] info - DorvL5 - Dorv_Init - (0) - Success.
///
/// each behind a line break of its own. A line is a head call and the insertions that follow it; nothing is kept
/// between them, for each opens the file, appends and closes it. A line can therefore be followed from outside while
/// the process runs or when it has died, and several processes may share a file.
///
/// Threads: any number, with no lock. Pieces of lines from several threads may interleave, and a thread may see the
/// line flag of another. Where the system appends in two steps, as Windows does, a piece may take the place of one that
/// is written at the same moment. A head call that is switched off costs the test of its switch and that of the line
/// flag, an insertion behind it another of the line flag. Memory is written only where the line before was on, so that
/// threads do not take the logger from each other's caches.
///
/// Nothing is ever reported or thrown: a missing key, an unwritable folder, a failed open or an exhausted heap only
/// means that lines are lost.
class ALogger {
 public:
  constexpr ALogger() = default;
  ~ALogger();
  ALogger(const ALogger&) = delete;
  ALogger& operator=(const ALogger&) = delete;

  /// Reads the three level switches from `key`, once and for all. `key` is not copied. See SwitchesReadOnce.
  void setRegistryKey(const char* key);

  /// Settles the file: the registry's folder, today's date and `name`. Empty: nothing is written. Wants the key first.
  /// The file stays the one that it was if the heap is exhausted.
  void setFileName(std::string_view name);

  /// `name` is not copied.
  void setModuleName(const char* name) { mModuleName.store(name, std::memory_order_relaxed); }

  /// Opens a line of that level. `function` may be null.
  ALogger& log(std::uint32_t level, const char* function, std::uint32_t flags) {
    open(level, function, flags);
    return *this;
  }

  /// A line of those pieces. Where it is switched off, no piece is looked at.
  template <class... Pieces>
  void line(std::uint32_t level, const char* function, const Pieces&... pieces) {
    if (open(level, function, kLogFlags)) (*this << ... << pieces);
  }

  ALogger& operator<<(const char* text) { return insert(text); }
  ALogger& operator<<(std::int32_t number) { return insert(number); }
  ALogger& operator<<(std::uint32_t number) { return insert(number); }
  /// One character, not a number.
  ALogger& operator<<(std::uint8_t character) { return insert(character); }
  /// A handle, in hexadecimal digits.
  ALogger& operator<<(const void* handle) { return insert(handle); }

 private:
  /// A file name stays as long as the logger, since other threads may be writing by it when it is replaced.
  struct FileName {
    std::string text;
    const FileName* previous;
  };

  bool isEnabled(std::uint32_t level) const {
    switch (level) {
      case kInfo: return mInfoEnabled.load(std::memory_order_relaxed) != 0;
      case kWarning: return mWarnEnabled.load(std::memory_order_relaxed) != 0;
      case kError: return mErrEnabled.load(std::memory_order_relaxed) != 0;
      default: return false;
    }
  }

  /// False if the level is switched off.
  bool open(std::uint32_t level, const char* function, std::uint32_t flags) {
    if (!isEnabled(level)) {
      if (mLineEnabled.load(std::memory_order_relaxed)) mLineEnabled.store(false, std::memory_order_relaxed);
      return false;
    }
    mFormatFlags.store(flags, std::memory_order_relaxed);
    writeHead(level, function);
    mLineEnabled.store(true, std::memory_order_relaxed);
    return true;
  }

  template <class Value>
  ALogger& insert(Value value) {
    if (mLineEnabled.load(std::memory_order_relaxed)) write(value);
    return *this;
  }

  void writeHead(std::uint32_t level, const char* function);
  template <class Value>
  void write(Value value);
  template <class Writing>
  void append(Writing writing);

  // Atomic: any thread, in no order.
  std::atomic<const FileName*> mFileName{nullptr};
  std::atomic<const char*> mModuleName{nullptr};
  std::atomic<const char*> mRegistryKey{nullptr};
  std::atomic<std::uint32_t> mInfoEnabled{0};
  std::atomic<std::uint32_t> mWarnEnabled{0};
  std::atomic<std::uint32_t> mErrEnabled{0};
  std::atomic<bool> mLineEnabled{false};
  std::atomic<std::uint32_t> mFormatFlags{0};
};

/// While one lives, the loggers that this thread gives one registry key share what the first of them reads of it. For
/// an object that has several loggers, while it is made. Other threads' loggers get their keys before or after that.
class SwitchesReadOnce {
 public:
  SwitchesReadOnce();
  ~SwitchesReadOnce();
  SwitchesReadOnce(const SwitchesReadOnce&) = delete;
  SwitchesReadOnce& operator=(const SwitchesReadOnce&) = delete;
};

}  // namespace kel
