// Version control. The library does not offer it yet: a check of a version fails, and so does an engine that wants one.
#include "engine/BrelEngine.h"

namespace kel {

Status BrelEngine::ValidateVersion(char*, const void*, std::uint32_t, void*, const char*) { return kStatusFailed; }

bool BrelEngine::InitVersioningSupport() { return false; }

}  // namespace kel
