/* SPDX-License-Identifier: MIT */
// A client, its calls, streams and subscriptions as Python has them. A function that may take its time waits for its
// outcome, or is given a Mailbox and a number there: then it returns at once, and the outcome comes as a letter.
#pragma once

#include <pybind11/pybind11.h>

#include <deque>
#include <optional>
#include <utility>

#include "Interpreter.h"
#include "Mailbox.h"
#include "Payloads.h"
#include "kel/client.hpp"
#include "kel/uri.hpp"

namespace kel::python {

/// What reads messages.
template <class Source, class Item>
class ReaderOf {
 public:
  explicit ReaderOf(Source source) : mSource(std::move(source)) {}

  /// The next one, or None at the end. Waits until then at most; at the deadline None too.
  py::object next(std::optional<double> timeout) {
    if (!mBatch.empty() || refill()) return takeOne();
    if (isEnding()) return py::none();
    const Clock::time_point until = timeout ? detail::after(millisecondsOf(*timeout)) : Clock::time_point::max();
    Source& source = *mSource;
    std::optional<Item> item;
    await(
        [&](Milliseconds time) {
          item = source.next(time);
          return item || source.reason() != End::none;
        },
        until);
    return item ? py::cast(std::move(*item)) : py::none();
  }

  /// All that wait, without waiting for any.
  py::list batch() {
    if (mBatch.empty()) refill();
    py::list list;
    while (!mBatch.empty()) list.append(takeOne());
    return list;
  }

  const char* reason() const { return text(mBatch.empty() ? mSource->reason() : End::none); }
  std::uint64_t dropped() const { return mSource->dropped(); }
  void stop() { mSource->stop(); }
  const Payload& opening() const { return mSource->opening(); }

  /// Has a letter written each time that there is something to read again after batch() has found nothing.
  void tellWhenReady(std::shared_ptr<Mailbox> mailbox, std::uint64_t addressee) {
    mSource->tellWhenReady([mailbox = std::move(mailbox), addressee] {
      mailbox->post(addressee, [] { return py::none(); });
    });
  }

 private:
  bool refill() {
    mBatch = mSource->nextBatch();
    return !mBatch.empty();
  }

  py::object takeOne() {
    py::object item = py::cast(std::move(mBatch.front()));
    mBatch.pop_front();
    return item;
  }

  Forked<Source> mSource;
  std::deque<Item> mBatch;  // taken from the source together
};

using StreamReader = ReaderOf<Stream, Message>;
using BroadcastReader = ReaderOf<Subscription, Broadcast>;

void bindDevice(py::module_& module);

}  // namespace kel::python
