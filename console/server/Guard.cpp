// SPDX-License-Identifier: MIT
#include "Guard.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <random>
#include <string_view>
#include <utility>

#include "Json.h"

namespace kel::console {
namespace {

constexpr std::string_view kCookie = "kelconsole=";
constexpr std::string_view kBearer = "Bearer ";

std::string randomText() {
  std::random_device random;
  std::array<std::uint32_t, 8> words{};
  for (std::uint32_t& word : words) word = random();
  return hexOf({words.data(), sizeof words});
}

bool areEqual(std::string_view one, std::string_view other) {
  unsigned difference = one.size() == other.size() ? 0 : 1;
  for (std::size_t i = 0; i < one.size(); ++i) {
    difference |= static_cast<unsigned>(one[i] ^ other[other.empty() ? 0 : i % other.size()]);
  }
  return difference == 0;
}

std::string lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

std::string cookieOf(const std::string& header) {
  std::string_view rest = header;
  while (!rest.empty()) {
    const std::size_t end = rest.find(';');
    std::string_view pair = rest.substr(0, end);
    pair.remove_prefix(std::min(pair.find_first_not_of(' '), pair.size()));
    if (pair.substr(0, kCookie.size()) == kCookie) return std::string(pair.substr(kCookie.size()));
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
  return {};
}

}  // namespace

Guard::Guard(bool isSecure, const std::vector<std::string>& names, int port, std::string token)
    : mScheme(isSecure ? "https://" : "http://"), mToken(std::move(token)), mSession(randomText()) {
  for (const std::string& name : names) {
    mHosts.push_back(lower(name) + ':' + std::to_string(port));
    if (port == (isSecure ? 443 : 80)) mHosts.push_back(lower(name));
  }
}

std::optional<Refusal> Guard::check(const Incoming& request) const {
  const std::string host = lower(request.host);
  if (std::find(mHosts.begin(), mHosts.end(), host) == mHosts.end()) {
    return Refusal{403, "the console does not go by the name in the request's Host header"};
  }
  if (!request.origin.empty() && lower(request.origin) != mScheme + host) {
    return Refusal{403, "the request comes from a page of another site"};
  }
  // Links of other sites may lead to the page, and no further.
  const bool isOfOwnPage = request.fetchSite == "same-origin" || request.fetchSite == "none";
  if (!request.fetchSite.empty() && !isOfOwnPage && request.path != "/") {
    return Refusal{403, "the request comes from a page of another site"};
  }
  const bool changes = request.method != "GET" && request.method != "HEAD";
  if (changes && request.method != "DELETE" && request.contentType != "application/json") {
    return Refusal{415, "the request's body is not marked as application/json"};
  }
  const bool isOfApi = request.path.rfind("/api/", 0) == 0 && request.path != "/api/session";
  if (isOfApi && asksForToken() && !hasSession(request)) {
    return Refusal{401, "the console's token is missing or wrong"};
  }
  return std::nullopt;
}

bool Guard::isToken(const std::string& text) const { return asksForToken() && areEqual(text, mToken); }

std::string Guard::sessionCookie() const {
  return std::string(kCookie) + mSession + "; Path=/; HttpOnly; SameSite=Strict" +
         (mScheme == "https://" ? "; Secure" : "");
}

bool Guard::hasSession(const Incoming& request) const {
  if (areEqual(cookieOf(request.cookie), mSession)) return true;
  return request.authorization.rfind(kBearer, 0) == 0 && isToken(request.authorization.substr(kBearer.size()));
}

}  // namespace kel::console
