// SPDX-License-Identifier: MIT
#include "monitor/screen.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "payload.h"
#include "text_search.h"

namespace kelctl::monitor {
namespace {

constexpr std::size_t kLabelWidth = 10;
constexpr std::size_t kLeastNameWidth = 20;
constexpr const char* kBars[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};

template <class... Arguments>
std::string format(const char* form, Arguments... arguments) {
  char text[200];
  std::snprintf(text, sizeof text, form, arguments...);
  return text;
}

bool beginsCharacter(char byte) { return (byte & 0xC0) != 0x80; }

/// The text cut to so many columns. A character of UTF-8 counts as one column, what is no character as nothing.
std::string cut(const std::string& text, std::size_t columns) {
  std::string result;
  for (const char byte : text) {
    if (beginsCharacter(byte) && columns-- == 0) break;
    result += byte;
  }
  return result;
}

std::string padded(const std::string& text, std::size_t columns) {
  const std::string result = cut(text, columns);
  const auto width = static_cast<std::size_t>(std::count_if(result.begin(), result.end(), beginsCharacter));
  return result + std::string(columns - width, ' ');
}

/// "00:01:23"
std::string lasting(Clock::duration time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time).count();
  return format("%02lld:%02lld:%02lld", static_cast<long long>(seconds / 3600),
                static_cast<long long>(seconds / 60 % 60), static_cast<long long>(seconds % 60));
}

/// "1 loss", "2 losses"
std::string counted(std::uint64_t count, const std::string& one, const std::string& many) {
  return std::to_string(count) + ' ' + (count == 1 ? one : many);
}

std::string rateText(double perSecond) { return format("%.1f/s", perSecond); }

Bytes bytesOf(const kel::Payload& payload) { return {payload.bytes().begin(), payload.bytes().end()}; }

/// What fits into a line: values, a text, or the first bytes.
std::string valueText(const kel::Payload& payload) {
  const Bytes bytes = bytesOf(payload);
  if (payload.form() == kel::Form::val) {
    if (const std::optional<Values> values = toValues(bytes)) return valuesText(*values);
  }
  if (const std::optional<std::string> text = toPlainText(bytes)) {
    return format("%zu bytes  ", bytes.size()) + text->substr(0, text->find_first_of("\r\n"));
  }
  return format("%zu bytes  ", bytes.size()) + toHex(bytes);
}

/// One bar for each second, as high as its median in the range of all. A second without an answer is a blank.
std::string barsOf(const std::vector<std::optional<Clock::duration>>& medians) {
  Clock::duration highest{1};
  for (const auto& median : medians) highest = std::max(highest, median.value_or(Clock::duration{}));
  std::string bars;
  for (const auto& median : medians) {
    bars += median ? kBars[static_cast<std::size_t>(*median * 7 / highest)] : " ";
  }
  return bars;
}

std::string outcomes(const Picture& picture) {
  std::string text = std::to_string(picture.answered) + " answered";
  for (const auto& [cause, count] : picture.failures) text += "  " + std::to_string(count) + ' ' + kel::word(cause);
  if (picture.statistics.lateAnswers != 0) text += "  " + std::to_string(picture.statistics.lateAnswers) + " late";
  return text;
}

std::string latencyText(const Latencies& latencies) {
  if (latencies.empty()) return "no answer yet";
  return "50% " + timeText(latencies.percentile(50)) + "  99% " + timeText(latencies.percentile(99)) + "  longest " +
         timeText(latencies.longest());
}

std::string linkText(const Picture& picture) {
  std::string text = std::string(kel::text(picture.state)) + " for " + lasting(picture.now - picture.since) + "  " +
                     counted(picture.statistics.losses, "loss", "losses") + "  " +
                     counted(picture.statistics.connections, "connection", "connections");
  if (picture.state != kel::State::connected && !picture.reason.empty()) text += "  (" + picture.reason + ')';
  return text;
}

/// Those that the filter lets through, in the order chosen.
std::vector<const Source*> chosen(const std::vector<Source>& sources, const View& view, Clock::time_point now) {
  std::vector<const Source*> result;
  for (const Source& source : sources) {
    if (contains(source.name, view.filter)) result.push_back(&source);
  }
  std::stable_sort(result.begin(), result.end(), [&](const Source* a, const Source* b) {
    switch (view.order) {
      case Order::byRate:
        return a->rate.perSecond(now) > b->rate.perSecond(now);
      case Order::byCount:
        return a->count > b->count;
      case Order::byName:
        break;
    }
    return a->name < b->name;
  });
  return result;
}

const char* streamText(std::optional<kel::End> end) {
  if (!end) return "opening";
  return *end == kel::End::none ? "open" : kel::text(*end);
}

const char* orderText(Order order) {
  switch (order) {
    case Order::byName:
      return "name";
    case Order::byRate:
      return "rate";
    case Order::byCount:
      return "count";
  }
  return "";
}

std::string rowOf(const Source& source, std::size_t nameWidth, const std::string& state, Clock::time_point now) {
  return padded(source.name, nameWidth) + ' ' + padded(state, 10) +
         format(" %9s %9llu  ", rateText(source.rate.perSecond(now)).c_str(),
                static_cast<unsigned long long>(source.count)) +
         (source.count == 0 ? "" : valueText(source.last));
}

/// Where lines go, none wider than the screen.
class Lines {
 public:
  Lines(std::size_t columns, const Output& output) : mColumns(columns), mOutput(output) {}

