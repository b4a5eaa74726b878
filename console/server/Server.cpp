// SPDX-License-Identifier: MIT
#include "Server.h"

#include <httplib.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "Routes.h"
#include "host.h"

namespace kel::console {
namespace {

/// Requests that need longer than this to arrive, or pages that take no events for so long, are given up.
constexpr std::chrono::seconds kPatience{5};
constexpr std::size_t kLargestRequest = std::size_t{8} << 20;

std::unique_ptr<httplib::Server> make(const Listening& listening) {
  if (listening.certificateFile.empty()) return std::make_unique<httplib::Server>();
  auto server = std::make_unique<httplib::SSLServer>(listening.certificateFile.c_str(), listening.keyFile.c_str());
  if (!server->is_valid()) throw std::runtime_error("the certificate and its key cannot be read, or do not match");
  return server;
}

std::vector<std::string> namesOf(const Listening& listening) {
  std::vector<std::string> names = listening.names;
  names.push_back(listening.address.find(':') == std::string::npos ? listening.address : '[' + listening.address + ']');
  if (listening.address == "127.0.0.1" || listening.address == "::1") names.emplace_back("localhost");
  return names;
}

}  // namespace

struct Server::Inside {
  std::unique_ptr<httplib::Server> server;
  std::unique_ptr<Guard> guard;
  std::atomic<bool> hasEnded{false};
};

Server::Server(Consoles& consoles, const Listening& listening)
    : mConsoles(consoles), mInside(std::make_unique<Inside>()) {
  mInside->server = make(listening);
  httplib::Server& server = *mInside->server;
  server.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
  server.set_socket_options([](socket_t socket) { claimPort(socket); });
  server.set_keep_alive_max_count(1000);
  server.set_keep_alive_timeout(1);  // a connection without a request keeps its thread, and the end waiting
  server.set_read_timeout(kPatience);
  server.set_write_timeout(kPatience);
  server.set_payload_max_length(kLargestRequest);
  server.set_tcp_nodelay(true);

  int port = listening.port;
  if (port == 0) {
    port = server.bind_to_any_port(listening.address);
  } else if (!server.bind_to_port(listening.address, port)) {
    port = -1;
  }
  if (port < 0) {
    throw std::runtime_error("port " + std::to_string(listening.port) + " of " + listening.address +
                             " is taken or not allowed; choose another one with --port");
  }
  const bool isSecure = !listening.certificateFile.empty();
  const std::vector<std::string> names = namesOf(listening);
  mUrl = (isSecure ? "https://" : "http://") + names.front() + ':' + std::to_string(port) + '/';
  mInside->guard = std::make_unique<Guard>(isSecure, names, port, listening.token);
  addRoutes(server, consoles, *mInside->guard);
}

Server::~Server() = default;

void Server::run() {
  mInside->server->listen_after_bind();
  mInside->hasEnded = true;
}

void Server::stop() {
  mConsoles.end();  // requests wait for calls and for events
  // A server that has not begun yet would not hear of it.
  while (!mInside->server->is_running() && !mInside->hasEnded) std::this_thread::yield();
  mInside->server->stop();
}

}  // namespace kel::console
