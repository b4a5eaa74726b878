// SPDX-License-Identifier: MIT
/**
 * @file
 * How a program reaches NATS servers, and who it says it is.
 */
#pragma once

#include <string>
#include <vector>

namespace kel::fleet {

/**
 * Secrets are named by the file that holds them, so that none is in an argument list, an environment or a log.
 * Either a user with a password, or an nkey, or credentials; or none of them.
 */
struct Access {
  std::vector<std::string> servers;  ///< "HOST" or "HOST:PORT", with 4222 as the port of one that names none.
  std::string user;
  std::string passwordFile;     ///< Its first line is the password.
  std::string nkeyFile;         ///< Holds the seed of an nkey.
  std::string credentialsFile;  ///< Holds a JWT and its seed.
  std::string caFile;           ///< Certificates that the server's must be signed by. Not empty: TLS.
  std::string certificateFile;  ///< The client's own, if the servers ask for one,
  std::string keyFile;          ///< and its key.
};

}  // namespace kel::fleet
