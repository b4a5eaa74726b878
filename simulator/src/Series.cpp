// SPDX-License-Identifier: MIT
#include "Series.h"

#include <algorithm>
#include <cstring>

#include "adapter/TaskRecord.h"

namespace kel::sim {

std::uint8_t* LayOutResponse(std::vector<std::uint8_t>& body, std::uint16_t row, const WireTask& head) {
  body.resize(sizeof(KelResponseHeader) + sizeof(WireTask) + head.payloadSize);
  const KelResponseHeader header{row, {}};
  std::memcpy(body.data(), &header, sizeof header);
  std::memcpy(body.data() + sizeof header, &head, sizeof head);
  return body.data() + sizeof header + sizeof head;
}

std::uint32_t BroadcastWord(std::uint32_t TUI) {
  return MakeSeqTUI((TUI & ~std::uint32_t{0xF000}) | kTargetBroadcast << 12, 0);
}

void Series::LayOutMessage(std::uint16_t row, std::uint32_t seqClass, std::vector<std::uint8_t>& body) const {
  std::uint32_t word = BroadcastWord(TUI);
  if (!isBroadcast) word = MakeSeqTUI(TUI, static_cast<std::uint8_t>(sequenceNumber | seqClass << 6));
  if (payload != nullptr) {
    const auto size = static_cast<std::uint32_t>(payload->bytes.size());
    std::uint8_t* to = LayOutResponse(body, row, WireTask{WithType(word, payload->type), size, seqTUI, {0}});
    std::copy(payload->bytes.begin(), payload->bytes.end(), to);
    return;
  }
  word = WithType(word, payloadSize == 0 ? 0 : kTypeRef);

  const std::uint32_t size = payloadSize == 0 ? kValPayloadSize : payloadSize;
  std::uint8_t* to = LayOutResponse(body, row, WireTask{word, size, seqTUI, {0}});
  for (std::uint32_t i = kValPayloadSize; i < size; ++i) to[i] = static_cast<std::uint8_t>(index + i);
  const std::uint32_t values[] = {index, count, intervalMs};
  std::memcpy(to, values, std::min<std::size_t>(size, sizeof values));
}

bool Series::Next(std::uint16_t row, std::vector<std::uint8_t>& body) {
  if (index < count) {
    LayOutMessage(row, kClassStreamMessage, body);
    ++index;
    return true;
  }
  if (hasEnd) {
    LayOutMessage(row, kClassStreamEnd, body);
    hasEnd = false;
    return true;
  }
  if (!lastAck.empty()) {
    body.swap(lastAck);
    lastAck.clear();
    return true;
  }
  if (afterEnd > 0) {
    --afterEnd;
    LayOutMessage(row, kClassStreamMessage, body);
    return true;
  }
  return false;
}

}  // namespace kel::sim
