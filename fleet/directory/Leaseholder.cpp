// SPDX-License-Identifier: MIT
#include "directory/Leaseholder.h"

#include <algorithm>
#include <optional>

namespace kel::fleet {

namespace {

/// Those in line take a lease that ran out one after the other, since the first of them may be gone as well.
constexpr std::chrono::milliseconds kTurn{1000};
/// A write whose outcome the watch does not tell within this time is made again.
constexpr std::chrono::milliseconds kEcho{500};
/// The shortest wait that a watch can be asked for.
constexpr std::chrono::steady_clock::duration kAtOnce = std::chrono::milliseconds(1);
/// What is under way at the deadline has so much longer to be told.
constexpr std::chrono::seconds kGrace{3};
/// A write that others were faster with is made again so often.
constexpr int kTries = 8;

}  // namespace

Leaseholder::Clock::time_point Leaseholder::mineFrom(const View& view) const {
  if (view.lease.isHeldBy(mSelf.id)) return Clock::time_point{};
  const std::size_t place = view.lease.placeOf(mSelf.id).value_or(view.lease.line.size());
  if (!view.lease.holder && place == 0) return Clock::time_point{};
  return view.seen + (view.lease.holder ? view.lease.timeToLive : Milliseconds(0)) + place * kTurn;
}

Swap Leaseholder::take(View view) {
  view.lease.leaveLine(mSelf.id);
  view.lease.holder = mSelf;
  view.lease.timeToLive = mTimeToLive;
  const Swap swap = mBucket.swap(mKey, view.lease.write(), view.revision);
  if (swap.outcome == Swap::Outcome::done) mRevision = swap.revision;
  return swap;
}

Swap Leaseholder::joinLine(View view) {
  view.lease.line.push_back(mSelf);
  return mBucket.swap(mKey, view.lease.write(), view.revision);
}

Leaseholder::Outcome Leaseholder::get(Clock::time_point deadline, const Sighting& sighting) {
  std::optional<BucketWatch> watch = mBucket.watch(mKey);
  if (!watch) return Outcome::unreachable;
  View view;
  view.seen = Clock::now();
  bool isUpToDate = false;
  bool isAnswered = true;  // the last write was
  for (;;) {
    // Nothing is due before one of these, but what the watch tells.
    Clock::time_point due = deadline + kGrace;
    if (isUpToDate) due = isAnswered ? std::min(deadline, mineFrom(view)) : Clock::now() + kEcho;
    BucketEntry entry;
    switch (watch->next(std::chrono::ceil<Milliseconds>(std::max(due - Clock::now(), kAtOnce)), entry)) {
      case BucketWatch::Next::entry:
        view = {Lease::read(entry.value), entry.revision, Clock::now()};
        if (entry.revision == sighting.revision) view.seen = sighting.when;
        isAnswered = true;
        break;
      case BucketWatch::Next::upToDate:
        isUpToDate = true;
        break;
      case BucketWatch::Next::failed:
        return Outcome::unreachable;
      case BucketWatch::Next::nothing:
        isAnswered = true;
        break;
    }
    const Clock::time_point now = Clock::now();
    if (isUpToDate && isAnswered) {
      if (mineFrom(view) <= now) {
        if (take(view).outcome == Swap::Outcome::done) return Outcome::held;
        isAnswered = false;  // the watch tells what there is instead
      } else if (now < deadline && !view.lease.placeOf(mSelf.id)) {
        joinLine(view);
        isAnswered = false;
      } else if (now >= deadline) {
        break;
      }
    }
    if (now >= deadline + kGrace) return Outcome::unreachable;
  }
  mHolder = view.lease.holder ? view.lease.holder->name : "";
  if (view.lease.placeOf(mSelf.id)) leaveLine();
  return Outcome::taken;
}

bool Leaseholder::look(View& view) const {
  const std::optional<BucketEntry> entry = mBucket.get(mKey);
  if (!entry) return false;
  view = {Lease::read(entry->value), entry->revision, Clock::now()};
  return true;
}

Leaseholder::Outcome Leaseholder::renew() {
  for (int attempt = 0; attempt < kTries; ++attempt) {
    View view;
    if (!look(view)) return Outcome::unreachable;
    // A read may be older than our own write, and then says nothing.
    if (view.revision >= mRevision && !view.lease.isHeldBy(mSelf.id)) return Outcome::taken;
    if (view.revision < mRevision) continue;
    const Swap swap = take(view);
    if (swap.outcome == Swap::Outcome::done) return Outcome::held;
    if (swap.outcome == Swap::Outcome::unknown) return Outcome::unreachable;
  }
  return Outcome::unreachable;
}

bool Leaseholder::giveBack() {
  for (int attempt = 0; attempt < kTries; ++attempt) {
    View view;
    if (!look(view)) return false;
    if (!view.lease.isHeldBy(mSelf.id)) return view.revision >= mRevision;
    if (view.lease.line.empty()) {
      view.lease.holder.reset();
    } else {
      view.lease.holder = view.lease.line.front();
      view.lease.line.erase(view.lease.line.begin());
    }
    if (mBucket.swap(mKey, view.lease.write(), view.revision).outcome == Swap::Outcome::done) return true;
  }
  return false;
}

void Leaseholder::leaveLine() {
  for (int attempt = 0; attempt < kTries; ++attempt) {
    View view;
    if (!look(view) || !view.lease.placeOf(mSelf.id)) return;
    view.lease.leaveLine(mSelf.id);
    if (mBucket.swap(mKey, view.lease.write(), view.revision).outcome == Swap::Outcome::done) return;
  }
}

}  // namespace kel::fleet
