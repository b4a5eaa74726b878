// SPDX-License-Identifier: MIT
// What the keys of a scenario mean.
#include <algorithm>

#include "Fields.h"
#include "Payloads.h"
#include "Scenario.h"
#include "Tasks.h"

namespace kel::sim {
namespace {

/// Milliseconds; with its jitter a delay still fits into 32 bits.
constexpr std::uint32_t kOneDay = 86400000;
constexpr std::uint32_t kLargestTUI = 0xFFFFFF;

class Reader {
 public:
  Reader(const std::string& folder, Mistakes& mistakes) : mFolder(folder), mMistakes(mistakes) {}

  void ReadAll(const Json& root, Scenario& scenario) {
    Fields fields(root, "a scenario", mMistakes);
    fields.FindText("$schema");
    fields.Read("seed", scenario.seed);
    if (const Json* capture = fields.FindFileName("capture")) scenario.capture = InFolder(mFolder, capture->text);
    for (const Json& rule : fields.List("rules")) scenario.rules.push_back(ReadRule(rule));
    for (const Json& plan : fields.List("broadcasts")) scenario.broadcasts.push_back(ReadBroadcasts(plan));
    for (const Json& loss : fields.List("linkLosses")) scenario.linkLosses.push_back(ReadLoss(loss));
    for (const Json& no : fields.List("socketRefusals")) scenario.socketRefusals.push_back(ReadSocketRefusal(no));
    for (const Json& status : fields.List("controlStatus")) scenario.controlStatus.push_back(ReadControlStatus(status));
    std::stable_sort(scenario.controlStatus.begin(), scenario.controlStatus.end(),
                     [](const PlannedControlStatus& a, const PlannedControlStatus& b) { return a.atMs < b.atMs; });
    fields.End();
  }

 private:
  RuleTerms ReadRule(const Json& value) {
    RuleTerms terms;
    SluiceHubSimRule& what = terms.what;
    Fields fields(value, "a rule", mMistakes);
    if (const Json* task = fields.Find("task")) {
      what.tui = ReadTask(*task);
      what.tuiMask = SLUICEHUBSIM_EXACT;
    }
    fields.Read("skip", what.skip);
    fields.Read("times", what.times, 1);
    if (const Json* reply = fields.Find("reply")) ReadReply(*reply, terms);
    fields.Read("delay", what.delayMs, 0, kOneDay);
    fields.Read("jitter", terms.jitterMs, 0, kOneDay);
    if (const Json* drop = fields.Find("drop")) ReadDrop(*drop, terms);
    if (const Json* stream = fields.Find("stream")) ReadStream(*stream, terms);
    if (const Json* refuse = fields.Find("refuse")) ReadRefusal(*refuse, what);
    if (fields.Find("loseLink") != nullptr) fields.Read("loseLink", terms.lostLinkReason.emplace());
    fields.WantAlone("refuse", {"reply", "delay", "jitter", "drop", "stream", "loseLink"});
    fields.WantAlone("loseLink", {"reply", "delay", "jitter", "drop", "stream"});
    fields.End();
    return terms;
  }

  void ReadReply(const Json& value, RuleTerms& terms) {
    if (value.kind != Json::Kind::kObject) {
      terms.echo = value.text == "echo";
      if (!terms.echo && value.text != "state") AddMistake(mMistakes, value, R"("echo", "state" or an object)");
      return;
    }
    Fields fields(value, "a reply", mMistakes);
    const auto payload = ReadPayload(fields, mFolder, mMistakes);
    fields.WantOneOf(kPayloadKeys);
    fields.End();
    if (payload == nullptr) return;
    terms.what.flags |= SLUICEHUBSIM_DATA | SLUICEHUBSIM_TYPE;
    terms.what.type = payload->type;
    terms.data = payload->bytes;
  }

  void ReadDrop(const Json& value, RuleTerms& terms) {
    if (value.kind == Json::Kind::kBool && value.number != 0) {
      terms.what.flags |= SLUICEHUBSIM_DROP;
      return;
    }
    if (value.kind != Json::Kind::kObject) return AddMistake(mMistakes, value, "true or an object");
    Fields fields(value, "a drop", mMistakes);
    if (const Json* probability = fields.Find("probability")) {
      if (probability->kind == Json::Kind::kNumber && probability->number >= 0 && probability->number <= 1) {
        terms.dropChance = static_cast<std::uint64_t>(probability->number * 4294967296.0);
      } else {
        AddMistake(mMistakes, *probability, "a number from 0 to 1");
      }
    }
    fields.Read("every", terms.dropEvery, 1);
    fields.WantOneOf({"probability", "every"});
    fields.End();
  }

  void ReadStream(const Json& value, RuleTerms& terms) {
    SluiceHubSimRule& what = terms.what;
    what.flags |= SLUICEHUBSIM_STREAM;
    Fields fields(value, "a stream", mMistakes);
    fields.Read("count", what.streamCount);
    fields.Read("interval", what.streamIntervalMs, 0, kOneDay);
    ReadSeriesPayload(fields, what.streamPayloadSize, terms.streamPayload);
    if (const Json* end = fields.FindText("end")) {
      if (end->text == "before ack") {
        what.flags |= SLUICEHUBSIM_ACK_LAST;
      } else if (end->text == "none") {
        what.flags |= SLUICEHUBSIM_NO_END;
      } else if (end->text != "after ack") {
        AddMistake(mMistakes, *end, R"("after ack", "before ack" or "none")");
      }
    }
    fields.Want("count");
    fields.End();
  }

