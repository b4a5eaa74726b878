// SPDX-License-Identifier: MIT
#include "platform/pipe_library.h"

#include <dlfcn.h>
#include <link.h>

namespace kelctl {
namespace {

/// A handle that needs no closing: the library stays loaded as long as KELHandler does.
void* loaded() {
  void* const library = dlopen("libSluiceHub.so", RTLD_LAZY | RTLD_NOLOAD);
  if (library != nullptr) dlclose(library);
  return library;
}

}  // namespace

std::string pipeLibraryFile() {
  void* const library = loaded();
  link_map* map = nullptr;
  if (library == nullptr || dlinfo(library, RTLD_DI_LINKMAP, &map) != 0) return {};
  return map->l_name;
}

bool isStandIn() {
  void* const library = loaded();
  return library != nullptr && dlsym(library, "SluiceHubSim_Reset") != nullptr;
}

}  // namespace kelctl
