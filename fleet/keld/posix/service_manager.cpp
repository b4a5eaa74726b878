// SPDX-License-Identifier: MIT
#include "keld/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace kel::fleet {

void tellServiceManager(const char* news) {
  const char* const name = std::getenv("NOTIFY_SOCKET");
  sockaddr_un address{};
  if (name == nullptr || *name == 0 || std::strlen(name) >= sizeof address.sun_path) return;
  const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (socket < 0) return;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, name, std::strlen(name));
  if (*name == '@') address.sun_path[0] = 0;  // a name that is not in the file system
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(name));
  sendto(socket, news, std::strlen(news), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address), length);
  close(socket);
}

}  // namespace kel::fleet
