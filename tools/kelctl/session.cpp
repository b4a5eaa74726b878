// SPDX-License-Identifier: MIT
#include "session.h"

#include <cmath>

#include "interrupt.h"
#include "settings.h"

namespace kelctl {
namespace {

struct Meaning {
  int status;
  const char* hint;
};

Meaning meaningOf(kel::Cause cause) {
  switch (cause) {
    case kel::Cause::unknownTask:
      return {kNoTask, "`kelctl tasks` lists the tasks of the table in force."};
    case kel::Cause::wrongForm:
      return {kWrongUsage, "A VAL task takes three values; --force sends what there is all the same."};
    case kel::Cause::noAnswer:
      return {kNoAnswer,
              "The device may be busy, or not there. RxWaitTimeout in Brel.ini says how many\n"
              "milliseconds an answer is waited for at most: 10000, unless it says otherwise."};
    case kel::Cause::linkLost:
    case kel::Cause::closed:
      return {kNoLink, "See that the device is there."};
    case kel::Cause::notConnected:
      return {kNoLink, "See that the device is there, and that `kelctl tasks` can read the task table."};
    case kel::Cause::noNumber:
      return {kBusy, "Fewer tasks at once may pass."};
    case kel::Cause::refused:
    case kel::Cause::cancelled:
      break;
  }
  return {kRefused, "The device did not take it, or the link to the device is gone."};
}

}  // namespace

Fault faultOf(const kel::Error& error) {
  const Meaning meaning = meaningOf(error.cause);
  return {meaning.status, error.text() + ".\n" + meaning.hint, kel::word(error.cause)};
}

kel::Milliseconds toMilliseconds(double seconds) {
  return kel::Milliseconds(static_cast<kel::Milliseconds::rep>(std::ceil(seconds * 1e3)));
}

Bytes toBytes(const kel::Payload& payload) {
  const kel::Bytes bytes = payload.bytes();
  return {bytes.begin(), bytes.end()};
}

Session::Session(const LinkOptions& options)
    : mTimeout(options.timeout ? toMilliseconds(*options.timeout) : waitLimit()),
      mClient((catchInterrupt(), kel::Client::begin(clientOptions(options)))),
      mGuard([this] { keepGuard(); }) {
  if (mClient.waitFor(kel::State::connected, options.timeout ? mTimeout : kConnectTime)) return;
  const Fault why = fault({kel::Cause::notConnected, 0, ""});
  end();
  throw why;
}

Session::~Session() { end(); }

void Session::end() {
  {
    const std::lock_guard lock(mMutex);
    mEnds = true;
  }
  mWake.notify_all();
  mGuard.join();
}

kel::Payload Session::ask(const std::string& task, const Bytes& payload, const kel::CallOptions& options) {
  kel::Result<kel::Payload> answer = mClient.task(task, payload, options);
  if (!answer) throw fault(answer.error());
  return std::move(*answer);
}

Fault Session::fault(const kel::Error& error) const { return interrupted() ? interruption() : faultOf(error); }

kel::Options Session::clientOptions(const LinkOptions& options) {
  kel::Options client;
  client.table = options.table;
  client.timeout = mTimeout;
  client.maxInFlight = kMaxInFlight;
  return client;
}

void Session::keepGuard() {
  std::unique_lock lock(mMutex);
  while (!mWake.wait_for(lock, kLook, [this] { return mEnds; })) {
    if (!interrupted()) continue;
    lock.unlock();
    mClient.close();
    return;
  }
}

}  // namespace kelctl