  void add(const std::string& line) { mLines.push_back(cut(line, mColumns)); }
  void addFaint(const std::string& line) { mLines.push_back(mOutput.faint(cut(line, mColumns))); }
  /// `colour` may be null.
  void addField(const std::string& label, const std::string& text,
                std::string (Output::*colour)(const std::string&) const) {
    const std::size_t width = std::min(kLabelWidth, mColumns);
    const std::string value = cut(text, mColumns - width);
    mLines.push_back(mOutput.faint(padded(label, width)) + (colour == nullptr ? value : (mOutput.*colour)(value)));
  }
  /// Heading and rows, these in `room` lines at most. Without rows it is the word for that.
  template <class StateOf>
  void addTable(const std::string& heading, const std::string& stateHeading, const std::vector<const Source*>& rows,
                const std::string& none, std::size_t room, Clock::time_point now, StateOf stateOf) {
    std::size_t nameWidth = kLeastNameWidth;
    for (const Source* row : rows) nameWidth = std::max(nameWidth, row->name.size());
    nameWidth = std::min(nameWidth, std::max(mColumns / 2, kLeastNameWidth));
    addFaint(padded(heading, nameWidth) + ' ' + padded(stateHeading, 10) +
             format(" %9s %9s  %s", "rate", "count", "last value"));
    if (rows.empty()) add(none);
    const std::size_t shown = rows.size() <= room ? rows.size() : room - 1;
    for (std::size_t i = 0; i < shown; ++i) add(rowOf(*rows[i], nameWidth, stateOf(*rows[i]), now));
    if (shown < rows.size()) add(format("and %zu more", rows.size() - shown));
  }

  std::size_t count() const { return mLines.size(); }
  /// All of them and blank ones, or the first of them.
  std::vector<std::string> take(std::size_t count) {
    mLines.resize(count);
    return std::move(mLines);
  }

 private:
  const std::size_t mColumns;
  const Output& mOutput;
  std::vector<std::string> mLines;
};

std::string keysText(const View& view) {
  if (view.editing) return "filter: " + view.filter + "_   Enter keeps it, Esc takes it away";
  return std::string("p ") + (view.paused ? "go on" : "pause") + "   s sort by " + orderText(view.order) +
         "   / filter" + (view.filter.empty() ? "" : ": " + view.filter) + "   q quit";
}

}  // namespace

