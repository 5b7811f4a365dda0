// Writing a file so that one that stands there is kept meanwhile (see file_replacement.h).
#include "api/file_replacement.h"

#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kvjpx {

struct FileReplacement {
  Resource resource;
  char target[PATH_MAX];  // with links resolved, so that a link stays one
  char temporary[PATH_MAX + 8];
};

namespace {

void remove_temporary(Resource* resource) {
  static_assert(offsetof(FileReplacement, resource) == 0, "the resource stands for the record");
  unlink(reinterpret_cast<FileReplacement*>(resource)->temporary);
}

// Makes the temporary file, of a name that nothing else has, and a writer on it. Null when the
// target's real name cannot be told or its folder takes no file.
Stream* open_temporary(Environment* env, const char* path, mode_t mode, uint64_t view_size,
                       FileReplacement* replacement) {
  if (realpath(path, replacement->target) == nullptr) return nullptr;
  snprintf(replacement->temporary, sizeof(replacement->temporary), "%s.XXXXXX",
           replacement->target);
  Stream* const writer = make_file_writer(env, view_size);
  writer->descriptor = mkostemp(replacement->temporary, O_CLOEXEC);
  if (writer->descriptor >= 0) {
    attach_resource(env, &replacement->resource, remove_temporary);
    fchmod(writer->descriptor, mode & 07777);
  }
  return writer;
}

bool is_read_from(const Stream* input, const struct stat& target) {
  struct stat source;
  return input->descriptor >= 0 && fstat(input->descriptor, &source) == 0 &&
         source.st_dev == target.st_dev && source.st_ino == target.st_ino;
}

}  // namespace

FileOutput open_output(Environment* env, const char* path, uint64_t view_size,
                       const Stream* input) {
  struct stat target;
  const bool is_there = path != nullptr && stat(path, &target) == 0 && S_ISREG(target.st_mode);
  if (!is_there) return {bs_writer_to_file(env, path, view_size), nullptr};
  if (access(path, W_OK) != 0) return {nullptr, nullptr};
  auto* replacement = static_cast<FileReplacement*>(allocate_zeroed(env, sizeof(FileReplacement)));
  Stream* writer = open_temporary(env, path, target.st_mode, view_size, replacement);
  if (writer != nullptr && writer->descriptor >= 0) return {writer, replacement};
  destroy_stream(env, writer);
  release(env, replacement);
  if (is_read_from(input, target)) return {nullptr, nullptr};
  return {bs_writer_to_file(env, path, view_size), nullptr};
}

void finish_output(Environment* env, FileOutput* output) {
  destroy_stream(env, output->writer);
  FileReplacement* const replacement = output->replacement;
  if (replacement == nullptr) return;
  if (rename(replacement->temporary, replacement->target) != 0) {
    JPX_ErrorExit(env, JPX_ERR_FILE_IO);
  }
  detach_resource(env, &replacement->resource);
  release(env, output->replacement);
}

}  // namespace kvjpx
