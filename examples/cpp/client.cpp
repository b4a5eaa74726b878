// SPDX-License-Identifier: MIT
// A client in C++: each way to speak with the device once.
#include <future>
#include <iostream>

#include "kel/client.hpp"

namespace {

namespace tasks = kel::tasks;

void waitForAnAnswer(kel::Client& device) {
  const auto values = device.task(tasks::TASK_ID_APPLICATION_DEBUG_VAL, {7, 8, 9}).value().values().value();
  std::cout << "values: " << values[0] << ' ' << values[1] << ' ' << values[2] << '\n';

  const kel::Payload text = device.task(tasks::TASK_ID_APPLICATION_DEBUG_REF, "hello").value();
  std::cout << "text: " << text.text() << '\n';
}

// Both are under way at once.
void sendAndGoOn(kel::Client& device) {
  const kel::Call first = device.start(tasks::TASK_ID_APPLICATION_DEBUG_VAL, {1, 0, 0});
  std::promise<kel::Values> second;
  device.start(tasks::TASK_ID_APPLICATION_DEBUG_VAL, {2, 0, 0}, [&](const kel::Result<kel::Payload>& answer) {
    second.set_value(answer ? answer->values().value() : kel::Values{});
  });
  std::cout << "answers: " << first.get().value().values().value()[0] << " and " << second.get_future().get()[0]
            << '\n';
}

void followAStream(kel::Client& device) {
  kel::Stream stream = device.stream(tasks::TASK_ID_APPLICATION_DEBUG_STREAMER, {3, 10, 0}).value();
  for (const kel::Message& message : stream) {
    if (!message.isLast) std::cout << "message " << message.values().value()[0] << '\n';
  }
  std::cout << "the stream has " << stream.reason() << '\n';
}

void listen(kel::Client& device) {
  kel::Subscription heard = device.broadcasts();
  device.task(tasks::TASK_ID_APPLICATION_DEBUG_BROADCASTER, {1, 0, 0}).value();
  if (const auto broadcast = heard.next(std::chrono::seconds(10))) {
    std::cout << "broadcast: " << broadcast->task << ", " << broadcast->size() << " bytes\n";
  }
}

void askInVain(kel::Client& device) {
  const kel::Result<kel::Payload> answer = device.task("NO_SUCH_TASK");
  if (!answer) std::cout << answer.error() << '\n';
}

}  // namespace

int main() {
  try {
    kel::Client device = kel::Client::connect().value();
    waitForAnAnswer(device);
    sendAndGoOn(device);
    followAStream(device);
    listen(device);
    askInVain(device);
    return 0;
  } catch (const kel::Exception& error) {  // What value() throws. The client is closed by now.
    std::cerr << error.what() << '\n';
    return 1;
  }
}
