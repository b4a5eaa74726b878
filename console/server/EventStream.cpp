// SPDX-License-Identifier: MIT
#include "EventStream.h"

#include <chrono>

namespace kel::console {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kMostEntries = 2000;
constexpr milliseconds kQuiet{5000};
/// So long the entries of one event are collected.
constexpr milliseconds kCollect{40};

std::string event(const char* name, const std::string& data) {
  return std::string("event: ") + name + "\ndata: " + data + "\n\n";
}

}  // namespace

std::string EventStream::next() {
  if (!mBegun) {
    mBegun = true;
    mPosition = mJournal.position();
    // What happens while the snapshot is taken is in both. Entries tell whole things, so that does no harm.
    return event("snapshot", textOf(mSnapshot()));
  }
  if (mJournal.after(mPosition, 0, kQuiet).isClosed) return {};
  // The rest of a burst. Nothing comes after this position, which is why it waits for its time, or the journal's end.
  Journal::Batch batch = mJournal.after(UINT64_MAX, 0, kCollect);
  batch = mJournal.after(mPosition, kMostEntries, milliseconds(0));
  if (batch.isClosed) return {};
  if (batch.missed != 0) {
    mBegun = false;
    return event("missed", textOf({{"count", batch.missed}}));
  }
  mPosition = batch.position;
  if (batch.entries.empty()) return ": quiet\n\n";
  std::string data = "[";
  for (const auto& entry : batch.entries) {
    if (data.size() > 1) data += ',';
    data += *entry;
  }
  return event("entries", data + ']');
}

}  // namespace kel::console
