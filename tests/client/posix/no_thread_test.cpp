// SPDX-License-Identifier: MIT
// A client for which the system gives no thread.
#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>
#include <system_error>

#include "client/client_test.h"

namespace {

int gUntilRefusal = 0;  // threads that may be started, and the one that is refused; 0: all may

}  // namespace

/// In front of the system's own.
extern "C" [[gnu::visibility("default")]] int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                                             void* (*function)(void*), void* argument) {
  using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const auto create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
  if (gUntilRefusal != 0 && --gUntilRefusal == 0) return EAGAIN;
  return create(thread, attributes, function, argument);
}

namespace kel::test {
namespace {

using NoThreadTest = ClientTest;

TEST_F(NoThreadTest, NoClientBeginsAndNoneOfItsThreadsStays) {
  Options options;
  options.onState = [](const StateChange&) {};
  for (int thread = 1; thread <= 3; ++thread) {
    gUntilRefusal = thread;
    EXPECT_THROW((void)Client::begin(options), std::system_error) << thread;
    EXPECT_EQ(gUntilRefusal, 0) << thread;
  }
  Client client = Client::connect(options).value();
  EXPECT_TRUE(client.task(kEcho, {7, 8, 9}).ok());
}

}  // namespace
}  // namespace kel::test
