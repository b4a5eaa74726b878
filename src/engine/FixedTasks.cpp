// The engine's own tasks for the driver's trace and statistics services. The library does not offer them yet.
#include "engine/BrelEngine.h"

namespace kel {

Status BrelEngine::GetTraceFilePath(char**) { return kStatusFailed; }
Status BrelEngine::SetTraceFilePath(const char*) { return kStatusFailed; }
Status BrelEngine::GetTraceSeverityMultiple(std::uint8_t**, std::uint32_t*) { return kStatusFailed; }
Status BrelEngine::SetTraceSeverityMultiple(const std::uint8_t*) { return kStatusFailed; }
Status BrelEngine::GetAllStatistics(std::uint8_t**, std::uint32_t*) { return kStatusFailed; }
Status BrelEngine::ResetStatisticsBuffer() { return kStatusFailed; }

}  // namespace kel
