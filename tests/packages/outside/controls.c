/* SPDX-License-Identifier: MIT */
/* A program that only uses the stand-in's controls. */
#include <SluiceHubSim.h>

int main(void) {
  SluiceHubSimRule every = {0};
  return SluiceHubSim_AddRule(&every) == 1 ? 0 : 1;
}
