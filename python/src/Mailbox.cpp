// SPDX-License-Identifier: MIT
#include "Mailbox.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "Interpreter.h"

namespace kel::python {
namespace {

int newDescriptor() {
  const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  return descriptor;
}

}  // namespace

Mailbox::Mailbox() : mForks(forks()), mDescriptor(newDescriptor()) {}

Mailbox::~Mailbox() {
  ::close(mDescriptor);
  // In a child, letters that hold a stream must not stop it.
  if (mForks != forks()) (void)new Letters(std::move(mLetters));
}

void Mailbox::post(std::uint64_t addressee, Content content) {
  const detail::Lock lock(mMutex);
  if (mLetters.empty()) (void)eventfd_write(mDescriptor, 1);
  mLetters.emplace_back(addressee, std::move(content));
}

py::list Mailbox::take() {
  Letters letters;
  if (mForks == forks()) {
    const detail::Lock lock(mMutex);
    eventfd_t ignored = 0;
    (void)eventfd_read(mDescriptor, &ignored);
    letters.swap(mLetters);
  }
  py::list list;
  for (const auto& [addressee, content] : letters) list.append(py::make_tuple(addressee, content()));
  return list;
}

}  // namespace kel::python
