// SPDX-License-Identifier: MIT
#include "Routes.h"

#include <httplib.h>

#include <atomic>
#include <charconv>
#include <stdexcept>

#include "EventStream.h"
#include "Page.h"
#include "Server.h"

namespace kel::console {
namespace {

using httplib::Request;
using httplib::Response;

constexpr char kJson[] = "application/json";

/// A request that cannot be served, with the status of the answer.
class Unserved : public std::runtime_error {
 public:
  Unserved(int status, const std::string& text) : std::runtime_error(text), mStatus(status) {}
  int status() const { return mStatus; }

 private:
  const int mStatus;
};

void answer(Response& response, const Json& json, int status = 200) {
  response.status = status;
  response.set_content(textOf(json), kJson);
}

Json bodyOf(const Request& request) {
  Json body = Json::parse(request.body, nullptr, false);
  if (!body.is_object()) throw Unserved(400, "the request's body is no JSON object");
  return body;
}

/// The device that a request is about.
std::shared_ptr<Console> consoleOf(const Request& request, Consoles& consoles) {
  auto console = consoles.find(request.get_param_value("device"));
  if (!console) throw Unserved(404, console.error().subject);
  return *std::move(console);
}

std::uint64_t numberIn(const Request& request) {
  const std::string text = request.matches[1];
  std::uint64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

Octets payloadOf(const Json& body) {
  if (body.contains("values")) {
    const Json& values = body["values"];
    Octets octets;
    if (!values.is_array() || values.size() != std::tuple_size_v<Values>) {
      throw Unserved(400, "\"values\" are not three numbers");
    }
    for (const Json& value : values) {
      if (!value.is_number_unsigned() || value.get<std::uint64_t>() > UINT32_MAX) {
        throw Unserved(400, "\"values\" are not three numbers from 0 to 4294967295");
      }
      const auto word = value.get<std::uint32_t>();
      const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&word);
      octets.insert(octets.end(), bytes, bytes + sizeof word);
    }
    return octets;
  }
  if (!body.contains("hex")) return {};
  const auto octets = body["hex"].is_string() ? fromHex(body["hex"].get<std::string>()) : std::nullopt;
  if (!octets) throw Unserved(400, "\"hex\" is not made of pairs of hexadecimal digits");
  return *octets;
}

Order orderOf(const Request& request, const Device& device) {
  const Json body = bodyOf(request);
  Order order;
  if (!body.contains("task") || !body["task"].is_string()) throw Unserved(400, "\"task\" is no name");
  order.task = body["task"];
  order.form = device.formOf(order.task);
  order.payload = payloadOf(body);
  order.timeout = device.settings().timeout;
  if (body.contains("timeout")) {
    const Json& timeout = body["timeout"];
    if (!timeout.is_number() || timeout.get<double>() <= 0 || timeout.get<double>() > 3600000) {
      throw Unserved(400, "\"timeout\" is no time from 1 to 3600000 milliseconds");
    }
    order.timeout = Milliseconds(timeout.get<std::int64_t>());
  }
  if (body.contains("wantsAnswer")) {
    if (!body["wantsAnswer"].is_boolean()) throw Unserved(400, "\"wantsAnswer\" is neither true nor false");
    order.wantsAnswer = body["wantsAnswer"];
  }
  return order;
}

std::string textIn(const Request& request) {
  const Json body = bodyOf(request);
  if (!body.contains("text") || !body["text"].is_string()) throw Unserved(400, "\"text\" is missing");
  return body["text"];
}

void sendBytes(Response& response, const std::string& name, Bytes bytes) {
  response.set_header("Content-Disposition", "attachment; filename=\"" + name + '"');
  response.set_content(reinterpret_cast<const char*>(bytes.data()), bytes.size(), "application/octet-stream");
}

// ---- By subject ----

void addGuard(httplib::Server& server, const Guard& guard) {
  server.set_default_headers(
      {{"Content-Security-Policy",
        "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src data:; base-uri 'none'; "
        "form-action 'none'; frame-ancestors 'none'"},
       {"X-Content-Type-Options", "nosniff"},
       {"Referrer-Policy", "no-referrer"},
       {"Cache-Control", "no-store"}});
  server.set_pre_routing_handler([&guard](const Request& request, Response& response) {
    const auto refusal =
        guard.check({request.method, request.path, request.get_header_value("Host"), request.get_header_value("Origin"),
                     request.get_header_value("Sec-Fetch-Site"), request.get_header_value("Content-Type"),
                     request.get_header_value("Authorization"), request.get_header_value("Cookie")});
    if (!refusal) return httplib::Server::HandlerResponse::Unhandled;
    answer(response, {{"error", refusal->text}}, refusal->status);
    return httplib::Server::HandlerResponse::Handled;
  });
  server.set_exception_handler([](const Request&, Response& response, std::exception_ptr thrown) {
    try {
      std::rethrow_exception(thrown);
    } catch (const Unserved& fault) {
      answer(response, {{"error", fault.what()}}, fault.status());
    } catch (const std::exception& fault) {
      answer(response, {{"error", fault.what()}}, 500);
    }
  });
  server.set_error_handler([](const Request&, Response& response) {
    if (response.body.empty()) answer(response, {{"error", "there is nothing here"}}, response.status);
  });
  server.Post("/api/session", [&guard](const Request& request, Response& response) {
    const Json body = bodyOf(request);
    if (!body.contains("token") || !body["token"].is_string() || !guard.isToken(body["token"])) {
      throw Unserved(401, "the console's token is missing or wrong");
    }
    response.set_header("Set-Cookie", guard.sessionCookie());
    response.status = 204;
  });
}

void addPage(httplib::Server& server) {
  for (const PageFile& file : pageFiles()) {
    server.Get(file.path, [file](const Request&, Response& response) {
      response.set_content(file.content.data(), file.content.size(), file.type);
    });
  }
}

/// So many pages at once get events, whatever they look at.
class EventStreams {
 public:
  /// `kept` is kept until the page has gone.
  void begin(Response& response, const Journal& journal, std::function<Json()> snapshot, std::shared_ptr<void> kept) {
    const std::shared_ptr<void> place(nullptr, [count = mCount](void*) { --*count; });
    if (++*mCount > kMostEventStreams) {
      response.set_header("Retry-After", "5");
      throw Unserved(503, "too many pages look at this console; close one of them");
    }
    const auto events = std::make_shared<EventStream>(journal, std::move(snapshot));
    response.set_chunked_content_provider(
        "text/event-stream", [events, place, kept = std::move(kept)](std::size_t, httplib::DataSink& sink) {
          const std::string text = events->next();
          return !text.empty() && sink.write(text.data(), text.size());
        });
  }

