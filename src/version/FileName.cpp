// SPDX-License-Identifier: MIT
#include "version/FileName.h"

#include "platform/memory.h"

namespace kel {
namespace {

/// A copy of what follows the separator, if anything does.
bool CopyBehind(const char* separator, char** fileNameWithoutPath) {
  if (separator[1] == '\0') return false;
  *fileNameWithoutPath = CopyText(separator + 1);
  return true;
}

}  // namespace

bool ExtractFileName(char* path, char** fileNameWithoutPath, const KeptBlocks& keptBlocks) {
  *fileNameWithoutPath = nullptr;
  if (path == nullptr) return false;
  char* separator = std::strrchr(path, '/');
  if (separator == nullptr) separator = std::strrchr(path, '\\');
  if (separator == nullptr) {
    *fileNameWithoutPath = CopyText(path);
    return true;
  }
  if (separator[1] != '\0') return CopyBehind(separator, fileNameWithoutPath);
  // The path is cut and the copy is searched, which was made before: it ends in the separator still.
  const auto scratch = keptBlocks.hold(CopyText(path));
  const char* scratchSeparator = scratch.get() + (separator - path);
  *separator = '\0';
  return CopyBehind(scratchSeparator, fileNameWithoutPath);
}

}  // namespace kel
