// Whole files in and out of memory (see raw_file.h).
#include "stream/raw_file.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace kvjpx {
namespace {

constexpr uint64_t kStep = 0x80000;  // 512 KiB

bool is_standard_stream(const char* path) { return strcmp(path, "-") == 0; }

// The buffer is always a whole number of steps, also for an empty input.
void* load_standard_input(uint64_t* length) {
  char* buffer = nullptr;
  uint64_t total = 0;
  size_t got;
  do {
    char* const grown = static_cast<char*>(realloc(buffer, total + kStep));
    if (grown == nullptr) {
      free(buffer);
      *length = 0;
      return nullptr;
    }
    buffer = grown;
    got = fread(buffer + total, 1, kStep, stdin);
    total += kStep;
  } while (got == kStep);
  *length = total + got - kStep;
  return buffer;
}

}  // namespace

extern "C" {

void* load_raw_data(const char* path, uint64_t* length) {
  if (is_standard_stream(path)) return load_standard_input(length);
  *length = 0;
  FILE* const file = fopen(path, "rb");
  if (file == nullptr) {
    fprintf(stderr, "Error: unable to open file `%s' for reading\n", path);
    return nullptr;
  }
  fseek(file, 0, SEEK_END);
  const long size = ftell(file);
  rewind(file);
  void* const buffer = size < 0 ? nullptr : malloc(static_cast<size_t>(size));
  if (buffer != nullptr) *length = fread(buffer, 1, static_cast<size_t>(size), file);
  fclose(file);
  return buffer;
}

void write_raw_data(const char* path, const void* data, uint64_t length) {
  FILE* const file = is_standard_stream(path) ? stdout : fopen(path, "wb");
  if (file == nullptr) {
    fprintf(stderr, "Error: unable to open `%s' for writing\n", path);
    return;
  }
  if (length != 0) fwrite(data, 1, length, file);
  if (file != stdout) fclose(file);
}

}  // extern "C"
}  // namespace kvjpx
