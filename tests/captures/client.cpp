// SPDX-License-Identifier: MIT
// A client whose captures the tests look at: what it does is chosen by a word.
//   client WORD
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include "simulator/Client.h"

namespace kel::sim {
namespace {

constexpr std::uint32_t kUnknownTask = 0x38FFF;
constexpr std::uint32_t kInvalidType = 3u << 19;

void Rule(std::uint32_t flags, std::uint32_t errorCode = 0) {
  SluiceHubSimRule rule{};
  rule.flags = flags;
  rule.errorCode = errorCode;
  rule.times = 1;
  SluiceHubSim_AddRule(&rule);
}

/// The device loses the link. Three sends: one before, two after.
void LostLink() {
  Client client;
  client.Exchange(kDebugVal, {1, 2, 3});
  SluiceHubSim_LoseLink(0, 42, 1);
  for (int i = 0; i < 2; ++i) client.Send(kDebugVal, {1, 2, 3});
}

/// Answers that are wrong in many ways, each under a sequence number of its own, and messages that are none.
void Oddities() {
  Client client;
  const auto deliver = [&](std::uint32_t word, std::uint32_t error, std::uint32_t size) {
    SluiceHubSim_DeliverRecord(client.Connection(), word, error, 0, "abcdefghijklmnop", size, 1);
  };
  Rule(0, 77);
  client.Exchange(kDebugVal, {1, 2, 3});  // an error code
  Rule(SLUICEHUBSIM_DROP);
  client.Send(kDebugVal, {1, 2, 3}, 2);      // no answer
  client.Send(kUnknownTask, {1, 2, 3}, 3);   // refused
  deliver(MakeSeqTUI(kDebugVal, 4), 0, 12);  // an answer to nothing
  client.Send(kDebugRef, ToBytes("one"), 5);
  client.WaitForResponses(3);
  deliver(MakeSeqTUI(kDebugRef, 5), 0, 4);                    // a second answer
  deliver(MakeSeqTUI(kDebugRef | kInvalidType, 5), 0, 4);     // of no type
  deliver(MakeSeqTUI(kDebugVal, 4), 0, 3);                    // a VAL answer that is too short
  deliver(MakeSeqTUI(kDebugRef, 5 | 2 << 6), 0, 4);           // the end of a stream,
  deliver(MakeSeqTUI(kDebugRef, 5 | 1 << 6), 0, 4);           // and a message behind it
  SluiceHubSim_DeliverMessage(0, 1003, "too short", 9, 1);    // no task
  SluiceHubSim_DeliverMessage(0, 4711, "something", 9, 1);    // no message that is known
  client.Ask(L5_AGENT_L4MSGPROXY, 1, ToBytes("no request"));  // refused as malformed
  client.Ask(99, 1, {});                                      // nobody there
  SluiceHubSim_DeliverEvent(0, 5, 6, 1);                      // no event that is known
}

/// A process that ends with a connection open and much on its way to the file.
void LeftOpen() {
  auto* client = new Client;
  client->LeaveOpen();
  for (int i = 0; i < 1000; ++i) client->Send(kDebugVal, {1, 2, 3}, 1, 0);
}

/// A process that is gone at once, when some of it is in the file.
void Gone() {
  Client client;
  for (int i = 0; i < 5000; ++i) client.Send(kDebugVal, {1, 2, 3}, 1, 0);
  while (std::filesystem::file_size("some.pcapng") < 10000) std::this_thread::yield();
  std::_Exit(0);
}

/// Asks for a capture of its own.
void OwnCapture() {
  const std::uint32_t begun = SluiceHubSim_StartCapture("own.pcapng");
  const Client client;
  std::printf("%s\n", begun != 0 ? "begun" : "refused");
}

}  // namespace
}  // namespace kel::sim

int main(int argc, char** argv) {
  const std::map<std::string, std::function<void()>> actions = {{"lost_link", kel::sim::LostLink},
                                                                {"oddities", kel::sim::Oddities},
                                                                {"left_open", kel::sim::LeftOpen},
                                                                {"gone", kel::sim::Gone},
                                                                {"own_capture", kel::sim::OwnCapture}};
  if (argc != 2 || !actions.contains(argv[1])) return 2;
  actions.at(argv[1])();
  return 0;
}
