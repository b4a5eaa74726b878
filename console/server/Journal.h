/* SPDX-License-Identifier: MIT */
// What happens at a device, in its order, for everybody who watches.
//
// A ring of fixed size. Who watches holds a position in it and asks for what came after: so a slow one costs no memory
// and holds nobody up, but misses what the ring no longer has, and is told how much that was.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kel::console {

/// Every function may be called by any thread.
class Journal {
 public:
  /// Keeps so many entries, and so many bytes of them.
  explicit Journal(std::size_t entries = 16384, std::size_t bytes = std::size_t{16} << 20)
      : mMostEntries(entries), mMostBytes(bytes) {}

  /// Adds an entry, the text of a JSON object. After close() it is dropped.
  void add(std::string entry);

  /// The position behind all that has happened.
  std::uint64_t position() const;

  struct Batch {
    std::vector<std::shared_ptr<const std::string>> entries;
    std::uint64_t position = 0;  ///< to ask with the next time
    std::uint64_t missed = 0;    ///< entries that the ring no longer had
    bool isClosed = false;       ///< no more will come
  };

  /// What came after a position, `most` entries at most. Waits so long at most for something to come.
  Batch after(std::uint64_t position, std::size_t most, std::chrono::milliseconds time) const;

  /// Ends all waiting, for good.
  void close();

 private:
  const std::size_t mMostEntries;
  const std::size_t mMostBytes;

  mutable std::mutex mMutex;
  mutable std::condition_variable mChanged;
  // Guarded by mMutex.
  std::deque<std::shared_ptr<const std::string>> mEntries;
  std::uint64_t mPosition = 0;  ///< behind the last of them
  std::size_t mBytes = 0;
  bool mIsClosed = false;
};

}  // namespace kel::console
