/* SPDX-License-Identifier: MIT */
// Who may ask the console for anything.
//
// A page of another site can make a browser send requests to this host, and a name of another site can be made to lead
// here. So each request must name one of the console's own names as its host, and come from a page of the console's own
// if it comes from a page. With a token, whoever has no session must show it; without one everybody on this host may.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kel::console {

/// What of a request counts; empty for a header that it does not have.
struct Incoming {
  std::string method;
  std::string path;
  std::string host;
  std::string origin;
  std::string fetchSite;  ///< Sec-Fetch-Site
  std::string contentType;
  std::string authorization;
  std::string cookie;
};

struct Refusal {
  int status;
  std::string text;
};

/// Constant once made. Every function may be called by any thread.
class Guard {
 public:
  /// `names` may stand in URLs in front of the port, an IPv6 address in brackets. An empty token: none is asked for.
  Guard(bool isSecure, const std::vector<std::string>& names, int port, std::string token);

  std::optional<Refusal> check(const Incoming& request) const;

  bool asksForToken() const { return !mToken.empty(); }
  /// Takes as long for a wrong token as for the right one.
  bool isToken(const std::string& text) const;
  /// The header by which a browser keeps what check() takes for a session.
  std::string sessionCookie() const;

 private:
  bool hasSession(const Incoming& request) const;

  const std::string mScheme;
  std::vector<std::string> mHosts;
  const std::string mToken;
  const std::string mSession;  ///< random, so that the cookie does not tell the token
};

}  // namespace kel::console
