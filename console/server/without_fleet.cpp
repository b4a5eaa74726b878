// SPDX-License-Identifier: MIT
// In place of the road to devices on other hosts, where what it takes was not there at build time: this host's device
// is reached as ever, and the others are refused with what is missing.
#include <cstdlib>

#include "kel/fleet.hpp"
#include "kel/fleet_site.hpp"

namespace kel::fleet {
namespace {

Error missing() {
  return {
      Cause::notConnected, 0,
      "this console was built without the road to other hosts: it takes Debian's libnats-dev and prometheus-cpp-dev"};
}

}  // namespace

Result<Address> addressOf(const std::string& uri) {
  if (uri == "kel:") return Address();
  return missing();
}

Result<Client> begin(const std::string& uri, Options options, Identity /*identity*/) {
  if (const auto address = addressOf(uri); !address) return address.error();
  return Client::begin(std::move(options));
}

// There is neither a site nor a reservation, and so nobody who could ask them for anything.
struct Reservation::Inside {};
Reservation::Reservation(Reservation&&) noexcept = default;
Reservation& Reservation::operator=(Reservation&&) noexcept = default;
Reservation::~Reservation() = default;
const std::string& Reservation::id() const { std::abort(); }
bool Reservation::isHeld() const { return false; }

struct Site::Inside {};
Result<Site> Site::open(const std::string& /*uri*/, Access /*access*/) { return missing(); }
Site::Site(Site&&) noexcept = default;
Site& Site::operator=(Site&&) noexcept = default;
Site::~Site() = default;
Result<std::vector<Device>> Site::devices() const { return missing(); }
Result<Reservation> Site::reserve(const ReserveOptions& /*options*/) const { return missing(); }
std::string Site::uriOf(const std::string& device) const { return device; }

}  // namespace kel::fleet
