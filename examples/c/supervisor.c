/* SPDX-License-Identifier: MIT */
/*
 * A supervisor: keeps 60 tasks under way beside a stream and broadcasts, and goes on when the link has been lost.
 *
 *     supervisor_client [TASKS]      until so many tasks have been answered
 *
 * Nobody tells a client of a lost link. It shows by a task that is refused or not answered; so there is always one
 * under way here. Then the connection is closed and another one opened, and what was not answered is sent again.
 */
#define _POSIX_C_SOURCE 200809L /* sem_timedwait, nanosleep */

#include <time.h> /* First: semaphore.h needs its timespec, and that of mingw-w64 does not include it. */

#include <semaphore.h>
#include <stdlib.h>

#include "result.h"

#define UNDER_WAY 60u       /* A connection has 64 numbers. The stream has one, and three more are free again late. */
#define LONGEST_ANSWER 2    /* Seconds. A task that takes longer is given up with its connection. */
#define LONGEST_PAUSE 2000u /* Milliseconds between two attempts to connect */
#define ATTEMPTS 10u        /* that may fail in a row */

/* All of this is used by one thread at a time: by the callbacks of the open connection, one after the other, and by
   main where no callback can touch it. KEL_Disconnect and the semaphore keep them apart. */
static sem_t places; /* For one more task under way on this connection, each. */
static char* answered;
static uint32_t count = 1000, messages, broadcasts;

static void onAnswer(uint32_t errorCode, uint32_t commandID, uint32_t sequenceByte, uint32_t isRef, void* data,
                     uint32_t dataSize, uint32_t seqTUI) {
  (void)sequenceByte, (void)isRef, (void)data, (void)dataSize, (void)seqTUI;
  if (errorCode == 0) answered[commandID] = 1;
  sem_post(&places);
}

static void onMessage(uint32_t errorCode, uint32_t commandID, uint32_t sequenceByte, uint32_t streamEnd, uint32_t isRef,
                      void* data, uint32_t dataSize, uint32_t seqTUI) {
  (void)errorCode, (void)commandID, (void)sequenceByte, (void)isRef, (void)data, (void)dataSize, (void)seqTUI;
  if (!streamEnd) ++messages;
}

/* Runs on a thread of its own, but beside no other callback of its connection. */
static void onBroadcast(char* TUIname, uint32_t isRef, void* payload, uint32_t payloadSize, uint32_t seqTUI) {
  (void)isRef, (void)payloadSize, (void)seqTUI;
  ++broadcasts;
  free(payload);
  free(TUIname);
}

static void pauseFor(uint32_t milliseconds) {
  const struct timespec time = {milliseconds / 1000, (long)(milliseconds % 1000) * 1000000};
  nanosleep(&time, NULL);
}

/* Waits until one task less is under way. 0 if that takes too long: the library waits for RxWaitTimeout, and we do not.
 */
static int waitForPlace(void) {
  struct timespec until;
  clock_gettime(CLOCK_REALTIME, &until);
  until.tv_sec += LONGEST_ANSWER;
  return sem_timedwait(&places, &until) == 0;
}

/* The stream's opening is of no interest, so no answer is asked for by a callback. */
static int openStream(uint64_t connection) {
  const uint32_t values[3] = {1000000, 5, 0};
  return KEL_SendReceiveAsyncKEL(connection, "TASK_ID_APPLICATION_DEBUG_STREAMER", 0, values, sizeof values, NULL, NULL,
                                 onMessage) == KEL_OK;
}

/* A refusal may mean that a number is not free again yet, and that is soon over; or else that the link is lost. */
static int sendTask(uint64_t connection, uint32_t i) {
  const uint32_t values[3] = {i, 0, 0};
  uint32_t pause;
  for (pause = 1; pause < 64; pause *= 2) {
    const uint32_t result = KEL_SendReceiveAsyncKEL(connection, "TASK_ID_APPLICATION_DEBUG_VAL", i, values,
                                                    sizeof values, NULL, onAnswer, NULL);
    if (result != KEL_E_ASYNC_TASK) return result == KEL_OK;
    pauseFor(pause);
  }
  return 0;
}

/* Sends what is not answered yet, and waits for it. 0 if the link is lost. */
static int sendTheRest(uint64_t connection) {
  uint32_t i;
  for (i = 0; i < count; ++i) {
    if (!answered[i] && !(waitForPlace() && sendTask(connection, i))) return 0;
  }
  for (i = 0; i < UNDER_WAY; ++i) {
    if (!waitForPlace()) return 0;
  }
  for (i = 0; i < count && answered[i]; ++i) {
  }
  return i == count;
}

/* Connects, with growing pauses between the attempts. KEL_Connect itself waits for the device as long as that takes. */
static int connectAgain(uint64_t* connection) {
  uint32_t attempt, pause = 50;
  for (attempt = 0; attempt < ATTEMPTS; ++attempt) {
    if (attempt != 0) pauseFor(pause);
    if (KEL_Connect(NULL, onBroadcast, connection) == KEL_OK) return 1;
    pause = 2 * pause < LONGEST_PAUSE ? 2 * pause : LONGEST_PAUSE;
  }
  return 0;
}

int main(int argc, char** argv) {
  uint64_t connection = 0;
  uint32_t losses = 0, i, sum = 0;
  int done = 0;

  if (argc > 1) count = (uint32_t)strtoul(argv[1], NULL, 0);
  answered = calloc(count, 1);
  if (answered == NULL) return EXIT_FAILURE;

  KEL_Init();
  while (!done && connectAgain(&connection)) {
    puts("connected");
    /* The tasks of an earlier connection hold places that nobody gives back. */
    sem_init(&places, 0, UNDER_WAY);
    done = openStream(connection) && sendTheRest(connection);
    if (!done) ++losses;
    puts(done ? "closed" : "lost");
    /* Calls no callback for what is still under way. After it none runs: main may look at all of this. */
    if (KEL_Disconnect(connection) != KEL_OK && KEL_Disconnect(connection) != KEL_OK) {
      return EXIT_FAILURE; /* Its callbacks may still be called. */
    }
    sem_destroy(&places);
  }
  KEL_Finalize();

  for (i = 0; i < count; ++i) sum += answered[i] != 0;
  printf("%" PRIu32 " of %" PRIu32 " tasks answered, %" PRIu32 " messages, %" PRIu32 " broadcasts, %" PRIu32
         " losses\n",
         sum, count, messages, broadcasts, losses);
  free(answered);
  return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
