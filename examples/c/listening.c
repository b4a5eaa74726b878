/* SPDX-License-Identifier: MIT */
/*
 * A client that listens: has the device send broadcasts, and prints them until so many have come, or to Ctrl-C.
 *
 *     listening_client [COUNT [INTERVAL]]      COUNT broadcasts, one every INTERVAL ms
 */
#include <semaphore.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>

#include "result.h"

static sem_t finished;
static uint32_t request[3] = {3, 20, 0}; /* Count, interval; not changed once the connection is open. */

static void onInterrupt(int number) {
  (void)number;
  sem_post(&finished); /* One of the few functions that a signal may call. */
}

/* The name and the payload are the client's from now on: whoever is called has to free them. */
static void onBroadcast(char* TUIname, uint32_t isRef, void* payload, uint32_t payloadSize, uint32_t seqTUI) {
  static uint32_t count = 0; /* One callback of a connection runs at a time. */
  uint32_t values[3] = {0};
  (void)seqTUI;
  if (payloadSize >= sizeof values) memcpy(values, payload, sizeof values);
  printf("%s, %s, %" PRIu32 " bytes, number %" PRIu32 "\n", TUIname, isRef ? "REF" : "VAL", payloadSize, values[0]);
  fflush(stdout);
  free(payload);
  free(TUIname);
  if (++count == request[0]) sem_post(&finished);
}

static int triggerBroadcasts(uint64_t connection, const char* task) {
  void* answer = NULL;
  uint32_t size = 0;
  const uint32_t result = KEL_SendReceiveKEL(connection, task, 0, request, sizeof request, &answer, &size, NULL);
  free(answer);
  return succeeded(task, result);
}

int main(int argc, char** argv) {
  uint64_t connection = 0;
  int i, done = 0;

  for (i = 1; i < argc && i < 3; ++i) request[i - 1] = (uint32_t)strtoul(argv[i], NULL, 0);
  sem_init(&finished, 0, 0);
  signal(SIGINT, onInterrupt);

  KEL_Init();
  if (succeeded("KEL_Connect", KEL_Connect(NULL, onBroadcast, &connection))) {
    done = triggerBroadcasts(connection, "TASK_ID_APPLICATION_DEBUG_BROADCASTER");
    while (done && sem_wait(&finished) != 0) {
    }
    /* Waits for a callback that runs. None is called after it. */
    done = succeeded("KEL_Disconnect", KEL_Disconnect(connection)) && done;
  }
  KEL_Finalize();
  sem_destroy(&finished);
  return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
