#include "version/Rtv.h"

#include "platform/memory.h"

namespace kel {

std::int32_t RtvValidateVersion(std::uint32_t, const std::uint32_t*, const char*, const void*, std::uint32_t, void*,
                                const char*, std::uint32_t, const char* const*, const std::uint32_t*) {
  return RTV_PASSED;
}

bool ExtractFileName(char* path, char** fileNameWithoutPath) {
  *fileNameWithoutPath = nullptr;
  if (path == nullptr) return false;
  char* separator = std::strrchr(path, '/');
  if (separator == nullptr) separator = std::strrchr(path, '\\');
  if (separator == nullptr) {
    *fileNameWithoutPath = CopyText(path);
    return true;
  }
  if (separator[1] != '\0') {
    *fileNameWithoutPath = CopyText(separator + 1);
    return true;
  }
  // The copy is made ahead of the cut and still ends in the separator, so there is no name to be had from it.
  CopyText(path);
  *separator = '\0';
  return false;
}

}  // namespace kel
