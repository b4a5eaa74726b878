// SPDX-License-Identifier: MIT
#include "support/failing_files.h"

#include <algorithm>
#include <cstdio>
#include <optional>

namespace {

bool gCloseFails = false;
bool gTellFails = false;
bool gWriteFails = false;
std::optional<std::size_t> gReadableBytes;  ///< before reads fail

}  // namespace

// The linker sends calls of a wrapped function to __wrap_, and calls of __real_ to the function itself.
extern "C" {

int __real_fclose(std::FILE* file);
long __real_ftell(std::FILE* file);
std::size_t __real_fread(void* data, std::size_t size, std::size_t count, std::FILE* file);
int __real_fgetc(std::FILE* file);
int __real_ferror(std::FILE* file);
std::size_t __real_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file);
int __wrap_fclose(std::FILE* file);
long __wrap_ftell(std::FILE* file);
std::size_t __wrap_fread(void* data, std::size_t size, std::size_t count, std::FILE* file);
int __wrap_fgetc(std::FILE* file);
int __wrap_ferror(std::FILE* file);
std::size_t __wrap_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file);

int __wrap_fclose(std::FILE* file) {
  const int result = __real_fclose(file);
  return gCloseFails ? EOF : result;
}

long __wrap_ftell(std::FILE* file) { return gTellFails ? -1 : __real_ftell(file); }

std::size_t __wrap_fread(void* data, std::size_t size, std::size_t count, std::FILE* file) {
  if (!gReadableBytes) return __real_fread(data, size, count, file);
  const std::size_t read = __real_fread(data, size, std::min(count, *gReadableBytes / size), file);
  *gReadableBytes -= read * size;
  return read;
}

int __wrap_fgetc(std::FILE* file) {
  if (!gReadableBytes) return __real_fgetc(file);
  if (*gReadableBytes == 0) return EOF;
  --*gReadableBytes;
  return __real_fgetc(file);
}

int __wrap_ferror(std::FILE* file) { return gReadableBytes == 0u ? 1 : __real_ferror(file); }

std::size_t __wrap_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file) {
  return __real_fwrite(data, size, gWriteFails && count > 0 ? count - 1 : count, file);
}

}  // extern "C"

namespace kel::test {

FailingClose::FailingClose() { gCloseFails = true; }
FailingClose::~FailingClose() { gCloseFails = false; }
FailingTell::FailingTell() { gTellFails = true; }
FailingTell::~FailingTell() { gTellFails = false; }
FailingRead::FailingRead(std::size_t bytes) { gReadableBytes = bytes; }
FailingRead::~FailingRead() { gReadableBytes.reset(); }
FailingWrite::FailingWrite() { gWriteFails = true; }
FailingWrite::~FailingWrite() { gWriteFails = false; }

}  // namespace kel::test
