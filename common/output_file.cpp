// Output files that are whole or untouched (see output_file.h).
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include "output_file.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace kvjpx_common {
namespace {

constexpr int kOpenFlags = O_WRONLY | O_NOCTTY | O_CLOEXEC;
constexpr int kMostLinks = 40;  // as many as the system itself follows
constexpr char kAccessList[] = "system.posix_acl_access";

bool leads_to(const char* name, int descriptor) {
  struct stat by_name, opened;
  return lstat(name, &by_name) == 0 && fstat(descriptor, &opened) == 0 &&
         by_name.st_dev == opened.st_dev && by_name.st_ino == opened.st_ino;
}

void remove_unless_replaced(const char* name, int descriptor) {
  if (name[0] != '\0' && leads_to(name, descriptor)) unlink(name);
}

size_t folder_length(const char* name) {
  const char* const slash = strrchr(name, '/');
  return slash == nullptr ? 0 : static_cast<size_t>(slash - name) + 1;
}

// Joins a name's folder with a file name; false when the whole is too long.
bool put_beside(const char* name, const char* file_name, char (&whole)[PATH_MAX]) {
  const int length =
      snprintf(whole, PATH_MAX, "%.*s%s", static_cast<int>(folder_length(name)), name, file_name);
  return length > 0 && length < PATH_MAX;
}

bool is_in_proc(const char* name) {
  char folder[PATH_MAX];
  struct statfs system;
  return !put_beside(name, ".", folder) || statfs(folder, &system) != 0 ||
         static_cast<uint32_t>(system.f_type) == PROC_SUPER_MAGIC;
}

// Follows links from the path to the name of the file itself. (realpath could allocate memory, and
// would see names behind the links of /proc.)
bool find_name(const char* path, char (&name)[PATH_MAX]) {
  if (snprintf(name, PATH_MAX, "%s", path) >= PATH_MAX) return false;
  for (int links = 0; links < kMostLinks && !is_in_proc(name); ++links) {
    char link[PATH_MAX], next[PATH_MAX];
    const ssize_t length = readlink(name, link, sizeof(link) - 1);
    if (length < 0) return true;
    link[length] = '\0';
    if (!put_beside(link[0] == '/' ? "" : name, link, next)) return false;
    memcpy(name, next, sizeof(next));
  }
  return false;
}

// What is there is opened, not asked about: only that tells whether the user may write it, also
// through a link that the system does not let everybody follow.
int open_target(OutputFile* file, const char* path) {
  int descriptor = open(path, kOpenFlags);
  if (descriptor >= 0 || errno != ENOENT) return descriptor;
  descriptor = open(path, kOpenFlags | O_CREAT | O_EXCL, 0666);
  file->is_new = descriptor >= 0;
  if (file->is_new || errno != EEXIST) return descriptor;
  // A link that leads to nothing yet, or somebody else's file that came in between; which of them
  // cannot be told, so it stays in any case.
  return open(path, kOpenFlags | O_CREAT, 0666);
}

void make_staged(OutputFile* file) {
  if (!put_beside(file->target_name, ".kvjpx-XXXXXX", file->staged_name)) return;
  file->staged = mkostemp(file->staged_name, O_CLOEXEC);
}

bool write_all(int descriptor, const void* bytes, size_t length, bool* is_changed) {
  for (size_t done = 0; done < length;) {
    const ssize_t written =
        write(descriptor, static_cast<const char*>(bytes) + done, length - done);
    if (written == 0) errno = ENOSPC;
    if (written <= 0 && errno != EINTR) return false;
    if (written > 0) {
      *is_changed = true;
      done += static_cast<size_t>(written);
    }
  }
  return true;
}

// A full disk is to show before the first byte is overwritten, where the file system can tell.
bool prepare_target(OutputFile* file, off_t length) {
  if (!file->is_regular) return true;
  if (file->before_change != nullptr) file->before_change(file);
  return length == 0 || fallocate(file->target, FALLOC_FL_KEEP_SIZE, 0, length) == 0 ||
         (errno != ENOSPC && errno != EDQUOT && errno != EFBIG);
}

bool set_target_length(OutputFile* file, off_t length) {
  if (!file->is_regular) return true;
  file->is_changed = true;
  return ftruncate(file->target, length) == 0;
}

bool copy_to_target(OutputFile* file) {
  struct stat status;
  if (fstat(file->staged, &status) != 0 || !prepare_target(file, status.st_size)) return false;
  char piece[16384];
  for (off_t done = 0; done < status.st_size;) {
    const ssize_t length = pread(file->staged, piece, sizeof(piece), done);
    if (length <= 0) return false;
    if (!write_all(file->target, piece, static_cast<size_t>(length), &file->is_changed)) {
      return false;
    }
    done += length;
  }
  return set_target_length(file, status.st_size);
}

// Rights that belong to a program's content, not to the file.
bool ends_with_content(const char* attribute) {
  return strcmp(attribute, "security.capability") == 0 || strcmp(attribute, "security.ima") == 0 ||
         strcmp(attribute, "security.evm") == 0;
}

bool copy_attribute(const OutputFile* file, const char* name) {
  char value[4096], present[4096];
  const ssize_t length = fgetxattr(file->target, name, value, sizeof(value));
  if (length < 0) return false;
  // The system may have given the new file the same label, and let nobody set it.
  const bool is_present = fgetxattr(file->staged, name, present, sizeof(present)) == length &&
                          memcmp(value, present, static_cast<size_t>(length)) == 0;
  return is_present || fsetxattr(file->staged, name, value, static_cast<size_t>(length), 0) == 0;
}

// The folder may have given the new file a list that its neighbour does not have.
bool remove_access_list(const OutputFile* file) {
  return fremovexattr(file->staged, kAccessList) == 0 || errno == ENODATA || errno == ENOTSUP;
}

// An access list speaks of the group, so it goes where the group does not stay.
bool copy_attributes(const OutputFile* file, bool keeps_group) {
  char names[4096];
  const ssize_t length = flistxattr(file->target, names, sizeof(names));
  if (length < 0 && errno != ENOTSUP) return false;
  bool has_access_list = false;
  for (ssize_t i = 0; i < length; i += static_cast<ssize_t>(strlen(names + i)) + 1) {
    const bool is_access_list = strcmp(names + i, kAccessList) == 0;
    if (ends_with_content(names + i) || (is_access_list && !keeps_group)) continue;
    if (!copy_attribute(file, names + i)) return false;
    has_access_list |= is_access_list;
  }
  return has_access_list || remove_access_list(file);
}

// Until here nobody else could read the file; its permissions are opened up last, when its owner,
// group and access list are those that they speak of. Rights to act as somebody else are not for
// content that somebody else may have written. False when the old file has what the new one cannot
// be given.
bool take_over_attributes(const OutputFile* file, const struct stat& old) {
  mode_t mode = old.st_mode & 0777;
  // Only the superuser can give a file away; others can give it to their groups.
  const bool keeps_group = fchown(file->staged, old.st_uid, old.st_gid) == 0 ||
                           fchown(file->staged, static_cast<uid_t>(-1), old.st_gid) == 0;
  if (!keeps_group) mode &= 0707;
  return copy_attributes(file, keeps_group) && fchmod(file->staged, mode) == 0;
}

// Some file systems tell of a failed write when a descriptor of the file is closed, be it a second
// one.
bool is_stored(int descriptor) {
  const int twin = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
  return twin >= 0 && close(twin) == 0;
}

bool replace_target(const OutputFile* file) {
  struct stat old;
  return fstat(file->target, &old) == 0 && old.st_nlink <= 1 && take_over_attributes(file, old) &&
         rename(file->staged_name, file->target_name) == 0;
}

}  // namespace

