// SPDX-License-Identifier: MIT
#include "Hub.h"

#include <algorithm>
#include <cstring>

namespace kel::sim {
namespace {

constexpr std::size_t kMostSpares = 64;
/// A spare with a larger body gives it back.
constexpr std::size_t kLargestSpareBody = 16384;

}  // namespace

Hub& TheHub() {
  static Hub* hub = new Hub;
  return *hub;
}

std::shared_ptr<Connection> Hub::Find(std::uint64_t value) const {
  for (const auto& connection : connections) {
    if (connection->Value() == value) return connection;
  }
  return nullptr;
}

std::vector<std::shared_ptr<Connection>> Hub::Select(std::uint64_t value) const {
  if (value == 0) return connections;
  if (auto connection = Find(value)) return {std::move(connection)};
  return {};
}

void Hub::FreeSocketsOf(std::uint64_t connection) {
  std::replace(socketOwners.begin(), socketOwners.end(), connection, std::uint64_t{0});
}

std::unique_ptr<Delivery> Hub::NewDelivery(Delivery::Kind kind, std::uint32_t ID, std::uint32_t delayMs) {
  std::unique_ptr<Delivery> delivery;
  if (mSpares.empty()) {
    delivery = std::make_unique<Delivery>();
  } else {
    delivery = std::move(mSpares.back());
    mSpares.pop_back();
  }
  delivery->kind = kind;
  delivery->ID = ID;
  delivery->due = Clock::now() + std::chrono::milliseconds(delayMs);
  delivery->holdBack = 0;
  delivery->completion = nullptr;
  return delivery;
}

void Hub::Recycle(std::unique_ptr<Delivery> delivery) {
  if (mSpares.size() == kMostSpares || delivery->body.capacity() > kLargestSpareBody) return;
  if (delivery->kind == Delivery::Kind::kSeries) delivery->series = {};
  mSpares.push_back(std::move(delivery));
}

void Hub::Log(std::uint64_t connection, const Message& message) {
  LoggedMessage& logged = mLog[counts.messages % mLog.size()];
  logged.head = {connection, message.agent, message.ID, static_cast<std::uint32_t>(message.body.size())};
  logged.body.assign(message.body.begin(), message.body.end());
  ++counts.messages;
  if (message.agent == L5_AGENT_L4MSGPROXY) {
    ++counts.requests;
    counts.requestBytes += message.body.size();
  }
  NotifyWaiters();
}

bool Hub::GetLogged(std::uint64_t index, SluiceHubSimRequest* request, std::span<std::uint8_t> body) const {
  if (index == SLUICEHUBSIM_LAST) index = counts.messages - 1;
  if (index >= counts.messages || counts.messages - index > mLog.size()) return false;
  const LoggedMessage& logged = mLog[index % mLog.size()];
  if (request != nullptr) *request = logged.head;
  const std::size_t size = std::min(body.size(), logged.body.size());
  if (size != 0) std::memcpy(body.data(), logged.body.data(), size);
  return true;
}

void Hub::Reset() {
  rules.Clear();
  scenario = {};
  device.Reset();
  socketReply.reset();
  counts = {};
}

}  // namespace kel::sim
