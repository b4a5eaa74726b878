// SPDX-License-Identifier: MIT
// Shared libraries; error numbers and their words.
#include <dlfcn.h>

#include <system_error>

#include "platform/platform.h"
#include "platform/posix/errors.h"

namespace kel::platform {

using namespace posix;

namespace {

thread_local constinit std::uint32_t tLastError = 0;

}  // namespace

void posix::setLastError(std::uint32_t error) { tLastError = error; }

// dlopen() searches the RUNPATH of the object that calls it. This file is linked into the one whose RUNPATH counts.
Module loadLibrary(const char* name) {
  Module const library = dlopen(("lib" + std::string(name) + ".so").c_str(), RTLD_NOW);
  if (!library) setLastError(kModuleNotFound);
  return library;
}

Symbol findSymbol(Module library, const char* name) {
  void* const symbol = library ? dlsym(library, name) : nullptr;
  if (!symbol) setLastError(kSymbolNotFound);
  return reinterpret_cast<Symbol>(symbol);
}

bool freeLibrary(Module library) { return (library && dlclose(library) == 0) || fail(kInvalidHandle); }

std::uint32_t lastError() { return tLastError; }

std::string errorText(std::uint32_t error) {
  switch (error) {
    case kFileNotFound:
      return "No such file, key or value";
    case kTooManyHandles:
      return "Too many open handles";
    case kInvalidHandle:
      return "The handle is invalid";
    case kOutOfMemory:
      return "Not enough memory or threads";
    case kInvalidData:
      return "The data is invalid";
    case kInvalidParameter:
      return "The parameter is incorrect";
    case kModuleNotFound:
      return "The library, or one that it needs, was not found";
    case kSymbolNotFound:
      return "The library has no such symbol";
    case kNotOwner:
      return "The mutex is owned by another thread";
    case kResourceNotFound:
      return "There is no such resource";
    default:
      return std::generic_category().message(static_cast<int>(error));
  }
}

}  // namespace kel::platform
