/* SPDX-License-Identifier: MIT */
// A validator and built-in files of the tests' own, in a program that has these in the place of the library's.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kel::test {

/// What the validator was asked.
struct Asked {
  std::vector<std::uint32_t> uids;
  std::string fileName;
  const void* fileBuffer;
  std::uint32_t fileLength;
  void* userVersion;
  std::uint64_t userVersionValue;  ///< 0 for a null pointer as well
  const char* versionsVectorsPath;
  std::string pathText;
  std::vector<std::string> vectors;
  std::vector<const char*> vectorBuffers;
};

/// All its questions so far, and its answer from now on; 0 at first.
inline std::vector<Asked> gAsked;
inline std::int32_t gVerdict = 0;

/// The built-in files by type and name, as in "UMVERSIONSVECTOR #103". The program starts with this table and no
/// vectors.
inline std::map<std::string, std::string> gBuiltIn = {
    {"TUISFILE #101",
     "TASK_ID_VERSIONS_GET_UIDS,  0, 8, KEL_UPPER_DSPS, 1, VAL, 98560, 0x18100\r\n"
     "TASK_ID_APPLICATION_DEBUG_VAL,  0, 18, KEL_UPPER_DSPS, 3, VAL, 229952, 0x38240\r\n"}};

}  // namespace kel::test
