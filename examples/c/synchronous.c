/* SPDX-License-Identifier: MIT */
/*
 * A synchronous client: sends a task of each payload form, waits for the answers and prints them.
 */
#include <stdlib.h>
#include <string.h>

#include "result.h"

/* A VAL task takes three numbers, and answers with three. */
static int sendValues(uint64_t connection, const char* task) {
  const uint32_t values[3] = {7, 8, 9};
  uint32_t echo[3] = {0};
  void* answer = NULL;
  uint32_t size = 0;
  const uint32_t result = KEL_SendReceiveKEL(connection, task, 0, values, sizeof values, &answer, &size, NULL);
  if (!succeeded(task, result)) return 0;

  if (size == sizeof echo) memcpy(echo, answer, sizeof echo);
  printf("%s: %" PRIu32 " %" PRIu32 " %" PRIu32 "\n", task, echo[0], echo[1], echo[2]);
  free(answer); /* The block is the client's, also when it is empty. */
  return 1;
}

/* A REF task takes any bytes, and answers with any. */
static int sendText(uint64_t connection, const char* task) {
  const char text[] = "hello";
  void* answer = NULL;
  uint32_t size = 0;
  const uint32_t result = KEL_SendReceiveKEL(connection, task, 0, text, sizeof text - 1, &answer, &size, NULL);
  if (!succeeded(task, result)) return 0;

  /* Bytes have no end mark of their own: their number says where they end. */
  printf("%s: %" PRIu32 " bytes, %.*s\n", task, size, (int)size, (const char*)answer);
  free(answer);
  return 1;
}

int main(void) {
  uint64_t connection = 0;
  int done = 0;

  KEL_Init();
  if (succeeded("KEL_Connect", KEL_Connect(NULL, NULL, &connection))) {
    done = sendValues(connection, "TASK_ID_APPLICATION_DEBUG_VAL") &&
           sendText(connection, "TASK_ID_APPLICATION_DEBUG_REF");
    done = succeeded("KEL_Disconnect", KEL_Disconnect(connection)) && done;
  }
  KEL_Finalize();
  return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
