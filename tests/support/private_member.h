/* SPDX-License-Identifier: MIT */
// A look at what a class keeps to itself, where nothing that it offers shows it.
#pragma once

namespace kel::test {

/// Opens one private member: a tag declares what it stands for, and an explicit instantiation, which may name private
/// members, ties the two. Tags stand in this namespace.
///
///     struct TimeoutOf { friend auto memberOf(TimeoutOf); };
///     template struct OpenMember<TimeoutOf, &BrelEngine::mRxWaitTimeout>;
///     ... engine.*memberOf(TimeoutOf{}) ...
template <class Tag, auto kMember>
struct OpenMember {
  friend auto memberOf(Tag) { return kMember; }
};

}  // namespace kel::test
