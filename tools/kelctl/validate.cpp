#include <iostream>

#include "commands.h"
#include "files.h"
#include "session.h"

namespace kelctl {

int validate(const ValidateOptions& options) {
  const Bytes content = readFile(options.file);
  const Session session("");
  const bool valid = isVersionValid(session.connection(), options.file, content, options.vectors);
  std::cout << options.file << (valid ? ": valid\n" : ": not valid, or that could not be found out\n");
  return valid ? 0 : 1;
}

}  // namespace kelctl
