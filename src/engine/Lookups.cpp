// SPDX-License-Identifier: MIT
// Names for numbers: TUIs of tasks, texts of statuses.
#include "engine/BrelEngine.h"
#include "platform/memory.h"

namespace kel {
namespace {

Status CopyOut(const char* found, char** text) {
  if (found == nullptr) return kStatusFailed;
  *text = CopyText(found);
  return kStatusOk;
}

}  // namespace

Status BrelEngine::BrelFindTuiByName(const char* name, std::uint32_t* tui) {
  // An unknown name is no failure: the caller tests the TUI, and no task has TUI 0.
  mTUIsList.FindTuiByName("BrelFindTuiByName", name != nullptr ? name : "", tui);
  return kStatusOk;
}

Status BrelEngine::GetStatusString(std::uint32_t code, char** text) { return CopyOut(StatusText(code), text); }

Status BrelEngine::GetCallbackStatusString(std::uint32_t code, char** text) {
  return CopyOut(CallbackStatusText(code), text);
}

}  // namespace kel
