/* SPDX-License-Identifier: MIT */
// The shipped task table, column by column, as a yardstick that owes nothing to the reader.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kel::test {

struct TableRow {
  std::string_view name;
  std::uint8_t index;
  std::uint8_t zone;
  std::string_view target;
  std::uint8_t priority;
  std::string_view type;
  std::uint32_t decimalTUI;
  std::string_view hexTUI;
};

inline constexpr TableRow kShippedRows[] = {
    {"TASK_ID_TRACE_ADAPTER", 0, 0, "KEL_TRACE", 1, "REF", 614400, "0x96000"},
    {"TASK_ID_TRACE_UTIL_PATH_GET", 0, 6, "KEL_TRACE", 1, "VAL", 90304, "0x160c0"},
    {"TASK_ID_TRACE_UTIL_PATH_SET", 1, 6, "KEL_TRACE", 1, "REF", 614593, "0x960c1"},
    {"TASK_ID_DB_KEL_REPLICATION_SERVER_TASK_DEVICE", 0, 11, "KEL_FIRMWARE", 3, "REF", 737632, "0xb4160"},
    {"TASK_ID_DB_UPDATE_DONE_CONFIRMATION_TASK_DEVICE", 1, 11, "KEL_FIRMWARE", 3, "VAL", 213345, "0x34161"},
    {"TASK_ID_DB_KEL_SUBSCRIBE_REMOTE_TASK_DEVICE", 2, 11, "KEL_FIRMWARE", 3, "VAL", 213346, "0x34162"},
    {"TASK_ID_APPLICATION_STREAMER_FW", 0, 13, "KEL_FIRMWARE", 3, "VAL", 213408, "0x341a0"},
    {"TASK_ID_APPLICATION_BROADCASTER_FW", 1, 13, "KEL_FIRMWARE", 3, "VAL", 213409, "0x341a1"},
    {"TASK_ID_APPLICATION_DEBUG_VAL_FW", 2, 13, "KEL_FIRMWARE", 3, "VAL", 213410, "0x341a2"},
    {"TASK_ID_APPLICATION_DEBUG_REF_FW", 3, 13, "KEL_FIRMWARE", 3, "REF", 737699, "0xb41a3"},
    {"TASK_ID_APPLICATION_STREAMER_PRIVATE_FW", 4, 13, "KEL_FIRMWARE", 2, "VAL", 147876, "0x241a4"},
    {"TASK_ID_HDIPROTOCOL_DATA_LB_BASIC_PER_SDU", 0, 12, "KEL_FIRMWARE", 1, "VAL", 82304, "0x14180"},
    {"TASK_ID_HDI_UT_VAL_TEST_RESPOND", 1, 12, "KEL_FIRMWARE", 1, "VAL", 82305, "0x14181"},
    {"TASK_ID_HDI_UT_REF_TEST_RESPOND", 2, 12, "KEL_FIRMWARE", 1, "REF", 606594, "0x94182"},
    {"FW_SET_DATA_LOOPBACK_MODE", 3, 12, "KEL_FIRMWARE", 1, "VAL", 82307, "0x14183"},
    {"TASK_ID_START_DLtoUL_LOOPBACK_TEST", 4, 12, "KEL_FIRMWARE", 1, "VAL", 82308, "0x14184"},
    {"TASK_ID_STOP_DLtoUL_LOOPBACK_TEST", 5, 12, "KEL_FIRMWARE", 1, "VAL", 82309, "0x14185"},
    {"TASK_ID_PERIODIC_DLtoUL_SEND_PACKET", 6, 12, "KEL_FIRMWARE", 1, "VAL", 82310, "0x14186"},
    {"TASK_ID_TEST_DB_FW_PRIVATE", 0, 15, "KEL_FIRMWARE", 3, "VAL", 213472, "0x341e0"},
    {"TASK_ID_STAT_VIEWER_COMMAND", 0, 1, "KEL_USER_MODE_DRIVER", 1, "VAL", 73760, "0x12020"},
    {"TASK_ID_TIMER_POST_TASKS", 0, 3, "KEL_USER_MODE_DRIVER", 3, "VAL", 204896, "0x32060"},
    {"TASK_ID_TRACE_EVACUATE", 0, 2, "KEL_USER_MODE_DRIVER", 1, "VAL", 73792, "0x12040"},
    {"TASK_ID_SEVERITY_MULTIPLE_BASE_SET", 1, 2, "KEL_USER_MODE_DRIVER", 1, "REF", 598081, "0x92041"},
    {"TASK_ID_VERSIONS_GET", 0, 0, "KEL_USER_MODE_DRIVER", 1, "VAL", 73728, "0x12000"},
    {"TASK_ID_L4_INFRA_HANDLE", 0, 26, "KEL_UPPER_DSPS", 3, "REF", 754496, "0xb8340"},
    {"TASK_ID_STAT_VIEWER_GET_COMMAND", 0, 10, "KEL_UPPER_DSPS", 1, "VAL", 98624, "0x18140"},
    {"TASK_ID_STAT_VIEWER_RESET_COMMAND", 1, 10, "KEL_UPPER_DSPS", 1, "VAL", 98625, "0x18141"},
    {"TASK_ID_STAT_NOTIFY_STAT_RELAY", 0, 12, "KEL_UPPER_DSPS", 1, "REF", 622976, "0x98180"},
    {"TASK_ID_STAT_RELAY_GETSTAT_TIMEOUT", 1, 12, "KEL_UPPER_DSPS", 1, "VAL", 98689, "0x18181"},
    {"TASK_ID_TRACE_UTIL_SEVERITY_MULTIPLE_GET", 0, 13, "KEL_UPPER_DSPS", 1, "VAL", 98720, "0x181a0"},
    {"TASK_ID_TRACE_UTIL_SEVERITY_MULTIPLE_SET", 1, 13, "KEL_UPPER_DSPS", 1, "REF", 623009, "0x981a1"},
    {"TASK_ID_VERSIONS_GET_UIDS", 0, 8, "KEL_UPPER_DSPS", 1, "VAL", 98560, "0x18100"},
    {"TASK_ID_VERSIONS_GET_UIDS_STUB", 1, 8, "KEL_UPPER_DSPS", 1, "VAL", 98561, "0x18101"},
    {"TASK_ID_VERSIONS_NOTIFY_RELAY", 0, 9, "KEL_UPPER_DSPS", 1, "VAL", 98592, "0x18120"},
    {"TASK_ID_DB_KEL_REPLICATION_SERVER_TASK_HOST", 0, 15, "KEL_UPPER_DSPS", 3, "REF", 754144, "0xb81e0"},
    {"TASK_ID_DB_UPDATE_DONE_CONFIRMATION_TASK_HOST", 1, 15, "KEL_UPPER_DSPS", 3, "VAL", 229857, "0x381e1"},
    {"TASK_ID_DB_KEL_SUBSCRIBE_REMOTE_TASK_HOST", 2, 15, "KEL_UPPER_DSPS", 3, "VAL", 229858, "0x381e2"},
    {"TASK_ID_APPLICATION_DEBUG_VAL", 0, 18, "KEL_UPPER_DSPS", 3, "VAL", 229952, "0x38240"},
    {"TASK_ID_APPLICATION_DEBUG_REF", 1, 18, "KEL_UPPER_DSPS", 3, "REF", 754241, "0xb8241"},
    {"TASK_ID_APPLICATION_DEBUG_BROADCASTER", 2, 18, "KEL_UPPER_DSPS", 3, "VAL", 229954, "0x38242"},
    {"TASK_ID_APPLICATION_DEBUG_STREAMER", 3, 18, "KEL_UPPER_DSPS", 3, "VAL", 229955, "0x38243"},
    {"TASK_ID_APPLICATION_PRIVATE_DEBUG_STREAMER", 4, 18, "KEL_UPPER_DSPS", 2, "VAL", 164420, "0x28244"},
    {"TASK_ID_MODUL_B_ZERO_UPDATE_DONE", 0, 19, "KEL_UPPER_DSPS", 2, "VAL", 164448, "0x28260"},
    {"TASK_ID_MODUL_B_UPDATE_TIKA_ZERO", 1, 19, "KEL_UPPER_DSPS", 2, "VAL", 164449, "0x28261"},
    {"TASK_ID_MODUL_A_ONE_UPDATE_DONE", 2, 19, "KEL_UPPER_DSPS", 2, "VAL", 164450, "0x28262"},
    {"TASK_ID_CHIPLAB_STREAM_OPEN", 0, 21, "KEL_UPPER_DSPS", 2, "VAL", 164512, "0x282a0"},
    {"TASK_ID_CHIPLAB_STREAM_CLOSE", 1, 21, "KEL_UPPER_DSPS", 2, "VAL", 164513, "0x282a1"},
    {"TASK_ID_L4_DSPS_HANDLE", 0, 25, "KEL_UPPER_DSPS", 3, "REF", 754464, "0xb8320"},
    {"TASK_ID_HOST_FRAMEWORK_SHUTDOWN", 0, 20, "KEL_UPPER_DSPS", 3, "VAL", 230016, "0x38280"},
    {"TASK_ID_UMAC_INIT", 1, 20, "KEL_UPPER_DSPS", 3, "VAL", 230017, "0x38281"},
};

/// The number that stands for a target's word in bits 12 to 15 of a TUI.
constexpr std::uint8_t TargetNumber(std::string_view word) {
  return word == "KEL_USER_MODE_DRIVER" ? 2 : word == "KEL_FIRMWARE" ? 4 : word == "KEL_TRACE" ? 6 : 8;
}

/// A row as the table's text has it, without its line end.
inline std::string RowText(const TableRow& row) {
  const auto number = [](std::uint32_t value) { return std::to_string(value); };
  return std::string(row.name) + ",  " + number(row.index) + ", " + number(row.zone) + ", " + std::string(row.target) +
         ", " + number(row.priority) + ", " + std::string(row.type) + ", " + number(row.decimalTUI) + ", " +
         std::string(row.hexTUI);
}

}  // namespace kel::test
