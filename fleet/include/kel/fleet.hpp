// SPDX-License-Identifier: MIT
/**
 * @file
 * Devices on other hosts: clients over NATS. Everything a kel::Client does it does over this road as well.
 *
 *     kel::Client device = kel::fleet::connect("nats://server1,server2/lab/bench7").value();
 *     device.task("TASK_ID_APPLICATION_DEBUG_VAL", {7, 8, 9});
 *
 * What differs from the library in this process, each of it for the better or as told:
 *
 *  - A task is refused with Cause::busy where the device has as many calls as it takes, and with Cause::reserved while
 *    somebody else has reserved it.
 *  - post() ends when the device's side has taken the task or refused it.
 *  - The link counts as lost when the connection to the servers is lost, or that of the device's keld, when nobody
 *    offers the device any more, and when the device's own link is lost. Without a heartbeat of the client's own: the
 *    device's keld watches its link.
 *  - Messages that were lost on the way are counted as dropped, by the stream, the subscription and the statistics.
 */
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "kel/client.hpp"
#include "kel/fleet_access.hpp"

namespace kel::fleet {

/** Who a client is, beside its options. */
struct Identity {
  Access access;       ///< Servers of the URI come before those in here.
  std::string holder;  ///< The id of a reservation that the client's tasks are sent under; empty for none.
};

/** Where a device is. */
struct Address {
  std::vector<std::string> servers;  ///< None: the device is this host's, in this process.
  std::string site;
  std::string device;
};

/**
 * Reads "kel:", "nats://HOST[:PORT][,HOST...]/SITE/DEVICE", or a name for which the file that KELHANDLER_FLEET names,
 * or else ~/.config/kelhandler/fleet.json, has such a URI: {"devices": {"NAME": "nats://..."}}. A URI that holds a
 * password is refused. Errors: notConnected, with the reason as the subject.
 */
Result<Address> addressOf(const std::string& uri);

/**
 * What the object "access" of the same file says: {"access": {"user": "ann", "passwordFile": "/home/ann/nats.password"}}
 * and the other names of Access, servers excepted, which stand in URIs. Nothing if it is not there. kel/uri.hpp and
 * kelctl go by it. Errors: notConnected, with the reason as the subject.
 */
Result<Access> configuredAccess();

/** Connects to a device wherever it is; see Client::connect. */
Result<Client> connect(const std::string& uri, Options options = {}, Identity identity = {});
/** Begins to; see Client::begin. Errors: notConnected for what is no address. */
Result<Client> begin(const std::string& uri, Options options = {}, Identity identity = {});

}  // namespace kel::fleet
