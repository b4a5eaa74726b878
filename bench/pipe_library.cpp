// SPDX-License-Identifier: MIT
// The limits that the pipe library sets: its own calls, made as the library makes them, with nothing around them.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "adapter/L5Records.h"
#include "adapter/SluiceHub.h"
#include "adapter/TaskRecord.h"
#include "client.h"
#include "words.h"

extern "C" kel::tL5DispatcherFunctions* SLUICE_HUB_GetServiceDispatcherFunctions(void);

namespace {

constexpr std::uint32_t kDebugVal = 0x38240;
constexpr std::uint32_t kDebugRef = 0xB8241;
constexpr std::uint32_t kDebugBroadcaster = 0x38242;
constexpr std::uint32_t kDebugStreamer = 0x38243;

bench::Countdown gResponse;

void TakeMessage(std::uint64_t, std::uint32_t, std::uint32_t, const void*, std::uint32_t, std::uint32_t* replyMessageID,
                 void*, std::uint32_t* replySize, void*, void*) {
  *replyMessageID = 0;
  *replySize = 0;
  gResponse.done();
}

void IgnoreEvent(std::uint64_t, std::uint32_t, const std::uint32_t*, const std::uint32_t*) {}

/// A connection with a socket ID, as an adapter has it.
class PipeConnection {
 public:
  PipeConnection() {
    mFunctions->L5Connect(nullptr, TakeMessage, IgnoreEvent, &mRow, 0, &mValue);
    const std::uint8_t row = 0;
    std::uint32_t messageID = 0, size = sizeof mSocket;
    mFunctions->SendReceiveMessage(mValue, kel::L5_AGENT_KELPROXY, kel::KEL_PROXY_L5_MSG_ID_ACQUIRE_SOCKET_ID, &row,
                                   sizeof row, &messageID, &mSocket, &size);
  }
  ~PipeConnection() {
    mFunctions->SendReceiveMessage(mValue, kel::L5_AGENT_KELPROXY,
                                   kel::KEL_PROXY_L5_MSG_ID_RELEASE_SOCKET_ID_INDICATION, &mSocket, sizeof mSocket,
                                   nullptr, nullptr, nullptr);
    mFunctions->L5Disconnect(mValue);
  }
  PipeConnection(const PipeConnection&) = delete;
  PipeConnection& operator=(const PipeConnection&) = delete;

  bool isOpen() const { return mValue != 0 && mSocket != kel::kNoSocket; }

  bool request(const std::vector<std::uint8_t>& body) const {
    kel::KelRequestReply reply{};
    std::uint32_t messageID = 0, size = sizeof reply;
    return mFunctions->SendReceiveMessage(mValue, kel::L5_AGENT_L4MSGPROXY, kel::L4MSGPROXY_L5_MSG_ID_KEL_REQUEST,
                                          body.data(), static_cast<std::uint32_t>(body.size()), &messageID, &reply,
                                          &size) == 0 &&
           messageID == 0 && reply.L4status == 0;
  }

 private:
  kel::tL5DispatcherFunctions* const mFunctions = SLUICE_HUB_GetServiceDispatcherFunctions();
  std::uint32_t mRow = 0;
  std::uint64_t mValue = 0;
  std::uint8_t mSocket = kel::kNoSocket;
};

std::vector<std::uint8_t> RequestBody(std::uint32_t TUI, std::uint32_t payloadSize) {
  kel::KelRequestHeader header{};
  header.opcode = kel::kKelRequestOpcode;
  header.recordSize = static_cast<std::uint16_t>(payloadSize + sizeof(kel::task));
  const kel::WireTask head{TUI, payloadSize, TUI, {1}};
  std::vector<std::uint8_t> body(sizeof header + sizeof head + payloadSize, 0x5A);
  std::memcpy(body.data(), &header, sizeof header);
  std::memcpy(body.data() + sizeof header, &head, sizeof head);
  return body;
}

void PipeLibraryRoundTrip(benchmark::State& state) {
  bench::Connection();
  const PipeConnection connection;
  const auto payloadSize = static_cast<std::uint32_t>(state.range(0));
  const auto body = RequestBody(payloadSize == bench::kValSize ? kDebugVal : kDebugRef, payloadSize);
  for (auto _ : state) {
    gResponse.start(1);
    if (!connection.request(body)) return state.SkipWithError("the request was refused");
    gResponse.wait();
  }
}
BENCHMARK(PipeLibraryRoundTrip)->Arg(bench::kValSize)->Arg(bench::kRefSize)->Iterations(4000)->UseRealTime();

/// Asks for a series, and waits for all of it: so many messages, and what else belongs to it.
void Series(benchmark::State& state, std::uint32_t TUI, std::uint32_t besides) {
  bench::Connection();
  const PipeConnection connection;
  const std::uint32_t series[] = {bench::kSeriesLength, 0, 0};
  auto body = RequestBody(TUI, sizeof series);
  std::memcpy(body.data() + body.size() - sizeof series, series, sizeof series);
  for (auto _ : state) {
    gResponse.start(bench::kSeriesLength + besides);
    if (!connection.request(body)) return state.SkipWithError("the request was refused");
    gResponse.wait();
  }
  state.SetItemsProcessed(state.iterations() * bench::kSeriesLength);
}

/// An acknowledgement, and an end.
void PipeLibraryStream(benchmark::State& state) { Series(state, kDebugStreamer, 2); }
BENCHMARK(PipeLibraryStream)->Iterations(20)->UseRealTime();

/// An answer.
void PipeLibraryBroadcasts(benchmark::State& state) { Series(state, kDebugBroadcaster, 1); }
BENCHMARK(PipeLibraryBroadcasts)->Iterations(20)->UseRealTime();

void PipeLibraryConnect(benchmark::State& state) {
  bench::Connection();
  for (auto _ : state) {
    const PipeConnection connection;
    if (!connection.isOpen()) return state.SkipWithError("the connection was refused");
  }
}
BENCHMARK(PipeLibraryConnect)->Iterations(300)->UseRealTime();

}  // namespace
