// SPDX-License-Identifier: MIT
#include "logging/ALogger.h"

#include <array>
#include <cstring>
#include <exception>
#include <fstream>
#include <ios>
#include <iterator>

#include "logging/Registry.h"
#include "platform/platform.h"

namespace kel {
namespace {

constexpr const char* kLevelWords[] = {"info", "warning", "error"};
constexpr const char* kSwitchNames[] = {"Info", "Warn", "Err"};

/// By level.
using Switches = std::array<std::uint32_t, std::size(kSwitchNames)>;

/// The format flags of a line are numbered in the logger's own way, which is none of the standard library's business.
std::ios_base::fmtflags StreamFlags(std::uint32_t flags) {
  static constexpr struct {
    std::uint32_t bit;
    std::ios_base::fmtflags flag;
  } kFlags[] = {
      {0x001, std::ios_base::skipws},   {0x002, std::ios_base::unitbuf}, {0x004, std::ios_base::uppercase},
      {0x008, std::ios_base::showbase}, {0x010, std::ios_base::showpoint}, {0x020, std::ios_base::showpos},
      {0x040, std::ios_base::left},     {0x080, std::ios_base::right},   {0x100, std::ios_base::internal},
      {0x200, std::ios_base::dec},      {0x400, std::ios_base::oct},     {0x800, std::ios_base::hex},
      {0x1000, std::ios_base::scientific}, {0x2000, std::ios_base::fixed}, {0x4000, std::ios_base::boolalpha},
  };
  std::ios_base::fmtflags result{};
  for (const auto& entry : kFlags) {
    if (flags & entry.bit) result |= entry.flag;
  }
  return result;
}

/// Does what needs the heap, as far as that goes.
template <class Work>
void DoContained(Work work) {
  try {
    work();
  } catch (const std::exception&) {
    // The line is lost, as it would be in an unwritable folder.
  }
}

/// What a SwitchesReadOnce keeps of the registry. Its lock is held for as long as it lives.
platform::CriticalSection gSharingLock;
bool gIsShared GUARDED_BY(gSharingLock) = false;
const char* gSharedKey GUARDED_BY(gSharingLock) = nullptr;  ///< null before the first reading
Switches gShared GUARDED_BY(gSharingLock);

/// A switch that cannot be read is off.
Switches ReadSwitches(const char* key) {
  Switches switches{};
  DoContained([&] {
    ReadRegistryDwords(platform::RegistryRoot::localMachine, key, switches.size(), kSwitchNames, switches.data());
  });
  return switches;
}

Switches SwitchesUnder(const char* key) {
  const platform::InSection sharing(gSharingLock);
  if (!gIsShared) return ReadSwitches(key);
  // By their texts: one constant may have as many addresses as there are sources that name it.
  if (key == nullptr || gSharedKey == nullptr || std::strcmp(key, gSharedKey) != 0) gShared = ReadSwitches(key);
  gSharedKey = key;
  return gShared;
}

}  // namespace

SwitchesReadOnce::SwitchesReadOnce() NO_THREAD_SAFETY_ANALYSIS {
  gSharingLock.enter();
  gIsShared = true;
}

SwitchesReadOnce::~SwitchesReadOnce() NO_THREAD_SAFETY_ANALYSIS {
  gIsShared = false;
  gSharedKey = nullptr;
  gSharingLock.leave();
}

ALogger::~ALogger() {
  for (const FileName* name = mFileName.load(); name != nullptr;) {
    const FileName* previous = name->previous;
    delete name;
    name = previous;
  }
}

void ALogger::setRegistryKey(const char* key) {
  mRegistryKey.store(key, std::memory_order_relaxed);
  const Switches switches = SwitchesUnder(key);
  mInfoEnabled.store(switches[kInfo], std::memory_order_relaxed);
  mWarnEnabled.store(switches[kWarning], std::memory_order_relaxed);
  mErrEnabled.store(switches[kError], std::memory_order_relaxed);
}

void ALogger::setFileName(std::string_view name) {
  // Nobody sees the name of a logger that the registry has switched off, and some get their name again with each task.
  const char* key = mRegistryKey.load(std::memory_order_relaxed);
  if (key != nullptr && !isEnabled(kInfo) && !isEnabled(kWarning) && !isEnabled(kError)) return;
  DoContained([&] {
    std::string full;
    if (!name.empty()) {
      if (ReadRegistryString(platform::RegistryRoot::localMachine, key, "LogPath", &full)) {
        full += platform::kPathSeparator;
      }
      char date[platform::kDateTextSize];
      platform::dateText(date);
      date[2] = date[5] = '-';
      full.append(date).append("-").append(name);
    }
    const FileName* current = mFileName.load(std::memory_order_acquire);
    if (current != nullptr && current->text == full) return;
    auto* next = new FileName{std::move(full), current};
    while (!mFileName.compare_exchange_weak(next->previous, next, std::memory_order_acq_rel)) {
    }
  });
}

template <class Writing>
void ALogger::append(Writing writing) {
  const FileName* name = mFileName.load(std::memory_order_acquire);
  if (name == nullptr || name->text.empty()) return;
  DoContained([&] {
    std::ofstream file = platform::openToAppend(name->text);
    if (file) writing(file);
  });
}

void ALogger::writeHead(std::uint32_t level, const char* function) {
  append([&](std::ofstream& file) {
    // The results stand in the head, not the texts: a line's date is in the file's name.
    char text[platform::kDateTextSize];
    file << std::endl << "[" << platform::dateText(text) << " - " << platform::timeText(text) << "] ";
    file << kLevelWords[level] << " - ";
    if (const char* module = mModuleName.load(std::memory_order_relaxed)) file << module << " - ";
    if (function != nullptr) file << function << " - ";
  });
}

template <class Value>
void ALogger::write(Value value) {
  append([&](std::ofstream& file) {
    file.flags(StreamFlags(mFormatFlags.load(std::memory_order_relaxed)));
    file << value;
  });
}

template void ALogger::write(const char*);
template void ALogger::write(std::int32_t);
template void ALogger::write(std::uint32_t);
template void ALogger::write(std::uint8_t);
template void ALogger::write(const void*);

}  // namespace kel
