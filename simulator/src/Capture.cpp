// SPDX-License-Identifier: MIT
#include "Capture.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace kel::sim {
namespace {

constexpr std::uint16_t kLinkTypeUser0 = 147;
constexpr std::uint8_t kLayoutVersion = 1;

#pragma pack(push, 1)
struct CaptureHead {
  std::uint8_t version;
  CaptureKind kind;
  std::uint16_t size;
  std::uint32_t connection;
  std::uint32_t agent;
  std::uint32_t ID;
  std::uint32_t status;
  std::uint32_t exchange;
};
#pragma pack(pop)
static_assert(sizeof(CaptureHead) == 24);

/// What is kept free for the statistics when packets fill the queue: one block of them is 56 bytes.
constexpr std::size_t kReserve = 64;

bool IsOutbound(CaptureKind kind) {
  return kind == CaptureKind::kConnect || kind == CaptureKind::kDisconnect || kind == CaptureKind::kRequest;
}

std::string ReplaceMark(std::string name) {
  if (const auto mark = name.find("%p"); mark != std::string::npos) {
    char digits[9];
    std::snprintf(digits, sizeof digits, "%08x", static_cast<unsigned>(std::random_device{}()));
    name.replace(mark, 2, digits);
  }
  return name;
}

void Tell(const std::string& name, const std::string& what) {
  std::fputs(("SluiceHub: capture " + name + ": " + what + "\n").c_str(), stderr);
}

/// What the variable asks for. It is read when the library is loaded, since programs change their working directory.
std::string AskedFor() {
  const char* name = std::getenv("SLUICEHUB_CAPTURE");
  return name == nullptr || *name == '\0' ? std::string() : AbsoluteName(name);
}

/// Never destroyed: a thread may connect until the process has ended.
const std::string& gAskedFor = *new std::string(AskedFor());

std::string LastError() { return std::generic_category().message(errno); }

}  // namespace

std::string AbsoluteName(const std::string& name) {
  try {
    return std::filesystem::absolute(name).string();
  } catch (const std::exception&) {
    return name;  // to open it fails as well, and tells why
  }
}

Capture::~Capture() {
  if (std::thread writer = StopWriting(); writer.joinable()) writer.join();
}

bool Capture::Start(const std::string& name) {
  if (mBegun) return false;
  mBegun = true;
  try {
    mName = ReplaceMark(name);
    Open();
  } catch (const std::exception& error) {
    Tell(mName, std::string(error.what()) + "; nothing is captured");
  }
  return IsOn();
}

void Capture::StartFromEnvironment() {
  if (mAskedEnvironment) return;
  mAskedEnvironment = true;
  if (!gAskedFor.empty()) Start(gAskedFor);
}

void Capture::Open() {
  const std::filesystem::path path(mName);
  // A process that still writes to a file of that name keeps it, without its name, rather than have it torn. Devices,
  // pipes and links, as /dev/stderr is one, stay.
  std::error_code ignored;
  if (std::filesystem::is_regular_file(std::filesystem::symlink_status(path, ignored))) {
    std::filesystem::remove(path, ignored);
  }
  for (std::ofstream* file : {&mFile, &mLastFile}) {
    // Unbuffered: what was written is in the file at once.
    file->rdbuf()->pubsetbuf(nullptr, 0);
    file->open(path,
               file == &mFile ? std::ios::out | std::ios::binary : std::ios::in | std::ios::out | std::ios::binary);
    if (!*file) throw std::runtime_error(LastError());
  }
  mQueue = std::make_unique_for_overwrite<std::uint8_t[]>(mQueueSize);
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  mWallStart = static_cast<std::uint64_t>(std::chrono::nanoseconds(sinceEpoch).count());
  mStart = Clock::now();

  mBlock.reserve(2 * std::size_t{pcapng::kSnapLength});  // for the largest one, so that adding takes no more memory
  mLastBlock.reserve(kReserve);
  pcapng::AppendSectionHeader(mBlock, "Stand-in SluiceHub");
  pcapng::AppendInterface(mBlock, kLinkTypeUser0, "SluiceHub", "L5 messages and events");
  QueueBlock(0);
  mOn = true;
}

std::uint64_t Capture::Now() const {
  const std::chrono::nanoseconds elapsed = Clock::now() - mStart;
  return mWallStart + static_cast<std::uint64_t>(elapsed.count());
}

/// Moves the block to the queue. False if fewer than `reserve` bytes would be left.
bool Capture::QueueBlock(std::size_t reserve) {
  const std::uint64_t at = mQueued.load(std::memory_order_relaxed);
  const std::uint64_t taken = at - mWritten.load(std::memory_order_acquire);
  const bool hasRoom = taken + mBlock.size() + reserve <= mQueueSize;
  if (hasRoom) {
    const auto begin = static_cast<std::size_t>(at % mQueueSize);
    const std::size_t first = std::min(mBlock.size(), mQueueSize - begin);
    std::memcpy(&mQueue[begin], mBlock.data(), first);
    std::memcpy(&mQueue[0], mBlock.data() + first, mBlock.size() - first);
    mQueued.store(at + mBlock.size(), std::memory_order_release);
  }
  mBlock.clear();
  return hasRoom;
}

