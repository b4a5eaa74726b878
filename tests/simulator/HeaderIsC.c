/* SPDX-License-Identifier: MIT */
/* The control interface serves C as well: this compiles as C99. */
#include "SluiceHubSim.h"

typedef char RuleOfZerosIsARule[sizeof(SluiceHubSimRule) > 0 ? 1 : -1];
