/* SPDX-License-Identifier: MIT */
/*
 * A client in C99 that knows nothing but the public header: connects, sends a VAL task with the values 1, 2, 3 and a
 * REF task with the text "hello", and disconnects.
 *
 *     client VAL-ANSWER REF-ANSWER       both in hexadecimal, byte by byte
 *
 * Ends with 0 if the answers are those.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "KELHandler.h"

#define MOST_SHOWN 64

static int failed(const char* what, uint32_t result) {
  fprintf(stderr, "%s returned %u\n", what, (unsigned)result);
  return 1;
}

/* Sends one task and compares its answer. */
static int ask(uint64_t conn, const char* task, const void* payload, uint32_t size, const char* expected) {
  void* answer = NULL;
  uint32_t answerSize = 0;
  uint32_t i;
  char shown[2 * MOST_SHOWN + 1] = "";
  uint32_t result = KEL_SendReceiveKEL(conn, task, 1, payload, size, &answer, &answerSize, NULL);
  if (result != KEL_OK) return failed(task, result);
  for (i = 0; i < answerSize && i < MOST_SHOWN; ++i) {
    sprintf(shown + 2 * i, "%02x", (unsigned)((const unsigned char*)answer)[i]);
  }
  free(answer);
  printf("%s %s\n", task, shown);
  if (strcmp(shown, expected) == 0) return 0;
  fprintf(stderr, "expected %s\n", expected);
  return 1;
}

int main(int argc, char** argv) {
  const uint32_t values[3] = {1, 2, 3};
  uint64_t conn = 0;
  uint32_t result;
  VersionArray version;
  if (argc != 3) return 2;

  version = KEL_GetVersion();
  if (version.number[0] != 4 || version.number[3] != 21) return failed("KEL_GetVersion", version.number[0]);
  if ((result = KEL_Init()) != 0) return failed("KEL_Init", result);
  if ((result = KEL_Connect(NULL, NULL, &conn)) != KEL_OK) return failed("KEL_Connect", result);
  if (conn == 0) return failed("KEL_Connect gave no connection and", result);
  if (ask(conn, "TASK_ID_APPLICATION_DEBUG_VAL", values, sizeof values, argv[1]) != 0) return 1;
  if (ask(conn, "TASK_ID_APPLICATION_DEBUG_REF", "hello", 5, argv[2]) != 0) return 1;
  if ((result = KEL_Disconnect(conn)) != KEL_OK) return failed("KEL_Disconnect", result);
  if ((result = KEL_Finalize()) != 0) return failed("KEL_Finalize", result);
  return 0;
}
