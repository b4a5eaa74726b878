/* SPDX-License-Identifier: MIT */
// The record of a reservation: who has a device, and who waits for it. It lies under one key of the site's bucket, and
// each change of it is a compare-and-set on its revision: who has the acknowledgement of a write has the device. To
// have read a record means nothing; it may be old.
//
// A holder renews its lease well before its time to live is over. Nobody's clock is compared with anybody else's: a
// reader counts the time from when it saw a revision. A lease that was not renewed for so long may be taken over.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kel::fleet {

struct Party {
  std::string id;          ///< Random; stands in requests as Kel-Holder.
  std::string name;        ///< For people: who it is, and where.
  std::int64_t since = 0;  ///< Milliseconds since 1970, by the party's own clock: to be shown, not to be compared.
};

struct Lease {
  std::optional<Party> holder;  ///< None: the device is free.
  std::chrono::milliseconds timeToLive{0};
  std::vector<Party> line;  ///< Those who wait, the first in front.

  std::string write() const;
  /// What is no record counts as a free device without a line.
  static Lease read(std::string_view text);

  bool isHeldBy(std::string_view id) const { return holder && holder->id == id; }
  std::optional<std::size_t> placeOf(std::string_view id) const;
  void leaveLine(std::string_view id);
};

}  // namespace kel::fleet
