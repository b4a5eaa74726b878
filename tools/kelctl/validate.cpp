// SPDX-License-Identifier: MIT
#include <nlohmann/json.hpp>

#include "files.h"
#include "options.h"
#include "session.h"

namespace kelctl {
namespace {

struct ValidateOptions {
  LinkOptions link;
  std::string file;
  std::string vectors = ".";
};

int validate(const ValidateOptions& options, Output& output) {
  const Bytes content = readFile(options.file);
  Session session(options.link);
  const kel::Result<bool> verdict =
      session.client().validateVersion(options.file, {content.data(), content.size()}, libraryFile(options.vectors));
  if (!verdict && verdict.error().cause == kel::Cause::refused && options.link.device.isElsewhere()) {
    throw Fault(kRefused, "version checks do not go over NATS.\nRun `kelctl validate` on the device's own host.");
  }
  if (!verdict) throw session.fault(verdict.error());
  const bool valid = *verdict;
  if (output.json()) {
    output.object({{"verb", "validate"}, {"file", options.file}, {"valid", valid}});
  } else {
    output.text(options.file + ": " +
                (valid ? output.good("valid") : output.bad("not valid, or that could not be found out")) + '\n');
  }
  return valid ? kDone : kRefused;
}

}  // namespace

void addValidate(CLI::App& app, Plan& plan) {
  auto [verb, options] =
      addVerb<ValidateOptions>(app, plan, "validate", "Ask whether a file belongs to the device's software generation",
                               "kelctl validate Statistics.bm\n", validate);
  addFile(verb, options.file, "The file");
  addLink(verb, options.link);
  addFolder(verb, "--vectors", options.vectors, "Folder of *VersionsVector.txt files (the working directory)");
}

}  // namespace kelctl
