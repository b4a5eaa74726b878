// SPDX-License-Identifier: MIT
#include "DeviceModel.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "adapter/TaskRecord.h"

namespace kel::sim {
namespace {

enum class Behaviour {
  kDone,  ///< VAL: the first value is 0 for done, the others are the request's
  kEcho,
  kPathGet,
  kPathSet,
  kSeveritiesGet,
  kSeveritiesSet,
  kStatisticsGet,
  kStatisticsReset,
  kUids,
  kVersions,
  kStream,
  kStreamClose,
  kBroadcast,
  kShutdown,  ///< as kDone, and then the device is gone
};

struct KnownTask {
  std::uint32_t TUI;
  Behaviour behaviour;
};

/// In the order of the built-in task table, which is also the order of the statistics.
constexpr KnownTask kTasks[] = {
    {0x96000, Behaviour::kEcho},             // TASK_ID_TRACE_ADAPTER
    {0x160C0, Behaviour::kPathGet},          // TASK_ID_TRACE_UTIL_PATH_GET
    {0x960C1, Behaviour::kPathSet},          // TASK_ID_TRACE_UTIL_PATH_SET
    {0xB4160, Behaviour::kEcho},             // TASK_ID_DB_KEL_REPLICATION_SERVER_TASK_DEVICE
    {0x34161, Behaviour::kDone},             // TASK_ID_DB_UPDATE_DONE_CONFIRMATION_TASK_DEVICE
    {0x34162, Behaviour::kDone},             // TASK_ID_DB_KEL_SUBSCRIBE_REMOTE_TASK_DEVICE
    {0x341A0, Behaviour::kStream},           // TASK_ID_APPLICATION_STREAMER_FW
    {0x341A1, Behaviour::kBroadcast},        // TASK_ID_APPLICATION_BROADCASTER_FW
    {0x341A2, Behaviour::kEcho},             // TASK_ID_APPLICATION_DEBUG_VAL_FW
    {0xB41A3, Behaviour::kEcho},             // TASK_ID_APPLICATION_DEBUG_REF_FW
    {0x241A4, Behaviour::kStream},           // TASK_ID_APPLICATION_STREAMER_PRIVATE_FW
    {0x14180, Behaviour::kDone},             // TASK_ID_HDIPROTOCOL_DATA_LB_BASIC_PER_SDU
    {0x14181, Behaviour::kEcho},             // TASK_ID_HDI_UT_VAL_TEST_RESPOND
    {0x94182, Behaviour::kEcho},             // TASK_ID_HDI_UT_REF_TEST_RESPOND
    {0x14183, Behaviour::kDone},             // FW_SET_DATA_LOOPBACK_MODE
    {0x14184, Behaviour::kEcho},             // TASK_ID_START_DLtoUL_LOOPBACK_TEST
    {0x14185, Behaviour::kEcho},             // TASK_ID_STOP_DLtoUL_LOOPBACK_TEST
    {0x14186, Behaviour::kDone},             // TASK_ID_PERIODIC_DLtoUL_SEND_PACKET
    {0x341E0, Behaviour::kEcho},             // TASK_ID_TEST_DB_FW_PRIVATE
    {0x12020, Behaviour::kDone},             // TASK_ID_STAT_VIEWER_COMMAND
    {0x32060, Behaviour::kDone},             // TASK_ID_TIMER_POST_TASKS
    {0x12040, Behaviour::kDone},             // TASK_ID_TRACE_EVACUATE
    {0x92041, Behaviour::kEcho},             // TASK_ID_SEVERITY_MULTIPLE_BASE_SET
    {0x12000, Behaviour::kVersions},         // TASK_ID_VERSIONS_GET
    {0xB8340, Behaviour::kEcho},             // TASK_ID_L4_INFRA_HANDLE
    {0x18140, Behaviour::kStatisticsGet},    // TASK_ID_STAT_VIEWER_GET_COMMAND
    {0x18141, Behaviour::kStatisticsReset},  // TASK_ID_STAT_VIEWER_RESET_COMMAND
    {0x98180, Behaviour::kEcho},             // TASK_ID_STAT_NOTIFY_STAT_RELAY
    {0x18181, Behaviour::kDone},             // TASK_ID_STAT_RELAY_GETSTAT_TIMEOUT
    {0x181A0, Behaviour::kSeveritiesGet},    // TASK_ID_TRACE_UTIL_SEVERITY_MULTIPLE_GET
    {0x981A1, Behaviour::kSeveritiesSet},    // TASK_ID_TRACE_UTIL_SEVERITY_MULTIPLE_SET
    {0x18100, Behaviour::kUids},             // TASK_ID_VERSIONS_GET_UIDS
    {0x18101, Behaviour::kDone},             // TASK_ID_VERSIONS_GET_UIDS_STUB
    {0x18120, Behaviour::kDone},             // TASK_ID_VERSIONS_NOTIFY_RELAY
    {0xB81E0, Behaviour::kEcho},             // TASK_ID_DB_KEL_REPLICATION_SERVER_TASK_HOST
    {0x381E1, Behaviour::kDone},             // TASK_ID_DB_UPDATE_DONE_CONFIRMATION_TASK_HOST
    {0x381E2, Behaviour::kDone},             // TASK_ID_DB_KEL_SUBSCRIBE_REMOTE_TASK_HOST
    {0x38240, Behaviour::kEcho},             // TASK_ID_APPLICATION_DEBUG_VAL
    {0xB8241, Behaviour::kEcho},             // TASK_ID_APPLICATION_DEBUG_REF
    {0x38242, Behaviour::kBroadcast},        // TASK_ID_APPLICATION_DEBUG_BROADCASTER
    {0x38243, Behaviour::kStream},           // TASK_ID_APPLICATION_DEBUG_STREAMER
    {0x28244, Behaviour::kStream},           // TASK_ID_APPLICATION_PRIVATE_DEBUG_STREAMER
    {0x28260, Behaviour::kDone},             // TASK_ID_MODUL_B_ZERO_UPDATE_DONE
    {0x28261, Behaviour::kDone},             // TASK_ID_MODUL_B_UPDATE_TIKA_ZERO
    {0x28262, Behaviour::kDone},             // TASK_ID_MODUL_A_ONE_UPDATE_DONE
    {0x282A0, Behaviour::kStream},           // TASK_ID_CHIPLAB_STREAM_OPEN
    {0x282A1, Behaviour::kStreamClose},      // TASK_ID_CHIPLAB_STREAM_CLOSE
    {0xB8320, Behaviour::kEcho},             // TASK_ID_L4_DSPS_HANDLE
    {0x38280, Behaviour::kShutdown},         // TASK_ID_HOST_FRAMEWORK_SHUTDOWN
    {0x38281, Behaviour::kDone},             // TASK_ID_UMAC_INIT
};
static_assert(std::size(kTasks) == DeviceModel::kTaskCount);

constexpr std::uint32_t kStreamOpen = 0x282A0;
constexpr std::uint32_t kDefaultStreamCount = 5;
constexpr std::uint32_t kDefaultBroadcastCount = 1;

/// The generation that the built-in VersionsVector belongs to.
constexpr std::uint32_t kUids[] = {1144315543, 0, 0, 0};
constexpr std::uint32_t kVersions[] = {4, 1, 21};

using Values = std::array<std::uint32_t, 3>;

/// A payload's three values; those that it is too short for are 0.
Values ValuesOf(std::span<const std::uint8_t> payload) {
  Values values{};
  if (!payload.empty()) std::memcpy(values.data(), payload.data(), std::min(payload.size(), sizeof values));
  return values;
}

template <typename Words>
void AnswerWords(Answer& answer, std::uint32_t type, const Words& words) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(std::data(words));
  answer.type = type;
  answer.payload.assign(bytes, bytes + std::size(words) * sizeof *std::data(words));
}

void AnswerDone(Answer& answer, const Values& asked, bool done = true) {
  AnswerWords(answer, 0, Values{done ? 0u : 1u, asked[1], asked[2]});
}

void AnswerSeries(Answer& answer, const Values& asked, Answer::Follow follow, std::uint32_t defaultCount) {
  AnswerDone(answer, asked);
  answer.follow = follow;
  answer.count = asked[0] != 0 ? asked[0] : defaultCount;
  answer.intervalMs = asked[1];
}

}  // namespace