  void ReadRefusal(const Json& value, SluiceHubSimRule& what) {
    Fields fields(value, "a refusal", mMistakes);
    fields.Read("sendStatus", what.sendStatus, 1);
    fields.Read("replyID", what.replyID, 1);
    fields.Read("L4status", what.L4status, 1, UINT16_MAX);
    fields.WantOneOf({"sendStatus", "replyID", "L4status"});
    if (const Json* error = fields.Find("L4error")) {
      fields.Read("L4error", what.L4error);
      if (what.L4status == 0) AddMistake(mMistakes, *error, "it beside \"L4status\" only");
    }
    fields.End();
  }

  PlannedBroadcasts ReadBroadcasts(const Json& value) {
    PlannedBroadcasts plan;
    Fields fields(value, "a broadcast", mMistakes);
    if (const Json* task = fields.Find("task")) plan.TUI = ReadTask(*task);
    fields.Read("at", plan.atMs, 0, kOneDay);
    const bool repeats = fields.Find("every") != nullptr;
    if (repeats) plan.count = UINT32_MAX;
    fields.Read("every", plan.everyMs, 1, kOneDay);
    fields.Read("count", plan.count, 1);
    if (const Json* count = fields.Find("count"); count != nullptr && !repeats) {
      AddMistake(mMistakes, *count, "it beside \"every\" only");
    }
    ReadSeriesPayload(fields, plan.payloadSize, plan.payload);
    fields.Want("task");
    fields.End();
    return plan;
  }

  PlannedLoss ReadLoss(const Json& value) {
    PlannedLoss loss;
    Fields fields(value, "a link loss", mMistakes);
    ReadTurns(fields, loss.connections);
    fields.Read("at", loss.atMs, 0, kOneDay);
    fields.Read("reason", loss.reason);
    fields.Want("at");
    fields.End();
    return loss;
  }

  SocketRefusal ReadSocketRefusal(const Json& value) {
    SocketRefusal refusal;
    Fields fields(value, "a socket refusal", mMistakes);
    ReadTurns(fields, refusal.connections);
    fields.Read("from", refusal.fromMs, 0, kOneDay);
    fields.Read("until", refusal.untilMs, refusal.fromMs + 1, kOneDay);
    fields.Read("sendStatus", refusal.sendStatus, 1);
    fields.Read("replyID", refusal.replyID, 1);
    fields.End();
    return refusal;
  }

  PlannedControlStatus ReadControlStatus(const Json& value) {
    PlannedControlStatus planned;
    Fields fields(value, "a control status", mMistakes);
    fields.Read("at", planned.atMs, 0, kOneDay);
    fields.Read("status", planned.status);
    fields.Want("status");
    fields.End();
    return planned;
  }

  void ReadTurns(Fields& fields, Turns& turns) {
    fields.Read("skip", turns.skip);
    fields.Read("times", turns.times, 1);
  }

  /// Of stream messages and broadcasts: a payload of its own, or the usual pattern in so many bytes.
  void ReadSeriesPayload(Fields& parent, std::uint32_t& size, std::shared_ptr<const Payload>& payload) {
    const Json* value = parent.Find("payload");
    if (value == nullptr) return;
    Fields fields(*value, "a payload", mMistakes);
    payload = ReadPayload(fields, mFolder, mMistakes);
    fields.Read("size", size, 1, kLargestScenarioFile);
    fields.WantOneOf(kSeriesPayloadKeys);
    fields.End();
  }

  std::uint32_t ReadTask(const Json& value) {
    std::optional<std::uint32_t> TUI = WholeNumber(value, 0, kLargestTUI);
    if (value.kind == Json::Kind::kText) {
      TUI = value.text.starts_with("0x") ? FromHexNumber(value.text) : FindTask(value.text);
    }
    if (!TUI || *TUI > kLargestTUI) {
      AddMistake(mMistakes, value, "a name of the built-in task table, or a TUI from 0 to 0xffffff");
    }
    return TUI.value_or(0);
  }

  const std::string& mFolder;
  Mistakes& mMistakes;
};

}  // namespace

Reading ReadScenario(std::string_view text, const std::string& folder) {
  Reading reading;
  if (const auto root = ReadJson(text, reading.mistakes)) {
    Reader(folder, reading.mistakes).ReadAll(*root, reading.scenario);
  }
  std::stable_sort(reading.mistakes.begin(), reading.mistakes.end(),
                   [](const Mistake& a, const Mistake& b) { return a.line < b.line; });
  return reading;
}

Reading ReadScenarioFile(const std::string& name) {
  Reading reading;
  std::vector<std::uint8_t> bytes;
  if (const std::string fault = ReadBytes(name, bytes); !fault.empty()) {
    reading.mistakes.push_back({0, fault, "a scenario"});
    return reading;
  }
  return ReadScenario({reinterpret_cast<const char*>(bytes.data()), bytes.size()}, FolderOf(name));
}

std::string TextOf(const std::string& fileName, const Mistake& mistake) {
  const std::string line = mistake.line != 0 ? ':' + std::to_string(mistake.line) : std::string();
  return fileName + line + ": " + mistake.found + "; expected " + mistake.expected;
}

}  // namespace kel::sim
