// SPDX-License-Identifier: MIT
/**
 * @file
 * The system's own header, with as little in it as will do; nothing on other systems.
 */
#pragma once

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#endif
