// Output files that are whole or not there (see file_output.h).
#include "api/file_output.h"

#include <sys/stat.h>
#include <unistd.h>

#include "output_file.h"
#include "stream/view.h"

namespace kvjpx {

// What an error exit closes and removes.
struct FileOutput {
  kvjpx_common::OutputFile file;
  Resource resource;
  Environment* env;
  Stream* writer;
  Stream* input;
  bool has_content;  // written by other means than the writer
  uint32_t refusal;  // of that
};

namespace {

void abandon(Resource* resource) {
  auto* output = reinterpret_cast<FileOutput*>(reinterpret_cast<char*>(resource) -
                                               offsetof(FileOutput, resource));
  close_output_file(&output->file);
}

bool may_be_same_file(int a, int b) {
  struct stat of_a, of_b;
  if (fstat(a, &of_a) != 0 || fstat(b, &of_b) != 0) return true;
  return of_a.st_dev == of_b.st_dev && of_a.st_ino == of_b.st_ino;
}

// The tree must read tomorrow what it was loaded from, though its file is overwritten now.
void keep_input(kvjpx_common::OutputFile* file) {
  static_assert(offsetof(FileOutput, file) == 0, "the file stands for the record");
  auto* output = reinterpret_cast<FileOutput*>(file);
  Stream* const input = output->input;
  if (input->descriptor < 0 || !may_be_same_file(input->descriptor, file->target)) return;
  take_into_memory(output->env, input);
  if (view_length(input) < input->size) JPX_ErrorExit(output->env, JPX_ERR_FILE_IO);
}

uint32_t write_and_complete(Environment* env, FileOutput* output) {
  kvjpx_common::OutputFile* const file = &output->file;
  Stream* const writer = output->writer;
  if (output->has_content) {
    file->is_changed = file->is_changed || file->staged < 0;
    if (output->refusal != JPX_OK) return output->refusal;
    if (file->staged < 0) return JPX_OK;
    // What people keep must not become an empty file when the power fails after the renaming.
    if (fsync(file->staged) != 0) return JPX_ERR_FILE_IO;
  } else if (file->staged >= 0) {
    const uint32_t refusal = finish_output_writer(env, writer);
    if (refusal != JPX_OK) return refusal;
  } else {
    const uint64_t length = bs_get_current_position(env, writer);
    if (!fill_output_file(file, writer->buffer_start, length)) return JPX_ERR_FILE_IO;
  }
  return complete_output_file(file) ? JPX_OK : JPX_ERR_FILE_IO;
}

}  // namespace

FileOutput* open_output(Environment* env, const char* path, uint64_t length, Stream* input,
                        Stream** writer) {
  auto* output = static_cast<FileOutput*>(allocate_zeroed(env, sizeof(FileOutput)));
  if (path == nullptr || !open_output_file(&output->file, path)) {
    release(env, output);
    return nullptr;
  }
  attach_resource(env, &output->resource, abandon);
  output->env = env;
  output->input = input;
  output->file.before_change = keep_input;
  output->writer = make_output_writer(env, output->file.staged, length);
  *writer = output->writer;
  return output;
}

int32_t sequential_descriptor(const FileOutput* output) {
  const kvjpx_common::OutputFile& file = output->file;
  return file.staged >= 0 || file.is_regular ? file.staged : file.target;
}

void note_content(FileOutput* output, uint32_t result) {
  output->has_content = true;
  output->writer->descriptor = -1;  // it is not the writer's to close
  output->refusal = result;
}

int32_t finish_output(Environment* env, FileOutput* output) {
  const uint32_t result = write_and_complete(env, output);
  if (result != JPX_OK && output->file.is_changed) JPX_ErrorExit(env, result);
  detach_resource(env, &output->resource);
  close_output_file(&output->file);
  destroy_stream(env, output->writer);
  release(env, output);
  return static_cast<int32_t>(result);
}

}  // namespace kvjpx
