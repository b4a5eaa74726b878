/* SPDX-License-Identifier: MIT */
// Failures of the C runtime's files that no test can bring about from outside. A program that uses this links
// test_failing_files, which puts its own functions in front of the runtime's.
#pragma once

#include <cstddef>

namespace kel::test {

/// While one lives, fclose() closes its file and says that it could not.
class FailingClose {
 public:
  FailingClose();
  ~FailingClose();
  FailingClose(const FailingClose&) = delete;
  FailingClose& operator=(const FailingClose&) = delete;
};

/// While one lives, ftell() finds no position. Not for long: GoogleTest asks it too.
class FailingTell {
 public:
  FailingTell();
  ~FailingTell();
  FailingTell(const FailingTell&) = delete;
  FailingTell& operator=(const FailingTell&) = delete;
};

/// While one lives, fread() and fgetc() give `bytes` more, whatever the file, and fail then. Not for long: GoogleTest
/// reads too.
class FailingRead {
 public:
  explicit FailingRead(std::size_t bytes);
  ~FailingRead();
  FailingRead(const FailingRead&) = delete;
  FailingRead& operator=(const FailingRead&) = delete;
};

/// While one lives, fwrite() writes one element less than it was given.
class FailingWrite {
 public:
  FailingWrite();
  ~FailingWrite();
  FailingWrite(const FailingWrite&) = delete;
  FailingWrite& operator=(const FailingWrite&) = delete;
};

}  // namespace kel::test
