/* SPDX-License-Identifier: MIT */
// The console on the network: a socket of its own, a pool of threads, and a quick end.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Consoles.h"

namespace kel::console {

struct Listening {
  std::string address = "127.0.0.1";
  int port = 8421;                 ///< 0: any that is free
  std::vector<std::string> names;  ///< by which it is asked for, beside its address
  std::string token;               ///< empty: none
  std::string certificateFile;     ///< with the key: TLS
  std::string keyFile;
};

/// So many requests are served at once. Each page takes one for its events, and now and then some more.
inline constexpr std::size_t kThreads = 32;
inline constexpr int kMostEventStreams = 16;

class Server {
 public:
  /// Throws std::runtime_error if the address cannot be had, or the certificate not be read.
  Server(Consoles& consoles, const Listening& listening);
  ~Server();

  /// "http://127.0.0.1:8421/"
  const std::string& url() const { return mUrl; }

  /// Serves until stop().
  void run();
  /// Ends what is being served, the consoles too. Called by another thread, once run() was called or will be.
  void stop();

 private:
  struct Inside;

  Consoles& mConsoles;
  std::string mUrl;
  std::unique_ptr<Inside> mInside;
};

}  // namespace kel::console
