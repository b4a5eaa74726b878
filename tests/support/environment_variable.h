/* SPDX-License-Identifier: MIT */
// The environment of this process, as the system has it.
#pragma once

namespace kel::test {

/// A variable that is set for the life of the object. It was not set before.
class EnvironmentVariable {
 public:
  EnvironmentVariable(const char* name, const char* value);
  ~EnvironmentVariable();
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

 private:
  const char* const mName;
};

}  // namespace kel::test
