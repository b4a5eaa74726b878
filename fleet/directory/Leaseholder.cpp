// SPDX-License-Identifier: MIT
#include "directory/Leaseholder.h"

#include <algorithm>
#include <optional>

namespace kel::fleet {

namespace {

/// Those in line take a lease that ran out one after the other, since the first of them may be gone as well.
constexpr std::chrono::milliseconds kTurn{1000};
/// The longest wait for a change before the clock is looked at.
constexpr std::chrono::milliseconds kLook{100};
/// A write that others were faster with is made again so often.
constexpr int kTries = 8;

}  // namespace

bool Leaseholder::mayTake(const View& view) const {
  if (view.lease.isHeldBy(mSelf.id)) return true;
  const std::size_t place = view.lease.placeOf(mSelf.id).value_or(view.lease.line.size());
  if (!view.lease.holder && place == 0) return true;
  const auto patience = (view.lease.holder ? view.lease.timeToLive : Milliseconds(0)) + place * kTurn;
  return Clock::now() - view.seen > patience;
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

Leaseholder::Outcome Leaseholder::get(Clock::time_point deadline) {
  std::optional<BucketWatch> watch = mBucket.watch(mKey);
  if (!watch) return Outcome::unreachable;
  View view;
  view.seen = Clock::now();
  bool isUpToDate = false;
  bool isAnswered = true;  // the last write was
  for (;;) {
    BucketEntry entry;
    switch (watch->next(kLook, entry)) {
      case BucketWatch::Next::entry:
        view = {Lease::read(entry.value), entry.revision, Clock::now()};
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
    if (isUpToDate && isAnswered) {
      if (mayTake(view)) {
        if (take(view).outcome == Swap::Outcome::done) return Outcome::held;
        isAnswered = false;  // the watch tells what there is instead
      } else if (Clock::now() < deadline && !view.lease.placeOf(mSelf.id)) {
        joinLine(view);
        isAnswered = false;
      }
    }
    if (Clock::now() >= deadline && isUpToDate && isAnswered) break;
    if (Clock::now() >= deadline + std::chrono::seconds(3)) return Outcome::unreachable;
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
