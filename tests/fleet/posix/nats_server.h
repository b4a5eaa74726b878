/* SPDX-License-Identifier: MIT */
// A NATS server of a test's own, on a free port of loopback, with a store that goes with it.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace kel::test {

/// A program that runs beside the test and ends with it.
class Program {
 public:
  /// Waits until a line of its standard error contains `ready`; empty: does not wait. Output of later is dropped.
  /// A program that is not ready within a minute is a failure.
  Program(const std::vector<std::string>& command, const std::string& ready);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  pid_t process() const { return mProcess; }
  void signal(int number) const;
  /// Waits for its end, for a minute at most, and returns its status; 128 + signal if it was killed.
  int wait();
  /// What it wrote until it was ready.
  const std::string& output() const { return mOutput; }

 private:
  pid_t mProcess = -1;
  int mPipe = -1;
  std::string mOutput;
};

/// A port of loopback that nobody listened at just now.
int freePort();

class NatsServer {
 public:
  /// `configuration` stands in front of what a test server needs: port, store.
  explicit NatsServer(const std::filesystem::path& folder, const std::string& configuration = {});

  /// "127.0.0.1:PORT"
  std::string address() const { return "127.0.0.1:" + std::to_string(mPort); }
  /// "nats://127.0.0.1:PORT/SITE/DEVICE"
  std::string uri(const std::string& device = "bench") const { return "nats://" + address() + "/lab/" + device; }

  void freeze() const;
  void thaw() const;
  void kill();
  /// After kill(): with the same port and store.
  void restart();

 private:
  void start();

  std::filesystem::path mFile;
  std::filesystem::path mStore;
  std::string mConfiguration;
  int mPort = -1;
  std::unique_ptr<Program> mProgram;
};

}  // namespace kel::test
