// The verbs of kelctl. Each takes its options as the command line gave them, writes its results to standard output, and
// returns the exit status: 0, or 1 if the outcome is not what was asked for. A call that the library refuses leaves a
// verb as a Refused (session.h), anything else that goes wrong as another std::exception.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kelctl {

// File names: empty for none, "-" for a standard stream where a verb says so.

/// At most one of these is there. None: the task's empty payload.
struct PayloadOptions {
  std::vector<std::uint32_t> values;
  std::optional<std::string> hex;
  std::optional<std::string> text;
  std::string inFile;
};

struct SendOptions {
  std::string task;
  std::string table;
  PayloadOptions payload;
  std::string outFile;
  bool noResponse = false;
  std::optional<std::uint32_t> inFlight;  ///< asynchronously, so many at once
};

struct StreamOptions {
  std::string task;
  std::string table;
  PayloadOptions payload;
  // Either of them makes the payload.
  std::optional<std::uint32_t> count;
  std::optional<std::uint32_t> interval;
};

struct ListenOptions {
  std::string table;
  std::optional<std::uint32_t> count;
  std::optional<double> seconds;
  bool trigger = false;
};

struct ValidateOptions {
  std::string file;
  std::string vectors = ".";
};

/// A tour of the library against the stand-in pipe library, with each result checked, in a folder of its own.
/// `progress` shows a bar that a terminal can overwrite.
int demo(bool progress);
/// Sends one task and prints its answer, or several at once and prints what became of them.
int send(const SendOptions& options);
/// Prints the messages of a stream until its end or Ctrl-C.
int stream(const StreamOptions& options);
/// Prints broadcasts until there were enough, the time is over, or Ctrl-C.
int listen(const ListenOptions& options);
/// Asks whether a file belongs to the device's software generation.
int validate(const ValidateOptions& options);
/// Lists a task table; the built-in one if `table` is empty.
int tasks(const std::string& table);
/// Tells the mistakes of a scenario for the stand-in device on standard error.
int checkScenario(const std::string& file);
int version();

/// The library's version as "4.1.0.21".
std::string libraryVersion();

}  // namespace kelctl