void DeviceModel::Reset() { *this = DeviceModel(); }

void DeviceModel::AnswerPath(Answer& answer) const {
  answer.type = kTypeRef;
  const char* text = mTracePath.c_str();
  answer.payload.assign(text, text + mTracePath.size() + 1);
}

void DeviceModel::SetPath(const KelRequest& request, Answer& answer) {
  const auto end = std::find(request.payload.begin(), request.payload.end(), 0);
  mTracePath.assign(request.payload.begin(), end);
  AnswerDone(answer, {});
}

void DeviceModel::SetSeverities(const KelRequest& request, Answer& answer) {
  const bool whole = request.payload.size() == mSeverities.size();
  if (whole) std::copy(request.payload.begin(), request.payload.end(), mSeverities.begin());
  AnswerDone(answer, {}, whole);
}

bool DeviceModel::Act(const KelRequest& request, Answer& answer) {
  answer.type = GetTuiType(request.TUI);
  answer.payload.assign(request.payload.begin(), request.payload.end());
  answer.follow = Answer::Follow::kNothing;
  answer.losesLink = false;
  answer.endStreamsOf = 0;

  const auto* known = std::find_if(std::begin(kTasks), std::end(kTasks),
                                   [&](const KnownTask& task) { return task.TUI == request.TUI; });
  if (known == std::end(kTasks)) return false;
  ++mStatistics[0];
  ++mStatistics[static_cast<std::size_t>(1 + (known - kTasks))];

  const Values asked = ValuesOf(request.payload);
  switch (known->behaviour) {
    case Behaviour::kEcho:
      break;
    case Behaviour::kDone:
      AnswerDone(answer, asked);
      break;
    case Behaviour::kPathGet:
      AnswerPath(answer);
      break;
    case Behaviour::kPathSet:
      SetPath(request, answer);
      break;
    case Behaviour::kSeveritiesGet:
      AnswerWords(answer, kTypeRef, mSeverities);
      break;
    case Behaviour::kSeveritiesSet:
      SetSeverities(request, answer);
      break;
    case Behaviour::kStatisticsGet:
      AnswerWords(answer, kTypeRef, mStatistics);
      break;
    case Behaviour::kStatisticsReset:
      mStatistics.fill(0);
      AnswerDone(answer, asked);
      break;
    case Behaviour::kUids:
      AnswerWords(answer, 0, kUids);
      break;
    case Behaviour::kVersions:
      AnswerWords(answer, 0, kVersions);
      break;
    case Behaviour::kStream:
      AnswerSeries(answer, asked, Answer::Follow::kStream, kDefaultStreamCount);
      break;
    case Behaviour::kStreamClose:
      AnswerDone(answer, asked);
      answer.endStreamsOf = kStreamOpen;
      break;
    case Behaviour::kBroadcast:
      AnswerSeries(answer, asked, Answer::Follow::kBroadcasts, kDefaultBroadcastCount);
      break;
    case Behaviour::kShutdown:
      AnswerDone(answer, asked);
      answer.losesLink = true;
      break;
  }
  return true;
}

}  // namespace kel::sim
