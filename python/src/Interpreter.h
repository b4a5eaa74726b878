/* SPDX-License-Identifier: MIT */
// The interpreter's lock, its end, and fork.
//
// Threads of the library never take the interpreter's lock but to call `on_state`: they put what they bring into a
// Mailbox. Threads of Python that wait give the lock up. When the interpreter ends, end() closes all clients, by which
// every wait ends, and stays until each waiting thread has the lock back: a thread that asks for it later is ended by
// the interpreter in the midst of C++, and takes the process with it. For the same reason nothing here runs code of
// Python's, which may lose the lock at any time, but `on_state` and what makes an Options.
//
// After a fork the child has none of the threads, and any lock of theirs may be taken for ever. So there every object
// made before is left alone, for good: see Forked.
#pragma once

#include <pybind11/pybind11.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>

#include "kel/client.hpp"

namespace kel::python {

namespace py = pybind11;

/// Learns the exceptions, when the module is loaded.
void bindErrors();

/// Raises what stands for an error in Python.
[[noreturn]] void raise(const Error& error);
/// The exception that raise() would raise.
py::object exceptionOf(const Error& error);

/// Whether the interpreter ends: end() closes all clients then, or has done so.
bool isEnding();

/// Gives the interpreter's lock up for a scope in which the thread may wait. Raises Closed when the interpreter ends.
class Waiting {
 public:
  Waiting();
  ~Waiting();
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

 private:
  PyThreadState* mState;
};

/// Waits until `isDone(time)`, which waits so long at most, says so. Lets signals through, so that Ctrl-C works.
template <class IsDone>
void await(IsDone isDone, Clock::time_point until = Clock::time_point::max()) {
  constexpr Milliseconds kSlice{50};
  for (;;) {
    const auto left = std::chrono::ceil<Milliseconds>(until - Clock::now());
    {
      const Waiting waiting;
      if (isDone(std::clamp(left, Milliseconds(0), kSlice))) return;
    }
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    if (left <= Milliseconds(0)) return;
  }
}

/// Runs a job on a thread of its own, which the end of the interpreter waits for. It must not touch Python. Under the
/// interpreter's lock; raises Closed when the interpreter ends.
void runJob(std::function<void()> job);

/// How often this process and its ancestors have forked since the module was loaded.
unsigned forks();

/// Keeps an object of C++ for the process that has made it. In a child of that, nothing is done with it any more, and
/// it is never destroyed. Used under the interpreter's lock.
template <class T>
class Forked {
 public:
  template <class... Arguments>
  explicit Forked(Arguments&&... arguments)
      : mObject(std::make_unique<T>(std::forward<Arguments>(arguments)...)) {}
  ~Forked() {
    if (!isOurs()) (void)mObject.release();
  }
  Forked(const Forked&) = delete;
  Forked& operator=(const Forked&) = delete;

  T& operator*() const {
    if (!isOurs()) raise(Error{Cause::closed, 0, "made before a fork, by the parent process"});
    return *mObject;
  }
  T* operator->() const { return &**this; }
  bool isOurs() const { return mForks == forks(); }

 private:
  const unsigned mForks = forks();
  std::unique_ptr<T> mObject;
};

/// Raises what a client may not be made for: the end of the interpreter, or a fork with clients open.
void checkMayConnect();

/// Has end() close a client.
void registerClient(std::weak_ptr<Client> client);

/// Has end() close a client that nobody else has any more.
void leaveToEnd(std::shared_ptr<Client> client);

/// For the interpreter's end: closes all clients, and waits until nobody is in C++ any more.
void end();
/// In the child of a fork.
void forked();

}  // namespace kel::python
