// SPDX-License-Identifier: MIT
#include "session.h"

#include <cmath>
#include <iostream>

#include "files.h"
#include "kel/uri.hpp"
#include "platform/libraries.h"
#include "settings.h"
#include "task_names.h"

namespace kelctl {
namespace {

constexpr kel::Milliseconds kConnectTime{10000};
constexpr kel::Milliseconds kLossTime{1000};
constexpr char kNoWatch[] = "none";

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
              "The device may be busy, or not there. --timeout says how many seconds an answer\n"
              "is waited for, and RxWaitTimeout in Brel.ini how many milliseconds at most:\n"
              "10000, unless it says otherwise."};
    case kel::Cause::linkLost:
    case kel::Cause::closed:
      return {kNoLink, "See that the device is there."};
    case kel::Cause::notConnected:
      return {kNoLink,
              "See that the device is there. For this host's own `kelctl doctor` tells what else may\n"
              "be wrong, for one behind NATS `keld check` on its host."};
    case kel::Cause::noNumber:
      return {kBusy, "Fewer tasks at once may pass."};
    case kel::Cause::busy:
    case kel::Cause::reserved:
      return {kBusy, "Somebody else is using it."};
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

kel::Client beginClient(const WhichDevice& device, kel::Options options) {
  kel::Result<kel::Client> client = kel::begin(device.uri, std::move(options), device.reservation);
  if (!client) throw faultOf(client.error());
  return std::move(*client);
}

kel::Milliseconds toMilliseconds(double seconds) {
  return kel::Milliseconds(static_cast<kel::Milliseconds::rep>(std::ceil(seconds * 1e3)));
}

Bytes toBytes(const kel::Payload& payload) {
  const kel::Bytes bytes = payload.bytes();
  return {bytes.begin(), bytes.end()};
}

Device::Device(const LinkOptions& options, bool checksForm)
    : mReconnects(options.reconnect),
      mWatch(watchOf(options)),
      mClient((catchInterrupt(), beginClient(options.device, clientOptions(options, checksForm)))),
      mIsElsewhere(options.device.isElsewhere()),
      mGuard([this] { keepGuard(); }) {
  bool isConnected = mClient.waitFor(kel::State::connected, kConnectTime);
  while (!isConnected && mReconnects && mClient.state() != kel::State::closed && !interrupted()) {
    isConnected = mClient.waitFor(kel::State::connected, kConnectTime);
  }
  if (isConnected) return;
  const Fault why = fault({kel::Cause::notConnected, 0, mClient.state() == kel::State::closed ? mClient.reason() : ""});
  end();
  throw why;
}

Device::~Device() { end(); }

void Device::end() {
  {
    const std::lock_guard lock(mMutex);
    mEnds = true;
  }
  mWake.notify_all();
  mGuard.join();
}

void Device::announce(const std::string& activity) const {
  std::string text = "kelctl: " + activity + "; ";
  if (mIsElsewhere && mWatch.task.empty()) {
    text += "its keld tells when the link is lost";
  } else if (mWatch.task.empty()) {
    text += "nothing is sent to watch the link, so its loss goes unnoticed (--watch TASK)";
  } else {
    text += mWatch.task + " is sent each " + timeText(mWatch.interval) + " of silence to watch the link";
  }
  std::cerr << text + '\n';
}

kel::Payload Device::ask(const std::string& task, const Bytes& payload) {
  kel::Result<kel::Payload> answer = mClient.task(task, payload);
  if (!answer) throw fault(answer.error());
  return std::move(*answer);
}

Fault Device::fault(const kel::Error& error) {
  if (interrupted()) return interruption();
  if (error.cause == kel::Cause::linkLost && !mReconnects) {
    // The client tells of the loss on a thread of its own, which may come behind the end of the call.
    std::unique_lock lock(mMutex);
    mWake.wait_for(lock, kLossTime, [this] { return mLoss.has_value(); });
  }
  const bool isLinks = error.cause == kel::Cause::linkLost || error.cause == kel::Cause::closed;
  const std::optional<Fault> lost = loss();
  return isLinks && lost ? *lost : faultOf(error);
}

std::optional<Fault> Device::loss() const {
  const std::lock_guard lock(mMutex);
  if (!mLoss) return std::nullopt;
  return Fault(kNoLink,
               "the link to the device is lost: " + *mLoss +
                   ".\nSee that the device is there. --reconnect goes on when it is back.",
               kel::word(kel::Cause::linkLost));
}

Device::Watch Device::watchOf(const LinkOptions& options) {
  const TaskNames names(options);
  Watch watch;
  if (options.watch.empty()) {
    if (options.device.isElsewhere()) return watch;
    const std::string task = kel::tasks::TASK_ID_VERSIONS_GET_UIDS.name;
    (void)kel::Library::version();  // its first call loads the library
    if (isStandIn() && names.has(task)) watch.task = task;
  } else if (options.watch != kNoWatch) {
    const std::size_t colon = options.watch.rfind(':');
    watch.task = names.find(options.watch.substr(0, colon));
    if (colon != std::string::npos) watch.interval = toMilliseconds(std::stod(options.watch.substr(colon + 1)));
  }
  return watch;
}

kel::Options Device::clientOptions(const LinkOptions& options, bool checksForm) {
  kel::Options client;
  const bool hasOwnSettings = !options.device.isElsewhere();
  if (hasOwnSettings || !options.table.empty()) client.table = libraryFile(tableOf(options.table));
  if (hasOwnSettings) client.timeout = waitLimit();
  if (options.timeout) client.timeout = toMilliseconds(*options.timeout);
  client.maxInFlight = kMaxInFlight;
  client.checksForm = checksForm;
  client.supervision.heartbeat = mWatch.task;
  client.supervision.interval = mWatch.interval;
  client.supervision.reconnect = mReconnects;
  client.onState = [this](const kel::StateChange& change) { tell(change); };
  return client;
}

void Device::tell(const kel::StateChange& change) {
  std::string text;
  {
    const std::lock_guard lock(mMutex);
    if (change.state == kel::State::lost && !mReconnects) mLoss = change.reason;
    if (change.state == kel::State::lost && mReconnects) {
      text = (mIsUp ? "the link to the device is lost: " : "") + change.reason;
      if (change.pause.count() != 0) text += "; trying again in " + timeText(change.pause);
      mIsUp = false;
      mWasLost = true;
    } else if (change.state == kel::State::connected) {
      if (mWasLost) text = "connected";
      mIsUp = true;
      mWasLost = false;
    } else if (change.state == kel::State::connecting && change.attempt == 0) {
      text = change.reason;
    }
  }
  mWake.notify_all();
  if (!text.empty()) std::cerr << "kelctl: " + text + '\n';
}

void Device::keepGuard() {
  std::unique_lock lock(mMutex);
  while (!mWake.wait_for(lock, kLook, [this] { return mEnds || mLoss; }) && !interrupted()) {
  }
  if (mEnds) return;
  lock.unlock();
  mClient.close();
}

namespace {

/// What KeptDevice keeps.
struct Kept {
  LinkOptions options;
  bool checksForm = true;
  std::shared_ptr<Device> device;  ///< null at first
};

bool gKeeps = false;
Kept gKept;

std::shared_ptr<Device> deviceFor(const LinkOptions& options, bool checksForm) {
  if (!gKeeps) return std::make_shared<Device>(options, checksForm);
  const bool serves =
      gKept.device && gKept.device->isUsable() && gKept.options == options && gKept.checksForm == checksForm;
  if (!serves) {
    gKept = {};  // ahead of the next, so that a program has one connection at a time
    gKept = {options, checksForm, std::make_shared<Device>(options, checksForm)};
  }
  return gKept.device;
}

}  // namespace

Session::Session(const LinkOptions& options, bool checksForm) : mDevice(deviceFor(options, checksForm)) {}

KeptDevice::KeptDevice() { gKeeps = true; }

KeptDevice::~KeptDevice() {
  gKeeps = false;
  gKept = {};
}

}  // namespace kelctl