std::vector<std::string> linesOf(const Picture& picture, const View& view, Size size, const Output& output) {
  Lines lines(size.columns, output);
  const std::string clock = (view.paused ? "PAUSED  " : "") + lasting(picture.now - picture.start);
  lines.add(padded(view.device, size.columns - std::min(size.columns, clock.size())) + clock);
  lines.addField("link", linkText(picture), picture.state == kel::State::connected ? &Output::good : &Output::bad);
  lines.addField("task", view.task.empty() ? "none is sent" : view.task, nullptr);
  lines.addField(
      "rate",
      rateText(picture.tasksPerSecond) + format("  %u in flight  %u waiting  %u held", picture.statistics.inFlight,
                                                picture.statistics.queued, picture.statistics.heldNumbers),
      nullptr);
  lines.addField("outcomes", outcomes(picture), nullptr);
  lines.addField("latency", latencyText(picture.latencies), nullptr);
  lines.addField("last 60 s", barsOf(picture.latencies.medians(picture.now)), nullptr);
  lines.add("");

  // The broadcasts have half of what is left, and what the streams do not need. Each table has a heading, and a blank
  // line between them; the last line is for the keys.
  const std::vector<const Source*> streams = chosen(picture.streams, view, picture.now);
  const std::vector<const Source*> broadcasts = chosen(picture.broadcasts, view, picture.now);
  const std::size_t fixed = lines.count() + 2 + (picture.streams.empty() ? 0 : 2);
  const std::size_t room = size.rows > fixed ? size.rows - fixed : 0;
  const std::string filtered = "none has the filter in its name";
  std::size_t broadcastRoom = room;
  if (!picture.streams.empty()) {
    const std::size_t streamRoom = std::min(std::max<std::size_t>(streams.size(), 1), room / 2);
    broadcastRoom -= streamRoom;
    lines.addTable("stream", "state", streams, filtered, std::max<std::size_t>(streamRoom, 1), picture.now,
                   [](const Source& source) { return streamText(source.end); });
    lines.add("");
  }
  lines.addTable("broadcast", "word", broadcasts, picture.broadcasts.empty() ? "none yet" : filtered,
                 std::max<std::size_t>(broadcastRoom, 1), picture.now,
                 [](const Source& source) { return format("0x%08x", source.sequenceWord); });
  std::vector<std::string> screen = lines.take(size.rows - 1);
  screen.push_back(output.faint(cut(keysText(view), size.columns)));
  return screen;
}

std::string lineOf(const Picture& picture) {
  std::string line = lasting(picture.now - picture.start) + "  " + kel::text(picture.state) + "  " +
                     rateText(picture.tasksPerSecond) + "  " + outcomes(picture);
  if (!picture.latencies.empty()) line += "  " + latencyText(picture.latencies);
  return line + "  " + counted(picture.statistics.broadcasts, "broadcast", "broadcasts") + "  " +
         counted(picture.statistics.losses, "loss", "losses") + '\n';
}

Json jsonOf(const Picture& picture) {
  const auto sourcesOf = [&](const std::vector<Source>& sources, bool areStreams) {
    Json list = Json::array();
    for (const Source& source : sources) {
      Json json{{"task", source.name}};
      if (areStreams) {
        json["state"] = streamText(source.end);
      } else {
        json["sequenceWord"] = source.sequenceWord;
      }
      json.update({{"count", source.count}, {"perSecond", source.rate.perSecond(picture.now)}});
      if (source.count != 0) json["last"] = payloadJson(source.last.form() == kel::Form::ref, bytesOf(source.last));
      list.push_back(json);
    }
    return list;
  };
  Json failures = Json::object();
  for (const auto& [cause, count] : picture.failures) failures[kel::word(cause)] = count;
  Json json{{"verb", "monitor"},
            {"seconds", milliseconds(picture.now - picture.start) / 1000},
            {"state", kel::text(picture.state)},
            {"losses", picture.statistics.losses},
            {"connections", picture.statistics.connections},
            {"tasksPerSecond", picture.tasksPerSecond},
            {"inFlight", picture.statistics.inFlight},
            {"waiting", picture.statistics.queued},
            {"heldNumbers", picture.statistics.heldNumbers},
            {"answered", picture.answered},
            {"failures", failures},
            {"lateAnswers", picture.statistics.lateAnswers}};
  if (!picture.latencies.empty()) {
    json["latency"] = {{"p50", milliseconds(picture.latencies.percentile(50))},
                       {"p99", milliseconds(picture.latencies.percentile(99))},
                       {"max", milliseconds(picture.latencies.longest())}};
  }
  json["broadcasts"] = sourcesOf(picture.broadcasts, false);
  json["streams"] = sourcesOf(picture.streams, true);
  return json;
}

}  // namespace kelctl::monitor
