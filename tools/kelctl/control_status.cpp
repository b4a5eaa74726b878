// SPDX-License-Identifier: MIT
// The control status and the connection parameters, which are the pipe library's and need no connection.
#include <charconv>
#include <nlohmann/json.hpp>

#include "diagnosis.h"
#include "inbox.h"
#include "kel/library.hpp"
#include "payload.h"

namespace kelctl {
namespace {

struct WatchOptions {
  std::optional<double> seconds;
  std::optional<std::uint32_t> count;
};

struct SetOptions {
  std::optional<std::string> parameters;
  std::optional<std::uint32_t> value;
};

void print(const std::string& verb, std::uint32_t status, Output& output) {
  const std::chrono::system_clock::time_point now = std::chrono::system_clock::now();
  if (output.json()) return output.object({{"verb", verb}, {"time", isoText(now)}, {"controlStatus", status}});
  output.text(clockText(now) + "  control status " + std::to_string(status) + '\n');
}

int show(Output& output) {
  print("status", kel::Library().controlStatus(), output);
  return kDone;
}

/// Filled by a thread of the pipe library, which may call even when nobody watches any more.
Inbox<bool>& changes() {
  static Inbox<bool>& inbox = *new Inbox<bool>;
  return inbox;
}

// What it is called with is the pipe library's to say, as a rule the new status: that is read anew.
extern "C" void noteChange(std::uint32_t /*status*/) { changes().push(true); }

int watch(const WatchOptions& options, Output& output) {
  catchInterrupt();
  const kel::Library library;
  const auto callback = reinterpret_cast<KEL_CtrlStatusCallback>(noteChange);
  const std::uint32_t refusal = library.watchControlStatus(callback);
  if (refusal != 0) {
    throw Fault(kRefused, "the pipe library does not tell of changes: it returned " + std::to_string(refusal) + '.');
  }
  print("status watch", library.controlStatus(), output);
  const Clock::time_point end =
      Clock::now() + (options.seconds
                          ? std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*options.seconds))
                          : std::chrono::hours(24 * 365));
  std::uint32_t seen = 0;
  while (seen != options.count && changes().nextUnlessInterrupted(end)) {
    print("status watch", library.controlStatus(), output);
    ++seen;
  }
  library.unwatchControlStatus(callback);
  return !options.count || seen == *options.count || interrupted() ? kDone : kNoAnswer;
}

/// A number of 64 bits, decimal or with 0x.
std::uint64_t toWideNumber(const std::string& text) {
  const bool isHex = text.rfind("0x", 0) == 0;
  std::uint64_t number = 0;
  const auto [end, error] =
      std::from_chars(text.data() + (isHex ? 2 : 0), text.data() + text.size(), number, isHex ? 16 : 10);
  if (error == std::errc() && end == text.data() + text.size() && !text.empty()) return number;
  throw Fault(kWrongUsage, '"' + text + "\" is not a number of 64 bits.");
}

int set(const SetOptions& options, Output& output) {
  if (!options.parameters || !options.value) throw Fault(kWrongUsage, "--parameters and --value belong together.");
  const std::uint64_t parameters = toWideNumber(*options.parameters);
  const std::uint32_t result = kel::Library().setConnectionParameters(parameters, *options.value);
  if (output.json()) {
    output.object({{"verb", "status set"}, {"parameters", parameters}, {"value", *options.value}, {"result", result}});
  } else {
    output.text("the pipe library returned " + std::to_string(result) + '\n');
  }
  return result == 0 ? kDone : kRefused;
}

}  // namespace

void addStatus(CLI::App& app, Plan& plan) {
  CLI::App& status = addVerb(app, plan, "status",
                             "Show, watch or set the pipe library's control status and parameters\n"
                             "What the numbers mean is the pipe library's to say. No device is asked.",
                             "kelctl status\n"
                             "kelctl status watch --for 60\n"
                             "kelctl status set --parameters 0x1 --value 5\n",
                             show);
  auto [watched, watching] =
      addVerb<WatchOptions>(status, plan, "watch", "Print the control status at each change until Ctrl-C",
                            "kelctl status watch --count 1\n", watch);
  addSeconds(watched, "--for", watching.seconds, "End after so many seconds");
  addNumber(watched, "--count", "N", watching.count, "End after N changes; status 3 if fewer came", 1);
  auto [changed, setting] = addVerb<SetOptions>(status, plan, "set", "Give connection parameters to the pipe library",
                                                "kelctl status set --parameters 0x1 --value 5\n", set);
  addText(changed, "--parameters", "N", setting.parameters, "The parameters, 64 bits, decimal or with 0x");
  addNumber(changed, "--value", "N", setting.value, "Their value");
}

}  // namespace kelctl
