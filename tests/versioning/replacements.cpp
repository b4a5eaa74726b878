// SPDX-License-Identifier: MIT
#include "versioning/replacements.h"

#include <cstring>

#include "platform/platform.h"
#include "version/Rtv.h"

// Both stand ahead of the library's own, which are then not taken.
namespace kel {

std::int32_t RtvValidateVersion(std::uint32_t uidCount, const std::uint32_t* uids, const char* fileNameWithoutPath,
                                const void* fileBuffer, std::uint32_t fileLength, void* userVersion,
                                const char* versionsVectorsPath, std::uint32_t vectorCount,
                                const char* const* vectorBuffers, const std::uint32_t* vectorSizes) {
  test::Asked asked{};
  asked.uids.assign(uids, uids + uidCount);
  asked.fileName = fileNameWithoutPath;
  asked.fileBuffer = fileBuffer;
  asked.fileLength = fileLength;
  asked.userVersion = userVersion;
  if (userVersion != nullptr) std::memcpy(&asked.userVersionValue, userVersion, sizeof asked.userVersionValue);
  asked.versionsVectorsPath = versionsVectorsPath;
  if (versionsVectorsPath != nullptr) asked.pathText = versionsVectorsPath;
  for (std::uint32_t i = 0; i < vectorCount; ++i) {
    asked.vectors.emplace_back(vectorBuffers[i], vectorSizes[i]);
    asked.vectorBuffers.push_back(vectorBuffers[i]);
  }
  test::gAsked.push_back(asked);
  return test::gVerdict;
}

namespace platform {

Resource findResource(Module, const char* name, const char* type) {
  const auto found = test::gBuiltIn.find(std::string(type) + " " + name);
  if (found == test::gBuiltIn.end()) return {};
  return {found->second.data(), static_cast<std::uint32_t>(found->second.size())};
}

}  // namespace platform
}  // namespace kel
