// SPDX-License-Identifier: MIT
// The shortest client of the layer for C++17: one task, and its echo.
#include <kel/client.hpp>

int main() {
  kel::Result<kel::Client> device = kel::Client::connect();
  if (!device) return 1;
  const auto answer = device->task(kel::tasks::TASK_ID_APPLICATION_DEBUG_REF, "hello");
  return answer && answer->text() == "hello" ? 0 : 1;
}
