/* SPDX-License-Identifier: MIT */
// What one page gets as server-sent events.
//
//   event: snapshot   all that there is at the moment: at the start, and behind each gap
//   event: entries    what has happened since, as an array of the journal's entries
//   event: missed     {"count": N}: the page reads too slowly, and so many entries were dropped
//
// Entries that come close together go out together, so that a stream of a million messages is no million events.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "Journal.h"
#include "Json.h"

namespace kel::console {

/// Of one page, and so of one thread.
class EventStream {
 public:
  EventStream(const Journal& journal, std::function<Json()> snapshot)
      : mJournal(journal), mSnapshot(std::move(snapshot)) {}

  /// The text to send next. Waits for something to tell, and gives a comment if there is nothing for a while, by which
  /// a page that has gone is noticed. Empty at the end.
  std::string next();

 private:
  const Journal& mJournal;
  const std::function<Json()> mSnapshot;
  std::uint64_t mPosition = 0;
  bool mBegun = false;
};

}  // namespace kel::console
