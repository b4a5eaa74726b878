/* SPDX-License-Identifier: MIT */
// The adapter: the engine's only road to the device side, over the L5 layer of the pipe library.
//
// One row per engine links it to an L5 connection. Calling order: Dorv_Init, Dorv_Connect, any number of Dorv_Send,
// then Dorv_Disconnect or straight Dorv_Finalize. What comes in is handed to the two callbacks on threads of the pipe
// library.
//
// A row's states:
//
//   state                              L5Connection  socketID         disconnecting
//   taken (Dorv_Init)                  0             255              0
//   link open (inside Dorv_Connect)    set           255              0
//   connected                          set           below 255        0
//   releasing (in Dorv_Disconnect)     set           old, then 255    1
//   closed                             0             255              1
//   free (Dorv_Finalize)               inUse is 0, the rest as it was
//
// A link that the far side has lost changes no field: only the alerts callback learns of it.
//
// Threads: the adapter has no lock but the one of the load path. Each engine calls for its own row; the pipe library's
// threads read rows at the same time.
#pragma once

#include <cstdint>

#include "adapter/SluiceHub.h"
#include "adapter/TaskRecord.h"

namespace kel {

inline constexpr std::uint32_t kNoDorvHandle = 0xFFFFFFFF;

// Codes of the adapter's functions, and of what it reports to the alerts callback. 0 is success.
inline constexpr std::uint32_t DORV_OK = 0;
inline constexpr std::uint32_t DORV_FAILED = 1;
inline constexpr std::uint32_t DORV_NOT_CONNECTED = 3;
inline constexpr std::uint32_t DORV_SOCKET_WAS_CLOSED_BY_PEER = 4;

/// Takes a record of `size` bytes, which is valid during the call only. The result is dropped.
using BrelCallback = std::uint32_t (*)(std::uint32_t handle, const std::uint8_t* record, std::uint32_t size);
/// Takes the loss of the link. The result is dropped.
using BrelAlertsCallback = std::uint32_t (*)(std::uint32_t handle, std::uint32_t errorCode);

/// Make and delete the lock of the load path. For the library's entry point.
void CreateSluiceHubLock();
void DeleteSluiceHubLock();

/// Takes the lowest free row, and loads the pipe library if it is the first. The row's number, or kNoDorvHandle.
std::uint32_t Dorv_Init(BrelCallback brelCallback, BrelAlertsCallback brelAlertsCallback);

/// Gives the row back: closes what is still open, and frees the pipe library with the last row. DORV_OK or DORV_FAILED.
std::uint32_t Dorv_Finalize(std::uint32_t handle);

/// Opens the row's L5 connection and obtains its socket ID, or leaves nothing open. Blocks until the agent has replied.
/// The L5 connection takes no address: both peer arguments are ignored. DORV_OK or DORV_FAILED.
std::uint32_t Dorv_Connect(std::uint32_t handle, const char* peerAddress, std::uint16_t peerPort);

/// Gives the socket ID back and closes the connection, whatever the agent says to it. DORV_OK, also if there is none.
std::uint32_t Dorv_Disconnect(std::uint32_t handle);

/// Sends a task record of `size` bytes and blocks until the agent has taken it. The answer comes through the callback,
/// possibly before this function returns. DORV_OK, DORV_FAILED or DORV_NOT_CONNECTED.
std::uint32_t Dorv_Send(std::uint32_t handle, const task* record, std::uint32_t size);

/// The row's connection value. The handle must be a row's.
std::uint64_t Dorv_GetL5Connection(std::uint32_t handle);

/// The handlers given to L5Connect.
void Dorv_MessagesHandler(std::uint64_t connection, std::uint32_t source, std::uint32_t messageID, const void* buffer,
                          std::uint32_t bufferSize, std::uint32_t* replyMessageID, void* replyBuffer,
                          std::uint32_t* replySize, void* unused1, void* unused2);
void Dorv_EventHandler(std::uint64_t connection, std::uint32_t event, const std::uint32_t* reason,
                       const std::uint32_t* context);

}  // namespace kel
