/* SPDX-License-Identifier: MIT */
// The bodies of the L5 messages that the library exchanges. All fields are little-endian, and nothing is padded.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kel {

// Peers on the L5 layer.
inline constexpr std::uint32_t L5_AGENT_L4MSGPROXY = 6;  ///< takes task requests
inline constexpr std::uint32_t L5_AGENT_KELPROXY = 7;    ///< owns the socket IDs

// Message IDs.
inline constexpr std::uint32_t L4MSGPROXY_L5_MSG_ID_KEL_REQUEST = 1;
inline constexpr std::uint32_t KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID = 1000;
inline constexpr std::uint32_t KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID_RESPONSE = 1001;
inline constexpr std::uint32_t KEL_PROXY_L5_MSG_ID_RELEASE_SOCKET_ID_INDICATION = 1002;
inline constexpr std::uint32_t KEL_PROXY_L5_MSG_ID_KEL_RESPONSE_INDICATION = 1003;

// Events and their reasons.
inline constexpr std::uint32_t L5_EVENT_DISCONNECTED = 0;
inline constexpr std::uint32_t L5_RESULT_USER_REQUESTED_DISCONNECT = 17;

/// The bodies of ACQUIRE_SOCKET_ID (the low byte of the adapter handle), of its response and of
/// RELEASE_SOCKET_ID_INDICATION (the socket ID) are one byte each. As a socket ID, 255 means none.
inline constexpr std::uint8_t kNoSocket = 255;

#pragma pack(push, 1)
/// Opens the body of a KEL request; a WireTask and its payload follow.
struct KelRequestHeader {
  std::uint16_t opcode;      ///< offset 0: kKelRequestOpcode
  std::uint16_t recordSize;  ///< offset 2: bytes of the task record that follows, cut to 16 bits
  std::uint8_t zero[8];      ///< offset 4
};

/// Opens the body of a KEL response indication; a WireTask and its payload follow.
struct KelResponseHeader {
  std::uint16_t handle;   ///< offset 0: row of the adapter that it is for; 255 is invalid
  std::uint8_t other[10];  ///< offset 2: not read
};

/// The task record in its wire form: the words of `task` in another order. `payloadSize` bytes of payload follow it.
struct WireTask {
  std::uint32_t TUI;          ///< offset 0
  std::uint32_t payloadSize;  ///< offset 4
  std::uint32_t seqTUI;       ///< offset 8; in a request that expects a response the low byte is the socket ID
  union {
    std::uint32_t responseExpected;  ///< offset 12 of a request
    std::uint32_t errorCode;         ///< offset 12 of a response
  };
};

/// The immediate reply to a KEL request, which says only whether the request was taken.
struct KelRequestReply {
  std::uint32_t errorWord;    ///< offset 0: shown in the log when L4status is not 0
  std::uint8_t other1[4];     ///< offset 4: not read
  std::uint16_t L4status;     ///< offset 8: 0 when the L4 adapter in the driver took the message
  std::uint8_t other2[14];    ///< offset 10: not read
};
#pragma pack(pop)

inline constexpr std::uint16_t kKelRequestOpcode = 0x2602;

static_assert(sizeof(KelRequestHeader) == 12);
static_assert(sizeof(KelResponseHeader) == 12);
static_assert(sizeof(WireTask) == 16 && offsetof(WireTask, responseExpected) == 12);
static_assert(sizeof(KelRequestReply) == 24 && offsetof(KelRequestReply, L4status) == 8);

}  // namespace kel
