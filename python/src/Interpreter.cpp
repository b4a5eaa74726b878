// SPDX-License-Identifier: MIT
#include "Interpreter.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>
#include <vector>

namespace kel::python {
namespace {

/// The exceptions by the numbers of their causes, from 1. Never destroyed.
std::vector<py::handle>& errors() {
  static auto& errors = *new std::vector<py::handle>;
  return errors;
}

// Guarded by the interpreter's lock.
bool gIsEnding = false;
bool gHasClientsOfParent = false;
std::vector<std::weak_ptr<Client>>& clients() {
  static auto& clients = *new std::vector<std::weak_ptr<Client>>;
  return clients;
}

/// Clients whose owners have dropped them while the interpreter ends.
std::vector<std::shared_ptr<Client>>& leftClients() {
  static auto& clients = *new std::vector<std::shared_ptr<Client>>;
  return clients;
}

std::atomic<unsigned> gForks{0};

// Threads of Python that have given the lock up, and jobs.
std::atomic<int> gBusy{0};

void checkNotEnding() {
  if (gIsEnding) raise(Error{Cause::closed, 0, "the interpreter ends"});
}

void countDown() {
  gBusy.fetch_sub(1);
  gBusy.notify_all();
}

}  // namespace

void bindErrors() {
  for (const py::handle kind : py::module_::import("kelhandler._errors").attr("CLASSES")) {
    errors().push_back(kind.inc_ref());
  }
}

py::object exceptionOf(const Error& error) {
  const py::handle kind = errors().at(static_cast<std::size_t>(error.cause) - 1);
  const py::str message(error.text());
  auto exception = py::reinterpret_steal<py::object>(PyObject_CallOneArg(kind.ptr(), message.ptr()));
  if (!exception) throw py::error_already_set();
  exception.attr("subject") = error.subject;
  exception.attr("code") = error.code;
  return exception;
}

void raise(const Error& error) {
  const py::object exception = exceptionOf(error);
  PyErr_SetObject(py::type::of(exception).ptr(), exception.ptr());
  throw py::error_already_set();
}

bool isEnding() { return gIsEnding; }

Waiting::Waiting() {
  checkNotEnding();
  gBusy.fetch_add(1);
  mState = PyEval_SaveThread();
}

Waiting::~Waiting() {
  PyEval_RestoreThread(mState);
  countDown();
}

void runJob(std::function<void()> job) {
  checkNotEnding();
  gBusy.fetch_add(1);
  try {
    std::thread([job = std::move(job)]() mutable {
      std::exchange(job, {})();
      countDown();
    }).detach();
  } catch (const std::system_error&) {
    countDown();
    throw;
  }
}

unsigned forks() { return gForks.load(); }

void checkMayConnect() {
  checkNotEnding();
  if (gHasClientsOfParent) {
    throw std::runtime_error(
        "this process was forked from one that had connected; only a process that is started anew can connect (with "
        "multiprocessing: the start method 'spawn')");
  }
}

void registerClient(std::weak_ptr<Client> client) {
  auto& all = clients();
  all.erase(std::remove_if(all.begin(), all.end(), [](const auto& one) { return one.expired(); }), all.end());
  all.push_back(std::move(client));
}

void leaveToEnd(std::shared_ptr<Client> client) { leftClients().push_back(std::move(client)); }

void end() {
  gIsEnding = true;
  // A thread that was just making a client registers it while it is waited for.
  for (;;) {
    std::vector<std::shared_ptr<Client>> open = std::exchange(leftClients(), {});
    for (const auto& client : std::exchange(clients(), {})) {
      if (auto one = client.lock()) open.push_back(std::move(one));
    }
    if (open.empty() && gBusy.load() == 0) return;
    const py::gil_scoped_release release;
    for (const auto& client : open) client->close();
    open.clear();
    for (int busy = gBusy.load(); busy != 0; busy = gBusy.load()) gBusy.wait(busy);
  }
}

void forked() {
  ++gForks;
  gBusy.store(0);
  gHasClientsOfParent = gHasClientsOfParent || !clients().empty();
  clients().clear();
}

}  // namespace kel::python
