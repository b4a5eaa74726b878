/* SPDX-License-Identifier: MIT */
/* Something to load. */
int PlatformTestAnswer(void);

int PlatformTestAnswer(void) { return 42; }
