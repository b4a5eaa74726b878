// SPDX-License-Identifier: MIT
#include "fleet/posix/nats_server.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <regex>
#include <thread>

namespace kel::test {

namespace {

using std::chrono::steady_clock;

/// Programs under a sanitizer, on a machine with much to do, have become ready and have ended within this.
constexpr std::chrono::seconds kLongest{60};

/// Waits until the file can be read, or until then.
bool awaitFile(int file, steady_clock::time_point until) {
  pollfd one{file, POLLIN, 0};
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - steady_clock::now()).count();
    const int count = poll(&one, 1, static_cast<int>(std::max<std::int64_t>(left, 0)));
    if (count > 0) return true;
    if (count == 0 || errno != EINTR) return false;
  }
}

}  // namespace

int freePort() {
  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
  close(socket);
  return ntohs(address.sin_port);
}

Program::Program(const std::vector<std::string>& command, const std::string& ready) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  mPipe = ends[0];
  std::vector<char*> arguments;
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  mProcess = fork();
  if (mProcess == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(ends[1], STDERR_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  close(ends[1]);
  char part[1024];
  const steady_clock::time_point until = steady_clock::now() + kLongest;
  while (!ready.empty() && mOutput.find(ready) == std::string::npos) {
    if (!awaitFile(mPipe, until)) {
      ADD_FAILURE() << command[0] << " has not become ready: " << mOutput;
      break;
    }
    const ssize_t length = read(mPipe, part, sizeof part);
    if (length <= 0) break;
    mOutput.append(part, static_cast<std::size_t>(length));
  }
  // A full pipe must not hold it up.
  std::thread([pipe = dup(mPipe)] {
    char rest[4096];
    while (read(pipe, rest, sizeof rest) > 0) {
    }
    close(pipe);
  }).detach();
}

Program::~Program() {
  if (mProcess > 0) {
    ::kill(mProcess, SIGKILL);
    wait();
  }
  close(mPipe);
}

void Program::signal(int number) const { ::kill(mProcess, number); }

int Program::wait() {
  const int process = static_cast<int>(syscall(SYS_pidfd_open, mProcess, 0));
  if (!awaitFile(process, steady_clock::now() + kLongest)) {
    ADD_FAILURE() << "a program has not ended";
    ::kill(mProcess, SIGKILL);
  }
  close(process);
  int status = 0;
  waitpid(mProcess, &status, 0);
  mProcess = -1;
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

NatsServer::NatsServer(const std::filesystem::path& folder, const std::string& configuration)
    : mFile(folder / "nats.conf"), mStore(folder / "nats"), mConfiguration(configuration) {
  start();
}

void NatsServer::start() {
  std::ofstream(mFile) << mConfiguration << "\nhost: 127.0.0.1\nport: " << mPort << "\njetstream { store_dir: \""
                       << mStore.string() << "\" }\n";
  mProgram =
      std::make_unique<Program>(std::vector<std::string>{"nats-server", "-c", mFile.string()}, "Server is ready");
  std::smatch match;
  if (std::regex_search(mProgram->output(), match, std::regex("client connections on 127.0.0.1:(\\d+)"))) {
    mPort = std::stoi(match[1]);
  } else {
    ADD_FAILURE() << "nats-server did not start: " << mProgram->output();
  }
}

void NatsServer::freeze() const { mProgram->signal(SIGSTOP); }
void NatsServer::thaw() const { mProgram->signal(SIGCONT); }

void NatsServer::kill() {
  mProgram->signal(SIGKILL);
  mProgram->wait();
  mProgram.reset();
}

void NatsServer::restart() { start(); }

}  // namespace kel::test
