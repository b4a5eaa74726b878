/* SPDX-License-Identifier: MIT */
// The key-value bucket of a site in JetStream: presence and reservations.
#pragma once

#include <nats/nats.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "nats/Nats.h"

namespace kel::fleet {

struct BucketEntry {
  std::string key;
  std::string value;  ///< Empty: the key was deleted.
  std::uint64_t revision = 0;
  std::chrono::system_clock::time_point created;  ///< By the server's clock.
};

/// What became of a write that was to follow a certain revision.
struct Swap {
  enum class Outcome : std::uint8_t {
    done,
    overtaken,  ///< Somebody else has written meanwhile.
    unknown,    ///< No answer came: it was written, or was not.
  };
  Outcome outcome = Outcome::unknown;
  std::uint64_t revision = 0;  ///< With done: the new one.
};

class BucketWatch {
 public:
  BucketWatch(BucketWatch&&) noexcept = default;

  enum class Next : std::uint8_t { entry, upToDate, nothing, failed };
  /// The next change: at first what there is, then `upToDate` once, then each as it comes.
  Next next(std::chrono::milliseconds timeout, BucketEntry& entry);
  /// Has next() return, from another thread.
  void stop();

 private:
  friend class Bucket;
  struct Destroy {
    void operator()(kvWatcher* watcher) const { kvWatcher_Destroy(watcher); }
  };
  explicit BucketWatch(kvWatcher* watcher) : mWatcher(watcher) {}
  std::unique_ptr<kvWatcher, Destroy> mWatcher;
};

/// Any thread. The connection must outlive it.
class Bucket {
 public:
  /// Nothing, with the reason in `why`, if it cannot be had. With `replicas` it is made if there is none.
  static std::optional<Bucket> open(Connection& connection, const std::string& name, std::optional<int> replicas,
                                    std::string& why);

  std::optional<BucketEntry> get(const std::string& key) const;
  std::optional<BucketWatch> watch(const std::string& keys) const;
  /// Writes without waiting: whether it was stored is not known.
  void put(const std::string& key, const std::string& value) const;
  void remove(const std::string& key) const;
  /// Writes if the key's revision is still this one; 0 for a key that was never written.
  Swap swap(const std::string& key, const std::string& value, std::uint64_t revision) const;

 private:
  struct DestroyContext {
    void operator()(jsCtx* context) const { jsCtx_Destroy(context); }
  };
  struct DestroyStore {
    void operator()(kvStore* store) const { kvStore_Destroy(store); }
  };
  Bucket(Connection& connection, std::string name) : mConnection(&connection), mName(std::move(name)) {}
  std::string subjectOf(const std::string& key) const { return "$KV." + mName + "." + key; }

  Connection* mConnection;
  std::string mName;
  std::unique_ptr<jsCtx, DestroyContext> mContext;
  std::unique_ptr<kvStore, DestroyStore> mStore;
};

}  // namespace kel::fleet
