#include "support/failing_files.h"

#include <cstdio>

namespace {

bool gCloseFails = false;
bool gTellFails = false;
bool gWriteFails = false;

}  // namespace

// The linker sends calls of a wrapped function to __wrap_, and calls of __real_ to the function itself.
extern "C" {

int __real_fclose(std::FILE* file);
long __real_ftell(std::FILE* file);
std::size_t __real_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file);
int __wrap_fclose(std::FILE* file);
long __wrap_ftell(std::FILE* file);
std::size_t __wrap_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file);

int __wrap_fclose(std::FILE* file) {
  const int result = __real_fclose(file);
  return gCloseFails ? EOF : result;
}

long __wrap_ftell(std::FILE* file) { return gTellFails ? -1 : __real_ftell(file); }

std::size_t __wrap_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file) {
  return __real_fwrite(data, size, gWriteFails && count > 0 ? count - 1 : count, file);
}

}  // extern "C"

namespace kel::test {

FailingClose::FailingClose() { gCloseFails = true; }
FailingClose::~FailingClose() { gCloseFails = false; }
FailingTell::FailingTell() { gTellFails = true; }
FailingTell::~FailingTell() { gTellFails = false; }
FailingWrite::FailingWrite() { gWriteFails = true; }
FailingWrite::~FailingWrite() { gWriteFails = false; }

}  // namespace kel::test
