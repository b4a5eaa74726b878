/* SPDX-License-Identifier: MIT */
// Marks what leaves the library where symbols are hidden unless marked; elsewhere SluiceHub.def lists it.
#pragma once

#define SLUICE_HUB_EXPORT __attribute__((visibility("default")))
