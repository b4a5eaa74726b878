/* SPDX-License-Identifier: MIT */
/* The public header by itself, and twice; in C99 and in C++11. */
#include "KELHandler.h"

static void taken(char* TUIname, uint32_t isRef, void* payload, uint32_t payloadSize, uint32_t seqTUI) {
  (void)TUIname, (void)isRef, (void)payload, (void)payloadSize, (void)seqTUI;
}

uint32_t use_header(uint64_t* conn);

uint32_t use_header(uint64_t* conn) {
  const VersionArray version = KEL_GetVersion();
  const KEL_BroadcastCallback callback = taken;
  return version.number[0] + KEL_Connect(0, callback, conn) + KEL_MAX_TASK_PAYLOAD;
}
