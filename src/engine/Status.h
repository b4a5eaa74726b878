/* SPDX-License-Identifier: MIT */
// The engine status: the one list of numbers by which the engine and its front functions report. The full table, with
// its texts, is in StatusTexts.cpp; these are the numbers that the code gives or tests.
#pragma once

#include <cstdint>

namespace kel {

using Status = std::uint32_t;

inline constexpr Status kStatusUnknownError = 0;
inline constexpr Status kStatusFailed = 1;
inline constexpr Status kStatusOk = 2;
inline constexpr Status kStatusNoTaskTable = 3;
inline constexpr Status kStatusNoAdapter = 5;
inline constexpr Status kStatusAdapterNotInitialised = 7;
inline constexpr Status kStatusNotConnected = 11;
inline constexpr Status kStatusNotSent = 14;
inline constexpr Status kStatusSent = 15;
inline constexpr Status kStatusSendTimeout = 16;
inline constexpr Status kStatusDisconnected = 17;
inline constexpr Status kStatusSevered = 18;
inline constexpr Status kStatusWrongType = 19;
inline constexpr Status kStatusNoFileName = 20;
inline constexpr Status kStatusNoVersionControl = 21;
inline constexpr Status kStatusNullVectorsPath = 23;
inline constexpr Status kStatusNoUIDs = 24;
inline constexpr Status kStatusVersionNotPassed = 25;
inline constexpr Status kStatusNoMatchingUID = 26;
inline constexpr Status kStatusFileNotListed = 27;
inline constexpr Status kStatusNullUIDs = 28;
inline constexpr Status kStatusBadFileName = 29;
inline constexpr Status kStatusBadFileBuffer = 30;
inline constexpr Status kStatusNullUserVersion = 31;
inline constexpr Status kStatusNoVectorFiles = 32;
inline constexpr Status kStatusNoVectors = 33;

/// Turns a code of the adapter into a status; one that it does not know becomes 0.
constexpr Status TranslateDorvStatus(std::uint32_t dorvCode) {
  switch (dorvCode) {
    case 0: return kStatusSent;
    case 1: return kStatusNotSent;
    case 2: return kStatusSendTimeout;
    case 3: return kStatusDisconnected;
    case 4: return kStatusSevered;
    default: return kStatusUnknownError;
  }
}

/// Turns a code of the version validator (version/Rtv.h) into a status; one that it does not know becomes 0.
Status MapRtvStatus(std::int32_t code);

/// Text of a status, 0 to 33, or of the reason of a client callback, 0 to 2. Null for any other number.
const char* StatusText(std::uint32_t code);
const char* CallbackStatusText(std::uint32_t code);

}  // namespace kel
