/* SPDX-License-Identifier: MIT */
// The validator of files against VersionsVectors.
//
// A VersionsVector is a text, lines ending in CR LF. Its first line is the UID of a software generation in decimal;
// each further line describes a file of that generation, with commas and no blanks between the fields: file name,
// version, value, comment. A file passes when a VersionsVector with a matching UID lists it.
#pragma once

#include <cstdint>

namespace kel {

/// Results of the validator, and of nothing else.
enum RtvCode : std::int32_t {
  RTV_PASSED = 0,
  RTV_NOT_PASSED = 1,
  RTV_NO_MATCHING_UID = 2,
  RTV_FILE_NOT_LISTED = 3,
  RTV_NULL_UIDS = 4,
  RTV_BAD_FILE_NAME = 5,
  RTV_BAD_FILE_BUFFER = 6,
  RTV_NULL_USER_VERSION = 7,
  RTV_NO_VECTOR_FILES = 8,
  RTV_NO_VECTORS = 9,
};

/// Judges a file by the VersionsVectors in a folder or by those given. This one lets every file pass and reads none of
/// its arguments.
std::int32_t RtvValidateVersion(std::uint32_t uidCount, const std::uint32_t* uids, const char* fileNameWithoutPath,
                                const void* fileBuffer, std::uint32_t fileLength, void* userVersion,
                                const char* versionsVectorsPath, std::uint32_t vectorCount,
                                const char* const* vectorBuffers, const std::uint32_t* vectorSizes);

}  // namespace kel
