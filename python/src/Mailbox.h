/* SPDX-License-Identifier: MIT */
// How threads of the library reach an event loop.
#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <utility>

#include "kel/detail/sync.hpp"

namespace kel::python {

namespace py = pybind11;

/// Letters for one event loop, and a file descriptor that is readable while there are some. However many come before
/// the loop looks, it is woken once.
class Mailbox {
 public:
  /// Makes what a letter holds, under the interpreter's lock.
  using Content = std::function<py::object()>;

  Mailbox();
  ~Mailbox();
  Mailbox(const Mailbox&) = delete;
  Mailbox& operator=(const Mailbox&) = delete;

  int descriptor() const { return mDescriptor; }

  /// Puts a letter in for the addressee of this number. Does not wait, and needs no lock of the interpreter.
  void post(std::uint64_t addressee, Content content);

  /// All letters, as (addressee, content).
  py::list take();

 private:
  using Letters = std::deque<std::pair<std::uint64_t, Content>>;

  const unsigned mForks;
  const int mDescriptor;
  detail::Mutex mMutex;
  Letters mLetters KEL_DETAIL_GUARDED_BY(mMutex);
};

}  // namespace kel::python
