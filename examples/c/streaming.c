/* SPDX-License-Identifier: MIT */
/*
 * A streaming client: opens a stream and prints its messages up to the last one, or to Ctrl-C.
 *
 *     streaming_client [COUNT [INTERVAL]]      COUNT messages, one every INTERVAL ms
 */
#include <semaphore.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>

#include "result.h"

static sem_t finished;

static void onInterrupt(int number) {
  (void)number;
  sem_post(&finished); /* One of the few functions that a signal may call. */
}

/* The library queues what comes while this runs: a slow callback costs memory, and loses nothing. */
static void onMessage(uint32_t errorCode, uint32_t commandID, uint32_t sequenceByte, uint32_t streamEnd, uint32_t isRef,
                      void* data, uint32_t dataSize, uint32_t seqTUI) {
  uint32_t values[3] = {0};
  (void)errorCode, (void)commandID, (void)sequenceByte, (void)isRef, (void)seqTUI;
  if (dataSize >= sizeof values) memcpy(values, data, sizeof values);
  if (streamEnd) {
    printf("end\n");
  } else {
    printf("message %" PRIu32 " of %" PRIu32 "\n", values[0] + 1, values[1]);
  }
  fflush(stdout);
  if (streamEnd) sem_post(&finished);
}

/* Returns when the stream is open: its answer is the opening. Messages may overtake it. */
static int openStream(uint64_t connection, const char* task, const uint32_t values[3]) {
  void* opening = NULL;
  uint32_t size = 0;
  const uint32_t result =
      KEL_SendReceiveKEL(connection, task, 0, values, 3 * sizeof values[0], &opening, &size, onMessage);
  free(opening);
  return succeeded(task, result);
}

int main(int argc, char** argv) {
  uint32_t values[3] = {5, 20, 0};
  uint64_t connection = 0;
  int i, done = 0;

  for (i = 1; i < argc && i < 3; ++i) values[i - 1] = (uint32_t)strtoul(argv[i], NULL, 0);
  sem_init(&finished, 0, 0);
  signal(SIGINT, onInterrupt);

  KEL_Init();
  if (succeeded("KEL_Connect", KEL_Connect(NULL, NULL, &connection))) {
    done = openStream(connection, "TASK_ID_APPLICATION_DEBUG_STREAMER", values);
    while (done && sem_wait(&finished) != 0) {
    }
    /* Ends a stream that still runs, too. No callback is called after it. */
    done = succeeded("KEL_Disconnect", KEL_Disconnect(connection)) && done;
  }
  KEL_Finalize();
  sem_destroy(&finished);
  return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
