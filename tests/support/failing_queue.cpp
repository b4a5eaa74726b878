// SPDX-License-Identifier: MIT
#include "support/failing_queue.h"

#include <atomic>

#include "listeners/SafeQueue.h"

namespace {

using kel::QueueResult;
using kel::SafeQueue;
using kel::test::QueueCall;

// Set by the test's thread and read by a listener's.
std::atomic<QueueCall> gFailing{QueueCall::kNone};
std::atomic<std::uint8_t*> gRefused{nullptr};

}  // namespace

// The linker sends calls of a wrapped function to __wrap_, and calls of __real_ to the function itself. Behind that
// stands the name that the compiler gives to kel::SafeQueue::init() and the others.
extern "C" {

QueueResult __real__ZN3kel9SafeQueue4initEv(SafeQueue* queue);
QueueResult __real__ZN3kel9SafeQueue8shutdownEv(SafeQueue* queue);
QueueResult __real__ZN3kel9SafeQueue6insertEPhj(SafeQueue* queue, std::uint8_t* buffer, std::uint32_t size);
QueueResult __real__ZN3kel9SafeQueue7extractEPPhPj(SafeQueue* queue, std::uint8_t** buffer, std::uint32_t* size);

QueueResult __wrap__ZN3kel9SafeQueue4initEv(SafeQueue* queue);
QueueResult __wrap__ZN3kel9SafeQueue8shutdownEv(SafeQueue* queue);
QueueResult __wrap__ZN3kel9SafeQueue6insertEPhj(SafeQueue* queue, std::uint8_t* buffer, std::uint32_t size);
QueueResult __wrap__ZN3kel9SafeQueue7extractEPPhPj(SafeQueue* queue, std::uint8_t** buffer, std::uint32_t* size);

// The lock is made and deleted in either case.
QueueResult __wrap__ZN3kel9SafeQueue4initEv(SafeQueue* queue) {
  const QueueResult result = __real__ZN3kel9SafeQueue4initEv(queue);
  return gFailing == QueueCall::kInit ? kel::QUEUE_EXTRACT_FAILED : result;
}

QueueResult __wrap__ZN3kel9SafeQueue8shutdownEv(SafeQueue* queue) {
  const QueueResult result = __real__ZN3kel9SafeQueue8shutdownEv(queue);
  return gFailing == QueueCall::kShutdown ? kel::QUEUE_EXTRACT_FAILED : result;
}

QueueResult __wrap__ZN3kel9SafeQueue6insertEPhj(SafeQueue* queue, std::uint8_t* buffer, std::uint32_t size) {
  if (gFailing != QueueCall::kInsert) return __real__ZN3kel9SafeQueue6insertEPhj(queue, buffer, size);
  gRefused = buffer;
  return kel::QUEUE_EXTRACT_FAILED;
}

QueueResult __wrap__ZN3kel9SafeQueue7extractEPPhPj(SafeQueue* queue, std::uint8_t** buffer, std::uint32_t* size) {
  if (gFailing != QueueCall::kExtract) return __real__ZN3kel9SafeQueue7extractEPPhPj(queue, buffer, size);
  *buffer = nullptr;
  *size = 0;
  return kel::QUEUE_EXTRACT_FAILED;
}

}  // extern "C"

namespace kel::test {

FailingQueue::FailingQueue(QueueCall call) { gFailing = call; }
FailingQueue::~FailingQueue() { gFailing = QueueCall::kNone; }

std::uint8_t* FailingQueue::refused() const { return gRefused; }

}  // namespace kel::test
