// SPDX-License-Identifier: MIT
#include "directory/KeptBroadcasts.h"

#include <memory>

namespace kel::fleet {

namespace {

using std::chrono::nanoseconds;
using std::chrono::system_clock;

constexpr std::int64_t kWaitMs = 2000;
/// However much a device broadcasts, no more is kept of it; the oldest goes first.
constexpr std::int64_t kMostBytes = 64 << 20;

struct DestroyContext {
  void operator()(jsCtx* context) const { jsCtx_Destroy(context); }
};
struct DestroySubscription {
  void operator()(natsSubscription* subscription) const { natsSubscription_Destroy(subscription); }
};
struct DestroyInfo {
  void operator()(jsStreamInfo* info) const { jsStreamInfo_Destroy(info); }
};
using ContextPtr = std::unique_ptr<jsCtx, DestroyContext>;

ContextPtr contextOf(Connection& connection, natsStatus& status) {
  jsOptions options;
  jsOptions_Init(&options);
  options.Wait = kWaitMs;
  jsCtx* context = nullptr;
  status = natsConnection_JetStream(&context, connection.get(), &options);
  return ContextPtr(context);
}

std::int64_t nanosecondsOf(system_clock::time_point time) {
  return std::chrono::duration_cast<nanoseconds>(time.time_since_epoch()).count();
}

}  // namespace

bool keepBroadcasts(Connection& connection, const DeviceName& name, std::chrono::minutes time, int replicas,
                    std::string& why) {
  const std::string stream = broadcastStreamOf(name);
  const std::string subject = Subjects(name).broadcast();
  const char* subjects[] = {subject.c_str()};
  jsStreamConfig config;
  jsStreamConfig_Init(&config);
  config.Name = stream.c_str();
  config.Subjects = subjects;
  config.SubjectsLen = 1;
  config.MaxAge = nanoseconds(time).count();
  config.MaxBytes = kMostBytes;
  config.Discard = js_DiscardOld;
  config.Replicas = replicas;
  natsStatus status = NATS_OK;
  const ContextPtr context = contextOf(connection, status);
  jsErrCode code = static_cast<jsErrCode>(0);
  if (status == NATS_OK) status = js_AddStream(nullptr, context.get(), &config, nullptr, &code);
  // It is there from an earlier start, perhaps with another time.
  if (code == JSStreamNameExistErr) status = js_UpdateStream(nullptr, context.get(), &config, nullptr, &code);
  if (status == NATS_OK) return true;
  why = natsStatus_GetText(status);
  return false;
}

bool readBroadcasts(Connection& connection, const DeviceName& name, system_clock::time_point since,
                    const std::function<void(natsMsg& message, system_clock::time_point time)>& take,
                    std::string& why) {
  const std::string stream = broadcastStreamOf(name);
  natsStatus status = NATS_OK;
  const ContextPtr context = contextOf(connection, status);
  const auto fail = [&](natsStatus reason) {
    why = reason == NATS_NOT_FOUND ? "its broadcasts are not kept" : natsStatus_GetText(reason);
    return false;
  };
  jsStreamInfo* rawInfo = nullptr;
  if (status == NATS_OK) status = js_GetStreamInfo(&rawInfo, context.get(), stream.c_str(), nullptr, nullptr);
  const std::unique_ptr<jsStreamInfo, DestroyInfo> info(rawInfo);
  if (status != NATS_OK) return fail(status);
  // Without one since then there is nothing to wait for.
  if (info->State.Msgs == 0 || info->State.LastTime < nanosecondsOf(since)) return true;

  jsSubOptions options;
  jsSubOptions_Init(&options);
  options.Stream = stream.c_str();
  options.Ordered = true;
  options.Config.DeliverPolicy = js_DeliverByStartTime;
  options.Config.OptStartTime = nanosecondsOf(since);
  natsSubscription* raw = nullptr;
  status = js_SubscribeSync(&raw, context.get(), Subjects(name).broadcast().c_str(), nullptr, &options, nullptr);
  const std::unique_ptr<natsSubscription, DestroySubscription> subscription(raw);
  for (std::uint64_t left = 1; status == NATS_OK && left != 0;) {
    natsMsg* rawMessage = nullptr;
    status = natsSubscription_NextMsg(&rawMessage, raw, kWaitMs);
    const MessagePtr message(rawMessage);
    jsMsgMetaData* meta = nullptr;
    if (status == NATS_OK) status = natsMsg_GetMetaData(&meta, rawMessage);
    if (status != NATS_OK) break;
    const auto time = std::chrono::duration_cast<system_clock::duration>(nanoseconds(meta->Timestamp));
    left = meta->NumPending;
    jsMsgMetaData_Destroy(meta);
    take(*message, system_clock::time_point(time));
  }
  return status == NATS_OK || fail(status);
}

}  // namespace kel::fleet
