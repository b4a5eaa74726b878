/* SPDX-License-Identifier: MIT */
// A capture: every L5 message and event of this process, as it passes, in a pcapng file.
//
// The file's link type is USER0 (147). Each packet opens with this head, and the body of the message, if it has one,
// follows as it was sent. All numbers are little-endian:
//
//   offset  bytes
//      0      1    version of this layout: 1
//      1      1    kind: see CaptureKind
//      2      2    size of this head: 24
//      4      4    connection, numbered 1, 2, ... as they are opened; 0: none that is open
//      8      4    agent that the message goes to or comes from; 0 if there is none
//     12      4    message ID, or the event
//     16      4    status that the L5 function returned (connect, disconnect, reply); reason of an event; else 0
//     20      4    exchange: numbers the requests 1, 2, ...; a reply has its request's; else 0
//
// A packet whose original length is above the captured one was cut to 262144 bytes, or is a reply that tells more bytes
// than there are. Times are of the wall clock when the capture began and run on evenly from there. A packet's comment
// says what is not in the message: the rule that held, why a link is gone.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <thread>

#include "Pcapng.h"

namespace kel::sim {

enum class CaptureKind : std::uint8_t {
  kConnect = 1,     ///< L5Connect has returned
  kDisconnect = 2,  ///< L5Disconnect was called
  kRequest = 3,     ///< SendReceiveMessage was called
  kReply = 4,       ///< and has returned
  kMessage = 5,     ///< a message goes to its handler
  kEvent = 6,       ///< an event goes to its handler
};

/// What passes. See above for the members that are in the packet's head.
struct CaptureFrame {
  CaptureKind kind;
  std::uint32_t connection = 0;
  std::uint32_t agent = 0;
  std::uint32_t ID = 0;
  std::uint32_t status = 0;
  std::uint32_t exchange = 0;
  std::span<const std::uint8_t> body{};
  std::uint64_t toldSize = 0;  ///< of the body, if that is more than its bytes
  std::string_view comment{};
};

/// A file's name that stays right when the program changes its working directory.
std::string AbsoluteName(const std::string& name);

/// Packets go into a queue of fixed size, and a thread of the capture's own writes them to the file: nobody who adds
/// one waits for the disk. One that finds no room is dropped and counted; the packet after it and the file's statistics
/// tell how many, and so does a line on standard error.
///
///   off      nothing is captured                             until Start
///   on       packets are queued                              until EndWithProcess, or an error of the file
///   writing  on, and the thread brings them to the file      from StartWriting until StopWriting
///
/// The thread runs while there are connections, so that none is left when the library is unloaded. A queued byte has
/// its place in the file from the start. Writing one twice does no harm, which is how the end of the process can take
/// over from a thread that is still at it, or that the system has ended.
///
/// Guarded by the hub's lock, but for WriteQueued.
class Capture {
 public:
  static constexpr std::size_t kQueueSize = std::size_t{16} << 20;

  explicit Capture(std::size_t queueSize = kQueueSize) : mQueueSize(queueSize) {}
  ~Capture();
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  /// Begins a capture in a new file, which takes the place of one of that name. The name is in UTF-8; `%p` in it
  /// becomes eight hexadecimal digits that differ from process to process. Tells a file that cannot be opened on
  /// standard error. False then, or if a capture was begun before: there is one in the life of a process.
  bool Start(const std::string& name);
  /// Begins, at the first call, the capture that the environment variable SLUICEHUB_CAPTURE asks for. A relative name
  /// belongs to the working directory that the process had when it loaded the library.
  void StartFromEnvironment();

  bool IsOn() const { return mOn.load(std::memory_order_relaxed); }
  void Add(const CaptureFrame& frame);
  /// The number of the next request.
  std::uint32_t NewExchange() { return ++mLastExchange; }

  /// For the first connection. Where there are no threads left, the end of the process writes what the queue holds.
  void StartWriting();
  /// For the last connection: adds the statistics and tells the thread to end. The caller gives up the hub's lock, waits
  /// for the thread, if there is one, and calls WriteQueued.
  [[nodiscard]] std::thread StopWriting();
  /// Writes what is queued. Takes a lock of its own and waits for the disk.
  void WriteQueued();

  /// Ends the capture for good and writes what is queued, whatever became of the thread. It may be called without the
  /// hub's lock if that could not be had: a thread that the system has ended keeps it, and disturbs nothing any more.
  void EndWithProcess();

 private:
  using Clock = std::chrono::steady_clock;

  void Run(std::uint32_t number);
  void Open();
  std::uint64_t Now() const;
  bool QueueBlock(std::size_t reserve);
  bool AppendStatistics(pcapng::Bytes& to);
  bool WriteTo(std::ostream& file, std::uint64_t begin, std::uint64_t end) const;
  void Wake();

  const std::size_t mQueueSize;

  // Constant once the capture is on.
  std::string mName;
  std::uint64_t mWallStart = 0;
  Clock::time_point mStart;
  std::unique_ptr<std::uint8_t[]> mQueue;

  // Guarded by the hub's lock.
  bool mAskedEnvironment = false;
  bool mBegun = false;
  std::uint32_t mLastExchange = 0;
  std::uint64_t mReceived = 0;
  std::uint64_t mDropped = 0;
  std::uint64_t mDroppedBefore = 0;  ///< since the last packet that found room
  std::uint64_t mDroppedTold = 0;    ///< on standard error
  std::uint64_t mReceivedTold = 0;   ///< in the file's statistics
  pcapng::Bytes mBlock;              ///< serves one block after the other
  std::thread mWriter;
  std::uint32_t mWriters = 0;  ///< that there were so far, numbered from 1

  // For the end of the process: the same file once more, and room for what ends it.
  std::ofstream mLastFile;
  pcapng::Bytes mLastBlock;

  // Bytes of the file, counted from its start: those from mWritten to mQueued are in the queue.
  std::atomic<std::uint64_t> mQueued{0};   ///< set under the hub's lock
  std::atomic<std::uint64_t> mWritten{0};  ///< set under mFileMutex
  std::atomic<bool> mOn{false};            ///< set under the hub's lock
  std::atomic<bool> mFailed{false};        ///< the file takes no more

  // Guarded by mFileMutex. In this lock and the next one no other is taken.
  std::mutex mFileMutex;
  std::ofstream mFile;

  // Guarded by mWakeMutex.
  std::mutex mWakeMutex;
  std::condition_variable mWake;
  bool mWoken = false;              ///< there is something for the thread to do
  std::uint32_t mWritersEnded = 0;  ///< those up to this number are to end; the last of them may still be at it
};

}  // namespace kel::sim
