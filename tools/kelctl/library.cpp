// SPDX-License-Identifier: MIT
// The library's functions, from a library that is loaded at their first call and not by the system's loader ahead of
// the program. So what needs no library works without one, and a pipe library that does not go with it is told of in
// words.
#include <array>
#include <string>

#include "KELHandler.h"
#include "platform/libraries.h"
#include "status.h"

namespace kelctl {
namespace {

/// What KELHandler takes from its pipe library.
constexpr std::array kPipeFunctions{"SLUICE_HUB_Init",
                                    "SLUICE_HUB_Finalize",
                                    "SLUICE_HUB_RegisterCtrlStatusUpdatesCB",
                                    "SLUICE_HUB_UnregisterCtrlStatusUpdatesCB",
                                    "SLUICE_HUB_GetCtrlStatus",
                                    "SLUICE_HUB_SetConnParams",
                                    "IsVersionValidationEnabled",
                                    "ValidateVersion",
                                    "Beacon_WriteTrace"};

/// Why KELHandler could not be loaded; `words` are the system's.
std::string whyNot(const std::string& words) {
  const std::string name = pipeLibraryName();
  const std::string file = findPipeLibrary();
  Library const pipeLibrary = loadPipeLibrary();
  if (pipeLibrary == nullptr) {
    if (file.empty()) return "there is no pipe library " + name + ": put it beside KELHandler.";
    return file + " is no library that can be loaded here: " + loaderWords() + '.';
  }
  std::string missing;
  for (const char* function : kPipeFunctions) {
    if (findFunction(pipeLibrary, function) == nullptr)
      missing += (missing.empty() ? "" : ", ") + std::string(function);
  }
  if (missing.empty()) return "KELHandler cannot be loaded: " + words;
  return (file.empty() ? name : file) + " is not the pipe library that KELHandler was made for. It lacks\n" + missing +
         '.';
}

Library library() {
  static Library const library = [] {
    Library const loaded = loadKelHandler();
    if (loaded == nullptr) throw Fault(kNoLink, whyNot(loaderWords()));
    return loaded;
  }();
  return library;
}

template <class Function>
Function* exported(Function*, const char* name) {
  void* const function = findFunction(library(), name);
  if (function == nullptr) throw Fault(kNoLink, std::string("this KELHandler is another one: it lacks ") + name + '.');
  return reinterpret_cast<Function*>(function);
}

}  // namespace
}  // namespace kelctl

#define KELCTL_FORWARD(result, name, parameters, arguments)       \
  result name parameters {                                        \
    static auto* const function = kelctl::exported(&name, #name); \
    return function arguments;                                    \
  }

KELCTL_FORWARD(uint32_t, KEL_Init, (), ())
KELCTL_FORWARD(uint32_t, KEL_Finalize, (), ())
KELCTL_FORWARD(VersionArray, KEL_GetVersion, (), ())
KELCTL_FORWARD(uint32_t, KEL_Connect, (const char* table, KEL_BroadcastCallback callback, uint64_t* conn),
               (table, callback, conn))
KELCTL_FORWARD(uint32_t, KEL_Disconnect, (uint64_t conn), (conn))
KELCTL_FORWARD(uint32_t, KEL_SendReceiveKEL,
               (uint64_t conn, const char* task, uint32_t commandID, const void* input, uint32_t inputSize,
                void** result, uint32_t* resultSize, KEL_StreamCallback callback),
               (conn, task, commandID, input, inputSize, result, resultSize, callback))
KELCTL_FORWARD(uint32_t, KEL_SendReceiveAsyncKEL,
               (uint64_t conn, const char* task, uint32_t commandID, const void* input, uint32_t inputSize,
                uint32_t* number, KEL_AsyncCallback callback, KEL_StreamCallback streamCallback),
               (conn, task, commandID, input, inputSize, number, callback, streamCallback))
KELCTL_FORWARD(uint32_t, KEL_SendReceiveAsyncKELEx,
               (uint64_t conn, const char* task, uint32_t commandID, const void* input, uint32_t inputSize,
                uint32_t seqTUI, uint32_t responseExpected, uint32_t* number, KEL_AsyncCallback callback,
                KEL_StreamCallback streamCallback),
               (conn, task, commandID, input, inputSize, seqTUI, responseExpected, number, callback, streamCallback))
KELCTL_FORWARD(uint32_t, KEL_RegisterCtrlStatusUpdatesCB, (KEL_CtrlStatusCallback callback), (callback))
KELCTL_FORWARD(uint32_t, KEL_UnregisterCtrlStatusUpdatesCB, (KEL_CtrlStatusCallback callback), (callback))
KELCTL_FORWARD(uint32_t, KEL_GetCtrlStatus, (), ())
KELCTL_FORWARD(uint32_t, KEL_SetConnParams, (uint64_t parameters, uint32_t value), (parameters, value))
KELCTL_FORWARD(uint32_t, KEL_ValidateVersion,
               (uint64_t conn, char* file, const void* content, uint32_t size, void* userVersion, const char* vectors),
               (conn, file, content, size, userVersion, vectors))

#undef KELCTL_FORWARD
