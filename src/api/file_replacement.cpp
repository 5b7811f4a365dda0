// Writing a file in place of another one (see file_replacement.h).
#include "api/file_replacement.h"

#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kvjpx {

struct FileReplacement {
  Resource resource;
  char target[PATH_MAX];          // with links resolved, so that a link stays one
  char temporary[PATH_MAX + 32];  // target, process number and ending
};

namespace {

void remove_temporary(Resource* resource) {
  static_assert(offsetof(FileReplacement, resource) == 0, "the resource stands for the record");
  unlink(reinterpret_cast<FileReplacement*>(resource)->temporary);
}

bool is_regular_file(const char* path, struct stat* status) {
  return path != nullptr && stat(path, status) == 0 && S_ISREG(status->st_mode);
}

// Null when the file's real name cannot be told.
FileReplacement* name_replacement(Environment* env, const char* path) {
  auto* replacement = static_cast<FileReplacement*>(allocate_zeroed(env, sizeof(FileReplacement)));
  if (realpath(path, replacement->target) == nullptr) {
    release(env, replacement);
    return nullptr;
  }
  snprintf(replacement->temporary, sizeof(replacement->temporary), "%s.%ld.part",
           replacement->target, static_cast<long>(getpid()));
  return replacement;
}

}  // namespace

Stream* open_replacement(Environment* env, const char* path, uint64_t view_size,
                         FileReplacement** replacement) {
  *replacement = nullptr;
  struct stat status;
  if (is_regular_file(path, &status)) *replacement = name_replacement(env, path);
  if (*replacement != nullptr) {
    Stream* writer = bs_writer_to_file(env, (*replacement)->temporary, view_size);
    if (writer->descriptor >= 0) {
      attach_resource(env, &(*replacement)->resource, remove_temporary);
      fchmod(writer->descriptor, status.st_mode & 07777);
      return writer;
    }
    destroy_stream(env, writer);
    release(env, *replacement);
  }
  return bs_writer_to_file(env, path, view_size);
}

void finish_replacement(Environment* env, FileReplacement* replacement) {
  if (replacement == nullptr) return;
  if (rename(replacement->temporary, replacement->target) != 0) {
    JPX_ErrorExit(env, JPX_ERR_FILE_IO);
  }
  detach_resource(env, &replacement->resource);
  release(env, replacement);
}

}  // namespace kvjpx