 private:
  const std::shared_ptr<std::atomic<int>> mCount = std::make_shared<std::atomic<int>>(0);
};

void addTasks(httplib::Server& server, Consoles& consoles, const std::shared_ptr<EventStreams>& streams) {
  server.Get("/api/events", [&consoles, streams](const Request& request, Response& response) {
    const auto console = consoleOf(request, consoles);
    streams->begin(
        response, console->journal, [console] { return console->snapshot(); }, nullptr);
  });
  server.Get("/api/device", [&consoles](const Request& request, Response& response) {
    answer(response, consoleOf(request, consoles)->snapshot());
  });
  server.Get("/api/about", [&consoles](const Request& request, Response& response) {
    answer(response, consoleOf(request, consoles)->about());
  });
  server.Put("/api/link", [&consoles](const Request& request, Response& response) {
    const Json body = bodyOf(request);
    if (!body.contains("connected") || !body["connected"].is_boolean()) {
      throw Unserved(400, "\"connected\" is neither true nor false");
    }
    const auto console = consoleOf(request, consoles);
    if (body["connected"]) {
      console->device.connect();
    } else {
      console->device.disconnect();
    }
    response.status = 204;
  });
  server.Post("/api/calls", [&consoles](const Request& request, Response& response) {
    const auto console = consoleOf(request, consoles);
    answer(response, {{"id", console->device.send(orderOf(request, console->device))}}, 202);
  });
  server.Post(R"(/api/calls/(\d{1,18})/again)", [&consoles](const Request& request, Response& response) {
    const auto console = consoleOf(request, consoles);
    const auto order = console->calls.order(numberIn(request));
    if (!order) throw Unserved(404, "the history has no such call any more");
    answer(response, {{"id", console->device.send(*order)}}, 202);
  });
  server.Get(R"(/api/calls/(\d{1,18})/answer)", [&consoles](const Request& request, Response& response) {
    const auto payload = consoleOf(request, consoles)->calls.answer(numberIn(request));
    if (!payload) throw Unserved(404, "the history has no answer of this call");
    sendBytes(response, "answer-" + request.matches[1].str() + ".bin", payload->bytes());
  });
}

void addStreams(httplib::Server& server, Consoles& consoles) {
  server.Post("/api/streams", [&consoles](const Request& request, Response& response) {
    const auto console = consoleOf(request, consoles);
    const auto stream = console->device.openStream(orderOf(request, console->device));
    if (!stream) {
      answer(response, {{"error", stream.error().text()}, {"cause", word(stream.cause())}}, 409);
    } else {
      answer(response, {{"id", *stream}}, 201);
    }
  });
  server.Delete(R"(/api/streams/(\d{1,18}))", [&consoles](const Request& request, Response& response) {
    if (!consoleOf(request, consoles)->device.stopStream(numberIn(request))) {
      throw Unserved(404, "there is no such stream, or it has ended");
    }
    response.status = 204;
  });
}

void addScenario(httplib::Server& server, Consoles& consoles) {
  const auto standInOf = [&consoles](const Request& request) -> StandIn& {
    const auto console = consoleOf(request, consoles);
    if (!console->hasStandIn()) throw Unserved(409, "only the stand-in device of this host has a scenario");
    return console->standIn;  // that of --device, which stays
  };
  server.Get("/api/scenario",
             [standInOf](const Request& request, Response& response) { answer(response, standInOf(request).json()); });
  server.Post("/api/scenario/check", [standInOf](const Request& request, Response& response) {
    answer(response, {{"mistakes", standInOf(request).check(textIn(request))}});
  });
  server.Put("/api/scenario", [&consoles, standInOf](const Request& request, Response& response) {
    const std::string text = textIn(request);
    const Json mistakes = standInOf(request).apply(text);
    if (!mistakes.empty()) return answer(response, {{"mistakes", mistakes}}, 422);
    consoleOf(request, consoles)->device.connect();
    response.status = 204;
  });
}

void addFleet(httplib::Server& server, Consoles& consoles, const std::shared_ptr<EventStreams>& streams) {
  server.Get("/api/fleet", [&consoles](const Request&, Response& response) {
    answer(response, consoles.site() != nullptr ? consoles.site()->json() : Json{{"uri", nullptr}});
  });
  const auto siteOf = [&consoles]() -> Fleet& {
    if (consoles.site() == nullptr) throw Unserved(409, "this console shows one device, and no site");
    return *consoles.site();
  };
  server.Get("/api/fleet/events", [siteOf, streams](const Request&, Response& response) {
    Fleet& site = siteOf();
    streams->begin(
        response, site.journal, [&site] { return site.json(); }, site.look());
  });
  static constexpr char kReservation[] = "/api/fleet/reservations/([A-Za-z0-9_-]{1,64})";
  server.Put(kReservation, [&consoles, siteOf](const Request& request, Response& response) {
    siteOf();
    if (const auto reserved = consoles.reserve(request.matches[1]); !reserved) {
      const Error& error = reserved.error();
      const std::string text = error.cause == Cause::reserved ? "it is reserved for " + error.subject : error.subject;
      return answer(response, {{"error", text}, {"cause", word(error.cause)}}, 409);
    }
    response.status = 204;
  });
  server.Delete(kReservation, [&consoles, siteOf](const Request& request, Response& response) {
    siteOf();
    if (!consoles.release(request.matches[1])) throw Unserved(404, "this console has not reserved this device");
    response.status = 204;
  });
}

}  // namespace

void addRoutes(httplib::Server& server, Consoles& consoles, const Guard& guard) {
  const auto streams = std::make_shared<EventStreams>();
  addGuard(server, guard);
  addPage(server);
  addTasks(server, consoles, streams);
  addStreams(server, consoles);
  addScenario(server, consoles);
  addFleet(server, consoles, streams);
}

}  // namespace kel::console