bool open_output_file(OutputFile* file, const char* path) {
  *file = {};
  file->staged = -1;
  file->target = open_target(file, path);
  if (file->target < 0) return false;
  struct stat status;
  if (fstat(file->target, &status) != 0) {
    close_output_file(file);
    return false;
  }
  file->is_regular = S_ISREG(status.st_mode);
  // Devices and pipes stay what they are, so their names do not matter.
  const bool has_name = file->is_regular && find_name(path, file->target_name) &&
                        leads_to(file->target_name, file->target);
  if (has_name) {
    make_staged(file);
  } else {
    file->target_name[0] = '\0';
  }
  return true;
}

bool fill_output_file(OutputFile* file, const void* bytes, size_t length) {
  bool ignored;
  if (file->staged >= 0) return write_all(file->staged, bytes, length, &ignored);
  const auto size = static_cast<off_t>(length);
  return prepare_target(file, size) && write_all(file->target, bytes, length, &file->is_changed) &&
         set_target_length(file, size);
}

bool complete_output_file(OutputFile* file) {
  if (file->staged < 0) {
    if (!is_stored(file->target)) return false;
  } else {
    if (!is_stored(file->staged)) return false;
    const bool is_done = replace_target(file) || (copy_to_target(file) && is_stored(file->target));
    if (!is_done) return false;
  }
  file->is_new = false;
  return true;
}

void close_output_file(OutputFile* file) {
  const int reason = errno;
  if (file->staged >= 0) {
    remove_unless_replaced(file->staged_name, file->staged);
    close(file->staged);
  }
  if (file->target >= 0) {
    if (file->is_new) remove_unless_replaced(file->target_name, file->target);
    close(file->target);
  }
  file->staged = -1;
  file->target = -1;
  errno = reason;
}

}  // namespace kvjpx_common
