#include "listeners/SafeQueue.h"

namespace kel {

QueueResult SafeQueue::init() {
  mLock.init();
  return QUEUE_INIT_OK;
}

QueueResult SafeQueue::shutdown() {
  mLock.destroy();
  return QUEUE_SHUTDOWN_OK;
}

QueueResult SafeQueue::insert(std::uint8_t* buffer, std::uint32_t bufferSize) {
  const queue_element_struct elem{buffer, bufferSize};
  // By hand: if the container cannot grow, its exception goes on with the lock still held.
  mLock.enter();
  mQueue.push_back(elem);
  mLock.leave();
  return QUEUE_INSERT_OK;
}

QueueResult SafeQueue::extract(std::uint8_t** buffer, std::uint32_t* bufferSize) {
  *buffer = nullptr;
  *bufferSize = 0;
  mLock.enter();
  if (mQueue.empty()) {
    mLock.leave();
    return QUEUE_EMPTY;
  }
  const queue_element_struct elem = mQueue.front();
  mQueue.pop_front();
  mLock.leave();
  *buffer = elem.buffer;
  *bufferSize = elem.bufferSize;
  return QUEUE_EXTRACT_OK;
}

void SafeQueue::leave(const KeptBlocks& keptBlocks) NO_THREAD_SAFETY_ANALYSIS {
  for (const queue_element_struct& elem : mQueue) keptBlocks.leave(elem.buffer);
  mQueue.clear();
}

}  // namespace kel
