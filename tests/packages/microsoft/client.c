/* SPDX-License-Identifier: MIT */
/* A client as Microsoft's tools build it, without a C runtime, which only they have. */
#include <KELHandler.h>

__declspec(dllimport) void ExitProcess(unsigned status);

/* Its header includes one of the C runtime's. */
void SluiceHubSim_ClearRules(void);

static unsigned run(void) {
  const char* task = "TASK_ID_APPLICATION_DEBUG_VAL";
  const uint32_t values[3] = {7, 8, 9};
  uint64_t connection = 0;
  void* answer = 0;
  uint32_t size = 0;
  SluiceHubSim_ClearRules();
  if (KEL_Init() != 0 || KEL_Connect(0, 0, &connection) != KEL_OK) return 1;
  if (KEL_SendReceiveKEL(connection, task, 1, values, sizeof values, &answer, &size, 0) != KEL_OK) return 2;
  if (size != sizeof values || ((const uint32_t*)answer)[2] != 9) return 3;
  return KEL_Disconnect(connection) == KEL_OK && KEL_Finalize() == 0 ? 0 : 4;
}

void start(void) { ExitProcess(run()); }
