// SPDX-License-Identifier: MIT
// Built-in resources, under the types and names that they have on Windows.
#include <string_view>

#include "platform/platform.h"
#include "platform/posix/errors.h"

// Defined in resources.S.
extern "C" {
extern const char kel_task_table[], kel_task_table_end[];
extern const char kel_versions_vector[], kel_versions_vector_end[];
}

namespace kel::platform {
namespace {

struct BuiltIn {
  std::string_view type;
  std::string_view name;
  const char* begin;
  const char* end;
};

constexpr BuiltIn kBuiltIn[] = {
    {"TUISFILE", "#101", kel_task_table, kel_task_table_end},
    {"UMVERSIONSVECTOR", "#103", kel_versions_vector, kel_versions_vector_end},
};

}  // namespace

// There is one set of them in the process: that of the binary which this file is linked into.
Resource findResource(Module, const char* name, const char* type) {
  for (const BuiltIn& builtIn : kBuiltIn) {
    if (builtIn.type == type && builtIn.name == name) {
      return {builtIn.begin, static_cast<std::uint32_t>(builtIn.end - builtIn.begin)};
    }
  }
  posix::setLastError(posix::kResourceNotFound);
  return {};
}

}  // namespace kel::platform