void Capture::Wake() {
  const std::lock_guard lock(mWakeMutex);
  if (!std::exchange(mWoken, true)) mWake.notify_one();
}

void Capture::Add(const CaptureFrame& frame) {
  if (mFailed.load(std::memory_order_relaxed)) mOn = false;
  if (!IsOn()) return;
  const CaptureHead head{.version = kLayoutVersion,
                         .kind = frame.kind,
                         .size = sizeof(CaptureHead),
                         .connection = frame.connection,
                         .agent = frame.agent,
                         .ID = frame.ID,
                         .status = frame.status,
                         .exchange = frame.exchange};
  using pcapng::Direction;
  pcapng::AppendPacket(mBlock,
                       {.time = Now(),
                        .direction = IsOutbound(frame.kind) ? Direction::kOutbound : Direction::kInbound,
                        .droppedBefore = mDroppedBefore,
                        .head = {reinterpret_cast<const std::uint8_t*>(&head), sizeof head},
                        .body = frame.body,
                        .originalSize = sizeof head + std::max<std::uint64_t>(frame.body.size(), frame.toldSize),
                        .comment = frame.comment});
  ++mReceived;
  if (QueueBlock(kReserve)) {
    mDroppedBefore = 0;
    Wake();
  } else {
    ++mDropped;
    ++mDroppedBefore;
  }
}

/// False if nothing has passed since the last ones.
bool Capture::AppendStatistics(pcapng::Bytes& to) {
  if (mReceivedTold == mReceived) return false;
  mReceivedTold = mReceived;
  pcapng::AppendStatistics(to, Now(), mReceived, mDropped);
  if (mDroppedTold != mDropped) {
    mDroppedTold = mDropped;
    Tell(mName, std::to_string(mDropped) + " of " + std::to_string(mReceived) + " packets were dropped: slow disk");
  }
  return true;
}

void Capture::StartWriting() {
  if (!IsOn() || mWriter.joinable()) return;
  try {
    mWriter = std::thread([this, number = mWriters + 1] { Run(number); });
    ++mWriters;
  } catch (const std::exception&) {
    // Nobody's connection fails for want of a capture.
  }
}

void Capture::Run(std::uint32_t number) {
  while (true) {
    {
      std::unique_lock lock(mWakeMutex);
      mWake.wait(lock, [&] { return mWoken || number <= mWritersEnded; });
      if (number <= mWritersEnded) return;
      mWoken = false;
    }
    WriteQueued();
  }
}

std::thread Capture::StopWriting() {
  if (IsOn() && AppendStatistics(mBlock)) QueueBlock(0);
  {
    const std::lock_guard lock(mWakeMutex);
    mWritersEnded = mWriters;
  }
  mWake.notify_all();
  return std::move(mWriter);
}

void Capture::WriteQueued() {
  const std::lock_guard lock(mFileMutex);
  if (mFailed.load(std::memory_order_relaxed)) return;
  const std::uint64_t begin = mWritten.load(std::memory_order_relaxed);
  const std::uint64_t end = mQueued.load(std::memory_order_acquire);
  if (begin == end) return;
  if (WriteTo(mFile, begin, end)) {
    mWritten.store(end, std::memory_order_release);
  } else {
    mFailed = true;
    Tell(mName, LastError() + "; the capture ends here");
  }
}

bool Capture::WriteTo(std::ostream& file, std::uint64_t begin, std::uint64_t end) const {
  while (begin != end) {
    const auto at = static_cast<std::size_t>(begin % mQueueSize);
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(end - begin, mQueueSize - at));
    if (!file.write(reinterpret_cast<const char*>(&mQueue[at]), static_cast<std::streamsize>(size))) return false;
    begin += size;
  }
  return true;
}

void Capture::EndWithProcess() {
  if (!IsOn() || mFailed) return;
  // Nothing is added any more, so that the queue's bytes stay what they are, also if the thread is still writing them.
  // It is neither waited for nor woken: it may be gone, and what it slept on with it.
  mOn = false;
  const std::uint64_t begin = mWritten.load(std::memory_order_acquire);
  mLastFile.seekp(static_cast<std::streamoff>(begin));
  bool isWritten = WriteTo(mLastFile, begin, mQueued.load(std::memory_order_acquire));
  if (isWritten && AppendStatistics(mLastBlock)) {
    mLastFile.write(reinterpret_cast<const char*>(mLastBlock.data()), static_cast<std::streamsize>(mLastBlock.size()));
    isWritten = mLastFile.good();
  }
  if (!isWritten) Tell(mName, LastError() + "; its end is missing");
}

}  // namespace kel::sim
