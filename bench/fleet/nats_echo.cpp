// SPDX-License-Identifier: MIT
// What tasks and streams through NATS are measured against: answers each request with its own bytes, and a request on
// SUBJECT.stream with as many messages of 12 bytes as it says.
//   nats_echo SERVER SUBJECT
#include <csignal>
#include <cstdio>
#include <string>

#include "nats/Nats.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  sigset_t stops;
  sigemptyset(&stops);
  sigaddset(&stops, SIGINT);
  sigaddset(&stops, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stops, nullptr);

  kel::fleet::Access access;
  access.servers = {argv[1]};
  std::string why;
  const auto nats = kel::fleet::Connection::open(access, {}, why);
  if (!nats) {
    std::fprintf(stderr, "nats_echo: %s\n", why.c_str());
    return 1;
  }
  const auto answer = nats->subscribe(argv[2], [&](natsMsg* request) {
    nats->publish(*kel::fleet::makeMessage(kel::fleet::replyTo(*request), {}, kel::fleet::payloadOf(*request)));
  });
  const auto stream = nats->subscribe(argv[2] + std::string(".stream"), [&](natsMsg* request) {
    const auto message = kel::fleet::makeMessage(kel::fleet::replyTo(*request), {}, std::string(12, 'x'));
    for (int left = std::stoi(std::string(kel::fleet::payloadOf(*request))); left > 0; --left) nats->publish(*message);
  });
  nats->flush(std::chrono::seconds(2));
  std::fprintf(stderr, "the echo is there\n");
  int signal = 0;
  sigwait(&stops, &signal);
  return 0;
}
