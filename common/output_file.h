// An output file that is whole or untouched: its content is completed in a second file beside it,
// which then takes its place. Shared by the library, the codec and the program, so it allocates
// nothing, throws nothing and needs libc only.
#ifndef KVJPX_COMMON_OUTPUT_FILE_H_
#define KVJPX_COMMON_OUTPUT_FILE_H_

#include <limits.h>
#include <stddef.h>

namespace kvjpx_common {

struct OutputFile {
  int target;  // what stands at the path, open for writing and not changed so far; -1 for none
  int staged;  // the second file, open for reading and writing; -1 where there is none
  bool is_regular;
  bool is_new;      // this call made the target
  bool is_changed;  // bytes of the target have been overwritten
  // Set after the opening by a caller who still reads from regular files: called before the first
  // byte of one is overwritten. It may leave by a jump.
  void (*before_change)(OutputFile* file);
  char target_name[PATH_MAX];  // links are followed; empty when it is not known
  char staged_name[PATH_MAX];
};

// Opens what stands at the path or makes a new, empty file, and makes the second file, private to
// the user until it is complete. There is none for a device or pipe, for a path that leads through
// /proc to an open file rather than to a name (as /dev/fd does), and in a folder that takes none:
// the target itself is written then, and a caller whose bytes are still to be made, or come from
// the target, completes them in memory first.
//
// On failure the result is false, errno tells why, and nothing is held.
bool open_output_file(OutputFile* file, const char* path);

// Writes the whole content: into the second file, or into the target where there is none.
bool fill_output_file(OutputFile* file, const void* bytes, size_t length);

// Puts the second file in the target's place, with its owner, permissions and extended attributes
// as far as the system lets the user give them away. Where the target has several names, or cannot
// be replaced (it is mounted, say), the bytes are copied into it instead. False when that failed;
// then is_changed tells whether the target is still what it was.
bool complete_output_file(OutputFile* file);

// Closes the files and removes what was made and not completed, unless something else has its name
// by now. Leaves errno alone, and does nothing the second time.
void close_output_file(OutputFile* file);

}  // namespace kvjpx_common

#endif  // KVJPX_COMMON_OUTPUT_FILE_H_
