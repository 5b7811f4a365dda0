// Output files that are whole or not there (see file_output.h).
#include "api/file_output.h"

#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kvjpx {

// The file that an error exit removes.
struct UnfinishedFile {
  Resource resource;
  char name[PATH_MAX + 8];
  char target[PATH_MAX];  // whose place it takes in the end; empty when it is its own
};

namespace {

void remove_file(Resource* resource) {
  static_assert(offsetof(UnfinishedFile, resource) == 0, "the resource stands for the record");
  unlink(reinterpret_cast<UnfinishedFile*>(resource)->name);
}

// Makes the temporary file, of a name that nothing else has, and a writer on it. Null when the
// target's real name cannot be told or its folder takes no file. Links are resolved, so that a link
// stays one.
Stream* open_temporary(Environment* env, const char* path, const struct stat& old,
                       uint64_t view_size, UnfinishedFile* file) {
  if (realpath(path, file->target) == nullptr) return nullptr;
  snprintf(file->name, sizeof(file->name), "%s.XXXXXX", file->target);
  Stream* writer = make_file_writer(env, view_size);
  writer->descriptor = mkostemp(file->name, O_CLOEXEC);
  if (writer->descriptor < 0) {
    file->target[0] = '\0';
    destroy_stream(env, writer);
    return nullptr;
  }
  attach_resource(env, &file->resource, remove_file);
  // Only the superuser can keep a foreign owner.
  [[maybe_unused]] const int is_foreign = fchown(writer->descriptor, old.st_uid, old.st_gid);
  fchmod(writer->descriptor, old.st_mode & 07777);
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
  auto* file = static_cast<UnfinishedFile*>(allocate_zeroed(env, sizeof(UnfinishedFile)));
  struct stat target;
  const bool is_there = path != nullptr && stat(path, &target) == 0;
  if (is_there && S_ISREG(target.st_mode)) {
    const bool is_writable = access(path, W_OK) == 0;
    Stream* const writer =
        is_writable ? open_temporary(env, path, target, view_size, file) : nullptr;
    if (writer != nullptr) return {writer, file};
    if (!is_writable || is_read_from(input, target)) {
      release(env, file);
      return {nullptr, nullptr};
    }
  }
  Stream* const writer = bs_writer_to_file(env, path, view_size);
  const bool is_new = !is_there && writer->descriptor >= 0;
  if (is_new && realpath(path, file->name) != nullptr) {
    attach_resource(env, &file->resource, remove_file);
  }
  return {writer, file};
}

void finish_output(Environment* env, FileOutput* output) {
  destroy_stream(env, output->writer);
  UnfinishedFile* const file = output->file;
  if (file->target[0] != '\0' && rename(file->name, file->target) != 0) {
    JPX_ErrorExit(env, JPX_ERR_FILE_IO);
  }
  detach_resource(env, &file->resource);
  release(env, output->file);
}

}  // namespace kvjpx
