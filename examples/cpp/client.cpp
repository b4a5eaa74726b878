// A client in C++: each way to speak with the device once.
#include <exception>
#include <future>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>

#include "KELHandler.hpp"

namespace {

using kelhandler::Connection;
using kelhandler::Message;
using kelhandler::Values;

void waitForAnAnswer(Connection& device) {
  const kelhandler::Answer values = device.send("TASK_ID_APPLICATION_DEBUG_VAL", Values{7, 8, 9});
  std::cout << "values: " << values.values()[0] << ' ' << values.values()[1] << ' ' << values.values()[2] << '\n';

  const kelhandler::Answer text = device.send("TASK_ID_APPLICATION_DEBUG_REF", "hello");
  std::cout << "text: " << text.text() << '\n';
}

// The answer may come when this function is left: what the callback uses has to live that long.
std::future<std::uint32_t> sendAndGoOn(Connection& device, std::uint32_t number) {
  const auto answer = std::make_shared<std::promise<std::uint32_t>>();
  device.sendAsync("TASK_ID_APPLICATION_DEBUG_VAL", Values{number}, [answer](const Message* message) {
    answer->set_value(message != nullptr ? message->payload.values()[0] : 0);
  });
  return answer->get_future();
}

void followAStream(Connection& device) {
  const auto end = std::make_shared<std::promise<void>>();
  device.stream("TASK_ID_APPLICATION_DEBUG_STREAMER", Values{3, 10}, [end](const Message& message) {
    if (message.isLast) return end->set_value();
    std::cout << "message " << message.payload.values()[0] << '\n';
  });
  end->get_future().wait();
}

void askInVain(Connection& device) {
  try {
    device.send("NO_SUCH_TASK");
  } catch (const kelhandler::Error& error) {
    std::cout << "refused: " << error.what() << '\n';
  }
}

}  // namespace

int main() {
  try {
    const kelhandler::Library library;
    std::promise<std::string> heard;  // Ahead of the connection, and so alive as long as its callbacks.
    Connection device([&heard](std::string_view task, const Message& message) {
      heard.set_value(std::string(task) + ", " + std::to_string(message.payload.bytes().size()) + " bytes");
    });

    waitForAnAnswer(device);
    std::future<std::uint32_t> first = sendAndGoOn(device, 1), second = sendAndGoOn(device, 2);
    std::cout << "answers: " << first.get() << " and " << second.get() << '\n';
    followAStream(device);
    device.send("TASK_ID_APPLICATION_DEBUG_BROADCASTER", Values{1});
    std::cout << "broadcast: " << heard.get_future().get() << '\n';
    askInVain(device);
    return 0;
  } catch (const std::exception& error) {  // The connection is closed by now.
    std::cerr << error.what() << '\n';
    return 1;
  }
}
