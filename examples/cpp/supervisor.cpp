// SPDX-License-Identifier: MIT
// A supervisor: keeps 60 tasks under way beside a stream and broadcasts, and goes on when the link has been lost.
//     cpp_supervisor [TASKS]      until so many tasks have been answered
#include <cstdlib>
#include <deque>
#include <iostream>
#include <string>
#include <thread>

#include "kel/client.hpp"

int main(int argc, char** argv) {
  using namespace std::chrono_literals;
  const std::uint32_t count = argc > 1 ? static_cast<std::uint32_t>(std::stoul(argv[1])) : 1000;

  kel::Options options;
  options.timeout = 20s;                                            // of each call, with all reconnects within it
  options.supervision.heartbeat = "TASK_ID_APPLICATION_DEBUG_VAL";  // if nothing else comes
  options.supervision.interval = 200ms;
  options.supervision.reconnect = true;
  options.onState = [](const kel::StateChange& change) { std::cout << change.state << std::endl; };
  kel::Client device = kel::Client::begin(options);  // Calls wait until it is connected.

  const kel::Subscription broadcasts = device.broadcasts([](const kel::Broadcast&) { /* what the device tells */ });

  // A stream ends with its link. Then it is opened again.
  std::thread follower([&device] {
    while (device.state() != kel::State::closed) {
      auto stream = device.stream(kel::tasks::TASK_ID_APPLICATION_DEBUG_STREAMER, {1000000, 5, 0});
      if (!stream) {
        std::this_thread::sleep_for(100ms);
        continue;
      }
      for (const kel::Message& message : *stream) (void)message;  // what the device measures
    }
  });

  // What is under way when the link is lost is sent again: these tasks may be carried out twice.
  kel::CallOptions repeatable;
  repeatable.repeatable = true;
  std::deque<kel::Call> calls;
  std::uint32_t answered = 0;
  for (std::uint32_t i = 0; i < count || !calls.empty();) {
    if (i < count) calls.push_back(device.start(kel::tasks::TASK_ID_APPLICATION_DEBUG_VAL, {i++, 0, 0}, repeatable));
    if (i < count && calls.size() < 60) continue;
    if (const auto answer = calls.front().get()) ++answered;
    calls.pop_front();
  }

  const kel::Statistics counts = device.statistics();
  device.close();
  follower.join();
  std::cout << answered << " of " << count << " tasks answered, " << counts.streamMessages << " messages, "
            << counts.broadcasts << " broadcasts, " << counts.losses << " losses\n";
  return answered == count ? EXIT_SUCCESS : EXIT_FAILURE;
}
