/* SPDX-License-Identifier: MIT */
/*
 * What a result of KELHandler means, in words. Shared by the examples in C.
 */
#ifndef RESULT_H
#define RESULT_H

#include <inttypes.h>
#include <stdio.h>

#include "KELHandler.h"

static inline const char* meaning(uint32_t result) {
  switch (result) {
    case KEL_OK:
      return "it succeeded";
    case KEL_E_CONNECTION:
      return "the connection is not open, or could not be opened or closed";
    case KEL_E_ASYNC_TASK:
      return "the task could not be sent";
    case KEL_E_TASK:
      return "the task could not be sent, or no answer came in time";
    default:
      return "a result of the pipe library's own";
  }
}

/* Tells a result other than KEL_OK on standard error. Returns 1 for KEL_OK, else 0. */
static inline int succeeded(const char* what, uint32_t result) {
  if (result != KEL_OK) fprintf(stderr, "%s: %" PRIu32 ", %s\n", what, result, meaning(result));
  return result == KEL_OK;
}

#endif
