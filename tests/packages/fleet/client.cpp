// SPDX-License-Identifier: MIT
// client URI: sends a task to a device, wherever it is.
#include <iostream>
#include <kel/fleet.hpp>
#include <kel/fleet_site.hpp>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  kel::Result<kel::Client> device = kel::fleet::connect(argv[1]);
  const kel::Result<kel::Payload> answer =
      device ? device->task(kel::tasks::TASK_ID_APPLICATION_DEBUG_VAL, {7, 8, 9}) : device.error();
  std::cout << (answer ? "answered" : answer.error().text()) << '\n';
  return 0;
}
