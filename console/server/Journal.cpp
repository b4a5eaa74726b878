// SPDX-License-Identifier: MIT
#include "Journal.h"

#include <algorithm>
#include <utility>

namespace kel::console {

void Journal::add(std::string entry) {
  auto shared = std::make_shared<const std::string>(std::move(entry));
  {
    const std::lock_guard lock(mMutex);
    if (mIsClosed) return;
    mBytes += shared->size();
    mEntries.push_back(std::move(shared));
    ++mPosition;
    while (mEntries.size() > mMostEntries || (mBytes > mMostBytes && mEntries.size() > 1)) {
      mBytes -= mEntries.front()->size();
      mEntries.pop_front();
    }
  }
  mChanged.notify_all();
}

std::uint64_t Journal::position() const {
  const std::lock_guard lock(mMutex);
  return mPosition;
}

Journal::Batch Journal::after(std::uint64_t position, std::size_t most, std::chrono::milliseconds time) const {
  std::unique_lock lock(mMutex);
  mChanged.wait_for(lock, time, [&] { return mIsClosed || mPosition > position; });
  Batch batch;
  batch.isClosed = mIsClosed;
  const std::uint64_t oldest = mPosition - mEntries.size();
  const std::uint64_t begin = std::clamp(position, oldest, mPosition);
  batch.missed = begin - std::min(begin, position);
  batch.position = std::min(mPosition, begin + most);
  batch.entries.assign(mEntries.begin() + static_cast<std::ptrdiff_t>(begin - oldest),
                       mEntries.begin() + static_cast<std::ptrdiff_t>(batch.position - oldest));
  return batch;
}

void Journal::close() {
  {
    const std::lock_guard lock(mMutex);
    mIsClosed = true;
  }
  mChanged.notify_all();
}

}  // namespace kel::console
