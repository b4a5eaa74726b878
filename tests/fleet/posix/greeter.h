/* SPDX-License-Identifier: MIT */
// A NATS server that greets whoever comes and says no more, as one that is frozen in that moment.
#pragma once

#include <chrono>
#include <future>
#include <string>
#include <thread>

namespace kel::test {

class Greeter {
 public:
  Greeter();
  /// Whoever came is held until the process ends, as a frozen server does.
  ~Greeter();
  Greeter(const Greeter&) = delete;
  Greeter& operator=(const Greeter&) = delete;

  /// "127.0.0.1:PORT"
  std::string address() const { return "127.0.0.1:" + std::to_string(mPort); }
  /// Returns when the first one has been greeted. False: nobody came for half a minute.
  bool waitForGuest() { return mGreeted.get_future().wait_for(std::chrono::seconds(30)) == std::future_status::ready; }

 private:
  int mListener = -1;
  int mPort = 0;
  std::promise<void> mGreeted;
  std::thread mThread;
};

}  // namespace kel::test
