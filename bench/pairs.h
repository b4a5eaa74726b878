// Which benchmark is measured against which.
#pragma once

namespace bench {

/// A benchmark of the library and the bare limit that it stands beside, by their registered names.
struct Pair {
  const char* subject;
  const char* limit;
};

inline constexpr Pair kPairs[] = {
    {"SynchronousTask/12", "FutexPingPong"},
    {"SynchronousTask/4096", "FutexPingPong"},
};

}  // namespace bench
