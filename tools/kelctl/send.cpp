#include <fstream>
#include <iostream>

#include "commands.h"
#include "files.h"
#include "in_flight.h"
#include "session.h"

namespace kelctl {
namespace {

int sendAtOnce(const SendOptions& options, std::uint32_t count) {
  const Bytes payload = payloadOf(options.payload);
  const Session session(options.table);
  const InFlight outcome =
      sendInFlight(session.connection(), options.task, count, [&](std::uint32_t) { return payload; });
  std::cout << summary(outcome) << '\n';
  if (outcome.refused != 0) throw Refused("KEL_SendReceiveAsyncKEL", outcome.refusalCode);
  return outcome.answered() == count ? 0 : 1;
}

}  // namespace

int send(const SendOptions& options) {
  if (options.inFlight) return sendAtOnce(options, *options.inFlight);
  const Bytes payload = payloadOf(options.payload);
  // The file is opened ahead of the task, so that a name that leads nowhere costs no answer.
  std::ofstream file;
  if (!options.outFile.empty() && options.outFile != kStandardStream) {
    file.open(options.outFile, std::ios::binary);
    if (!file) failOnFile(options.outFile);
  }

  const Session session(options.table);
  const std::optional<Bytes> answer = session.send(options.task, payload, !options.noResponse);
  if (!answer) {
    std::cerr << "sent, no answer asked for\n";
    return 0;
  }
  if (!options.outFile.empty()) {
    std::ostream& out = file.is_open() ? file : std::cout;
    out.write(reinterpret_cast<const char*>(answer->data()), static_cast<std::streamsize>(answer->size())).flush();
    if (!out) failOnFile(options.outFile);
    return 0;
  }
  if (answer->empty()) std::cerr << "answered with an empty payload\n";
  // An answer does not tell its form. Twelve bytes are values, unless the question was put in raw bytes.
  const bool askedInValues = payload.empty() || !options.payload.values.empty();
  const std::optional<Values> values = toValues(*answer);
  std::cout << (values && askedInValues ? valuesText(*values) + '\n' : hexDump(*answer));
  return 0;
}

}  // namespace kelctl
