// SPDX-License-Identifier: MIT
#include "directory/Bucket.h"

#include <utility>

namespace kel::fleet {

namespace {

constexpr std::int64_t kWaitMs = 2000;

struct DestroyEntry {
  void operator()(kvEntry* entry) const { kvEntry_Destroy(entry); }
};

BucketEntry read(kvEntry* entry) {
  BucketEntry read;
  read.key = kvEntry_Key(entry);
  if (kvEntry_Operation(entry) == kvOp_Put) {
    read.value.assign(static_cast<const char*>(kvEntry_Value(entry)),
                      static_cast<std::size_t>(kvEntry_ValueLen(entry)));
  }
  read.revision = kvEntry_Revision(entry);
  read.created = std::chrono::system_clock::time_point(std::chrono::duration_cast<std::chrono::system_clock::duration>(
      std::chrono::nanoseconds(kvEntry_Created(entry))));
  return read;
}

}  // namespace

BucketWatch::Next BucketWatch::next(std::chrono::milliseconds timeout, BucketEntry& entry) {
  kvEntry* raw = nullptr;
  const natsStatus status = kvWatcher_Next(&raw, mWatcher.get(), timeout.count());
  const std::unique_ptr<kvEntry, DestroyEntry> owned(raw);
  if (status == NATS_TIMEOUT) return Next::nothing;
  if (status != NATS_OK) return Next::failed;
  if (raw == nullptr) return Next::upToDate;
  entry = read(raw);
  return Next::entry;
}

void BucketWatch::stop() { kvWatcher_Stop(mWatcher.get()); }

std::optional<Bucket> Bucket::open(Connection& connection, const std::string& name, std::optional<int> replicas,
                                   std::string& why) {
  Bucket bucket(connection, name);
  jsOptions options;
  jsOptions_Init(&options);
  options.Wait = kWaitMs;
  jsCtx* context = nullptr;
  natsStatus status = natsConnection_JetStream(&context, connection.get(), &options);
  bucket.mContext.reset(context);
  kvStore* store = nullptr;
  if (status == NATS_OK) status = js_KeyValue(&store, context, name.c_str());
  if (status == NATS_NOT_FOUND && replicas) {
    kvConfig config;
    kvConfig_Init(&config);
    config.Bucket = name.c_str();
    config.Replicas = *replicas;
    status = js_CreateKeyValue(&store, context, &config);
  }
  bucket.mStore.reset(store);
  if (status == NATS_OK) return bucket;
  why = natsStatus_GetText(status);
  return std::nullopt;
}

std::optional<BucketEntry> Bucket::get(const std::string& key) const {
  kvEntry* raw = nullptr;
  if (kvStore_Get(&raw, mStore.get(), key.c_str()) != NATS_OK) return std::nullopt;
  const std::unique_ptr<kvEntry, DestroyEntry> entry(raw);
  return read(raw);
}

std::optional<BucketWatch> Bucket::watch(const std::string& keys) const {
  kvWatcher* watcher = nullptr;
  if (kvStore_Watch(&watcher, mStore.get(), keys.c_str(), nullptr) != NATS_OK) return std::nullopt;
  return BucketWatch(watcher);
}

void Bucket::put(const std::string& key, const std::string& value) const {
  mConnection->publish(*makeMessage(subjectOf(key), {}, value));
}

void Bucket::remove(const std::string& key) const { kvStore_Delete(mStore.get(), key.c_str()); }

Swap Bucket::swap(const std::string& key, const std::string& value, std::uint64_t revision) const {
  const MessagePtr message = makeMessage(subjectOf(key), {}, value);
  jsPubOptions options;
  jsPubOptions_Init(&options);
  options.MaxWait = kWaitMs;
  options.ExpectLastSubjectSeq = revision;
  options.ExpectNoMessage = revision == 0;
  jsPubAck* ack = nullptr;
  jsErrCode code = static_cast<jsErrCode>(0);
  const natsStatus status = js_PublishMsg(&ack, mContext.get(), message.get(), &options, &code);
  Swap swap;
  if (status == NATS_OK && ack != nullptr) {
    swap = {Swap::Outcome::done, ack->Sequence};
  } else if (code == JSStreamWrongLastSequenceErr) {
    swap.outcome = Swap::Outcome::overtaken;
  }
  jsPubAck_Destroy(ack);
  return swap;
}

}  // namespace kel::fleet
