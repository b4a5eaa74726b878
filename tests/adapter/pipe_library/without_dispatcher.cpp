// SPDX-License-Identifier: MIT
// A pipe library that has none of the functions that are looked up.
extern "C" void SLUICE_HUB_Unrelated() {}
