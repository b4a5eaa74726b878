// SPDX-License-Identifier: MIT
// Calls DllMain where no loader does: once the library is mapped, and before it is unmapped. Compiled into the shared
// library alone.
#include <cstdint>

extern "C" int DllMain(void* module, std::uint32_t reason, void* reserved);

namespace {

constexpr std::uint32_t kProcessDetach = 0;
constexpr std::uint32_t kProcessAttach = 1;

[[gnu::constructor]] void attach() { DllMain(nullptr, kProcessAttach, nullptr); }

[[gnu::destructor]] void detach() { DllMain(nullptr, kProcessDetach, nullptr); }

}  // namespace
