/* SPDX-License-Identifier: MIT */
/*
 * An asynchronous client: keeps up to eight tasks under way at once, and sums up when all answers are there.
 *
 * A callback knows its task by the commandID, which here is the place of its answer. It stores, posts, and returns.
 */
#include <semaphore.h>
#include <stdlib.h>
#include <string.h>

#include "result.h"

#define TASKS 100u
#define UNDER_WAY 8u /* A connection takes up to 64. */

static sem_t places; /* For one more task under way, each. */
static uint32_t answers[TASKS];
static int answered[TASKS];

/* Called once for each task that was sent. Answers come in any order, but no two callbacks run at a time. */
static void onAnswer(uint32_t errorCode, uint32_t commandID, uint32_t sequenceByte, uint32_t isRef, void* data,
                     uint32_t dataSize, uint32_t seqTUI) {
  (void)sequenceByte, (void)isRef, (void)seqTUI;
  /* Not 0: no answer came in time. The data is the library's, and gone when this function returns. */
  if (errorCode == 0 && dataSize >= sizeof answers[0]) {
    memcpy(&answers[commandID], data, sizeof answers[0]);
    answered[commandID] = 1;
  }
  sem_post(&places);
}

static void waitForPlace(void) {
  while (sem_wait(&places) != 0) {
  }
}

static int sendAll(uint64_t connection, const char* task) {
  uint32_t i;
  int sent = 1;
  for (i = 0; i < TASKS && sent; ++i) {
    const uint32_t values[3] = {i, 0, 0};
    waitForPlace();
    sent = succeeded(task, KEL_SendReceiveAsyncKEL(connection, task, i, values, sizeof values, NULL, onAnswer, NULL));
    if (!sent) sem_post(&places); /* A task that was not sent has no callback. */
  }
  /* When all places are free, nothing is under way any more. */
  for (i = 0; i < UNDER_WAY; ++i) waitForPlace();
  return sent;
}

int main(void) {
  uint64_t connection = 0;
  uint32_t i, count = 0, sum = 0;
  int done = 0;

  sem_init(&places, 0, UNDER_WAY);
  KEL_Init();
  if (succeeded("KEL_Connect", KEL_Connect(NULL, NULL, &connection))) {
    done = sendAll(connection, "TASK_ID_APPLICATION_DEBUG_VAL");
    done = succeeded("KEL_Disconnect", KEL_Disconnect(connection)) && done;
  }
  KEL_Finalize();
  sem_destroy(&places);

  for (i = 0; i < TASKS; ++i) {
    count += answered[i] != 0;
    sum += answers[i];
  }
  printf("%" PRIu32 " of %u tasks answered, the sum is %" PRIu32 "\n", count, TASKS, sum);
  return done && count == TASKS ? EXIT_SUCCESS : EXIT_FAILURE;
}
