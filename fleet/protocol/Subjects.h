/* SPDX-License-Identifier: MIT */
// The names of everything that a device has on NATS. docs/fleet.md has the table.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kel::fleet {

/// Letters, digits, '-' and '_', 1 to 64 of them: fit for a token of a subject and for a key. Whatever becomes part of
/// a subject is checked by this first.
bool isName(std::string_view name);

struct DeviceName {
  std::string site;
  std::string device;
};

/// Subjects of one device: "kel.v1.SITE.DEVICE.WHAT".
class Subjects {
 public:
  explicit Subjects(const DeviceName& name) : mHead("kel.v1." + name.site + "." + name.device + ".") {}

  std::string hello() const { return mHead + "hello"; }
  std::string task() const { return mHead + "task"; }
  /// A task that wants no answer, but that it was sent.
  std::string post() const { return mHead + "post"; }
  std::string stream() const { return mHead + "stream"; }
  std::string flow() const { return mHead + "flow.*.*"; }
  /// Where a message of a stream is acknowledged, it and all before it.
  std::string flow(std::uint64_t stream, std::uint64_t number) const {
    return mHead + "flow." + std::to_string(stream) + "." + std::to_string(number);
  }
  std::string broadcast() const { return mHead + "broadcast"; }
  std::string state() const { return mHead + "state"; }
  std::string lease() const { return mHead + "lease"; }

 private:
  std::string mHead;
};

struct FlowMark {
  std::uint64_t stream;
  std::uint64_t number;
};
/// What flow() made. Nothing if it is not such a subject.
std::optional<FlowMark> flowMarkOf(std::string_view subject);

/// The bucket of a site, and the keys of a device in it.
inline std::string bucketOf(const std::string& site) { return "kel_v1_" + site; }
inline std::string presenceKey(const std::string& device) { return "presence." + device; }
inline std::string leaseKey(const std::string& device) { return "lease." + device; }
/// The stream with a device's broadcasts, where they are kept.
inline std::string broadcastStreamOf(const DeviceName& name) {
  return "kel_v1_" + name.site + "_broadcasts_" + name.device;
}

}  // namespace kel::fleet
