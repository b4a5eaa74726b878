// SPDX-License-Identifier: MIT
#include "fleet/posix/greeter.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string_view>
#include <utility>

namespace kel::test {

Greeter::Greeter() : mListener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(mListener, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  getsockname(mListener, reinterpret_cast<sockaddr*>(&address), &length);
  mPort = ntohs(address.sin_port);
  listen(mListener, SOMAXCONN);
  mThread = std::thread([this] {
    constexpr std::string_view kGreeting =
        "INFO {\"server_id\":\"greeter\",\"version\":\"2.9.10\",\"proto\":1,\"headers\":true,\"max_payload\":1048576}\r\n";
    bool isTold = false;
    for (int guest = 0; (guest = accept(mListener, nullptr, nullptr)) >= 0;) {
      const bool isGreeted = send(guest, kGreeting.data(), kGreeting.size(), MSG_NOSIGNAL) > 0;
      if (isGreeted && !std::exchange(isTold, true)) mGreeted.set_value();
    }
  });
}

Greeter::~Greeter() {
  shutdown(mListener, SHUT_RDWR);
  mThread.join();
  close(mListener);
}

}  // namespace kel::test
