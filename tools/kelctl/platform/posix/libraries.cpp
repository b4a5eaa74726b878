// SPDX-License-Identifier: MIT
#include "platform/libraries.h"

#include <dlfcn.h>
#include <link.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <vector>

namespace kelctl {
namespace {

constexpr char kPipeLibrary[] = "libSluiceHub.so";

/// A handle that needs no closing: the library stays loaded as long as KELHandler does.
Library loadedPipeLibrary() {
  Library const library = dlopen(kPipeLibrary, RTLD_LAZY | RTLD_NOLOAD);
  if (library != nullptr) dlclose(library);
  return library;
}

/// The folders that the loader looks in, as far as they are not the system's.
std::vector<std::filesystem::path> folders() {
  std::vector<std::filesystem::path> folders;
  const char* const path = std::getenv("LD_LIBRARY_PATH");
  std::istringstream words(path != nullptr ? path : "");
  for (std::string word; std::getline(words, word, ':');) folders.emplace_back(word.empty() ? "." : word);
  std::error_code unknown;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", unknown).parent_path();
  folders.push_back(program / "../lib");
  folders.push_back(program);
  return folders;
}

}  // namespace

Library loadKelHandler() { return dlopen("libKELHandler.so.4", RTLD_NOW); }
Library loadPipeLibrary() { return dlopen(kPipeLibrary, RTLD_LAZY); }

std::string loaderWords() {
  const char* const words = dlerror();
  if (words == nullptr) return {};
  // "FILE: reason"
  const std::string text = words;
  const std::size_t colon = text.rfind(": ");
  return colon == std::string::npos ? text : text.substr(colon + 2);
}

void* findFunction(Library library, const char* name) { return dlsym(library, name); }

const char* pipeLibraryName() { return kPipeLibrary; }

std::string findPipeLibrary() {
  std::error_code unknown;
  for (const std::filesystem::path& folder : folders()) {
    const std::filesystem::path file = folder / kPipeLibrary;
    if (std::filesystem::exists(file, unknown)) return file.lexically_normal().string();
  }
  return {};
}

std::string pipeLibraryFile() {
  Library const library = loadedPipeLibrary();
  link_map* map = nullptr;
  if (library == nullptr || dlinfo(library, RTLD_DI_LINKMAP, &map) != 0) return {};
  return map->l_name;
}

bool isStandIn() {
  Library const library = loadedPipeLibrary();
  return library != nullptr && dlsym(library, "SluiceHubSim_Reset") != nullptr;
}

}  // namespace kelctl
