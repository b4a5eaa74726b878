// SPDX-License-Identifier: MIT
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
  if (mQueue) {
    mQueue->push_back(elem);
  } else if (mFirstCount < kFirst) {
    mFirst[(mFirstFront + mFirstCount++) % kFirst] = elem;
  } else {
    mQueue.emplace(1, elem);
  }
  mLock.leave();
  return QUEUE_INSERT_OK;
}

QueueResult SafeQueue::extract(std::uint8_t** buffer, std::uint32_t* bufferSize) {
  *buffer = nullptr;
  *bufferSize = 0;
  mLock.enter();
  if (empty()) {
    mLock.leave();
    return QUEUE_EMPTY;
  }
  const queue_element_struct elem = takeFront();
  mLock.leave();
  *buffer = elem.buffer;
  *bufferSize = elem.bufferSize;
  return QUEUE_EXTRACT_OK;
}

void SafeQueue::leave(const KeptBlocks& keptBlocks) NO_THREAD_SAFETY_ANALYSIS {
  while (!empty()) keptBlocks.leave(takeFront().buffer);
}

queue_element_struct SafeQueue::takeFront() {
  if (mFirstCount != 0) {
    const queue_element_struct elem = mFirst[mFirstFront];
    mFirstFront = (mFirstFront + 1) % kFirst;
    --mFirstCount;
    return elem;
  }
  const queue_element_struct elem = mQueue->front();
  mQueue->pop_front();
  if (mQueue->empty()) mQueue.reset();
  return elem;
}

}  // namespace kel
