// SPDX-License-Identifier: MIT
// The shortest client in C++: one task, and its echo.
#include <KELHandler.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

int main() {
  std::uint64_t connection = 0;
  if (KEL_Init() != 0 || KEL_Connect(nullptr, nullptr, &connection) != KEL_OK) return 1;
  void* answer = nullptr;
  std::uint32_t size = 0;
  const std::uint32_t result =
      KEL_SendReceiveKEL(connection, "TASK_ID_APPLICATION_DEBUG_REF", 1, "hello", 5, &answer, &size, nullptr);
  const std::unique_ptr<void, decltype(&std::free)> owner(answer, &std::free);
  const bool echoed = result == KEL_OK && size == 5 && std::memcmp(answer, "hello", 5) == 0;
  return echoed && KEL_Disconnect(connection) == KEL_OK && KEL_Finalize() == 0 ? 0 : 1;
}
