// Fuzzer: a stream, and operations on it. The input's first byte chooses the kind of stream, two
// bytes are the number of the allocation that fails; then come steps, each a byte for the operation
// and its numbers. What readers deliver is held against the bytes of their file, what writers leave
// behind against a model in memory.
#include "stream/stream.h"

#include <string.h>

#include <algorithm>
#include <string>

#include "session.h"
#include "target.h"

namespace kvjpx::fuzz {
namespace {

constexpr uint64_t kView = 0x400000;  // of readers of files
constexpr uint64_t kLargeFile = 2 * kView + 5000;
constexpr uint64_t kSmallFile = 70000;
constexpr uint64_t kBuffer = 5000;
constexpr uint64_t kMostWritten = 300000;
constexpr int kMaxSteps = 64;

uint8_t byte_at(uint64_t position) {
  return static_cast<uint8_t>(position * 0x9E3779B97F4A7C15 >> 56);
}

Bytes pattern(uint64_t size) {
  Bytes result(size);
  for (uint64_t i = 0; i < size; ++i) result[i] = byte_at(i);
  return result;
}

const Bytes& small_contents() {
  static const Bytes contents = pattern(kSmallFile);
  return contents;
}

const char* large_file() {
  static const DiskFile file(pattern(kLargeFile));
  return file.path();
}

// Anywhere, but above all where things change: at the start, at the edges of views, at the end.
uint64_t take_place(Input* input, uint64_t size) {
  const uint8_t choice = input->byte();
  if (choice < 96) return input->number(2);
  if (choice < 160) return choice % 4 * kView + input->byte() - 128;
  return choice < 224 ? size + input->byte() - 200 : input->any_number();
}

// The i-th byte of a number that is stored in `width` bytes.
uint8_t stored_byte(uint64_t value, uint32_t i, uint32_t width, bool is_little) {
  return static_cast<uint8_t>(value >> 8 * (is_little ? i : width - 1 - i));
}

// Everything of these two is trivial, so that an error exit may leave their steps.
struct Reading {
  Environment* env;
  Stream* stream;
  Input* input;

  // The bytes in front of the position are those of the file, wherever the position is by now: a
  // file reader leaps when it loads its third view.
  void check_delivered(const uint8_t* bytes, uint64_t count) const {
    const uint64_t start = bs_get_current_position(env, stream) - count;
    for (uint64_t i = 0; i < count; ++i) {
      require(bytes[i] == byte_at(start + i), "a reader delivers the bytes of its file");
    }
  }

  void read_number() const {
    const uint32_t width = input->byte() % 10;
    const bool is_little = input->byte() % 2 != 0;
    const uint64_t before = bs_get_current_position(env, stream);
    const uint64_t value = bs_read_n_byte(env, stream, width, is_little ? 1 : 0);
    // A width that is none loads a view, and so may make a file reader leap, but takes nothing.
    if (bs_get_current_position(env, stream) == before || width == 0 || width > 8) {
      require(value == 0, "a read that takes nothing gives 0");
      return;
    }
    uint8_t bytes[8];
    for (uint32_t i = 0; i < width; ++i) bytes[i] = stored_byte(value, i, width, is_little);
    check_delivered(bytes, width);
  }

  void read_bytes() const {
    uint8_t bytes[kBuffer];
    const uint64_t count = input->number(2) % kBuffer;
    const uint64_t before = bs_get_current_position(env, stream);
    bs_read_memcpy(env, stream, bytes, count);
    const uint64_t after = bs_get_current_position(env, stream);
    require(stream->limits == nullptr || after == before || after <= stream->limits->limit ||
                stream->source == kvjpx::kFile,  // which may have leapt behind it
            "no read crosses the innermost limit");
    if (after != before) check_delivered(bytes, count);
  }

  void map() const {
    const uint64_t count = take_place(input, bs_get_file_size(env, stream));
    const uint64_t position = bs_get_current_position(env, stream);
    const uint8_t* const bytes = bs_map_pointer(env, stream, count);
    require(bs_get_current_position(env, stream) == position, "mapping moves nothing");
    for (uint64_t i = 0; i < count; i += 1 + count / 64) {
      require(bytes[i] == byte_at(position + i), "a mapped view shows the bytes of its file");
    }
    require(count == 0 || bytes[count - 1] == byte_at(position + count - 1), "up to its last byte");
  }

  void take_step() const {
    const uint64_t size = bs_get_file_size(env, stream);
    switch (input->byte() % 8) {
      case 0:
        return read_number();
      case 1:
        return read_bytes();
      case 2:
        return map();
      case 3:
        bs_push_read_limit(env, stream, take_place(input, size));
        return;
      case 4:
        return bs_pop_read_limit(env, stream);
      case 5:
        bs_refill(env, stream, input->number(2));
        return;
      default: {
        const uint64_t place = take_place(input, size);
        bs_set_current_position(env, stream, place);
        require(bs_get_current_position(env, stream) == place, "a stream goes where it is told");
        require(bs_at_eof(env, stream) == (place == size ? 1 : 0), "the end is at the size");
      }
    }
  }
};

struct Writing {
  Environment* env;
  Stream* stream;
  Input* input;
  std::string* model;

  uint64_t position() const { return bs_get_current_position(env, stream); }

  // What stands at the position and behind it; zeros where nothing was written.
  char* model_at(uint64_t place, uint64_t count) const {
    if (model->size() < place + count) model->resize(place + count);
    return model->data() + place;
  }

  void write_number() const {
    const uint64_t value = input->number(8);
    const uint32_t width = input->byte() % 10;
    const bool is_little = input->byte() % 2 != 0;
    const uint64_t place = position();
    bs_write_n_byte(env, stream, value, width, is_little ? 1 : 0);
    const uint32_t written = width > 8 ? 0 : width;
    char* const out = model_at(place, written);
    for (uint32_t i = 0; i < written; ++i) {
      out[i] = static_cast<char>(stored_byte(value, i, written, is_little));
    }
    require(position() == place + written, "a write moves the position");
  }

  void write_bytes() const {
    const uint64_t count = input->number(2) % 20000;
    const uint8_t* const bytes = small_contents().data() + input->number(2) % 50000;
    const uint64_t place = position();
    bs_write_memcpy(env, stream, bytes, count);
    memcpy(model_at(place, count), bytes, count);
  }

  void copy() const {
    const uint64_t start = input->number(2) % kSmallFile;
    const uint64_t count = input->number(2) % (kSmallFile - start);
    const uint64_t place = position();
    Stream* source = bs_reader_from_buffer(env, small_contents().data(), kSmallFile);
    bs_set_current_position(env, source, start);
    bs_write_from_bs(env, stream, source, count);
    destroy_stream(env, source);
    memcpy(model_at(place, count), small_contents().data() + start, count);
  }

  void map() const {
    const uint64_t count = input->number(2) % kBuffer;
    const uint64_t place = position();
    const uint8_t* const bytes = bs_map_pointer(env, stream, count);
    require(count == 0 || memcmp(bytes, model_at(place, count), count) == 0,
            "a writer shows what stands in it");
  }

  void take_step() const {
    switch (input->byte() % 8) {
      case 0:
        return write_number();
      case 1:
        return write_bytes();
      case 2:
        return copy();
      case 3:
        return map();
      case 4:
        return bs_writer_grow(env, stream, input->number(2));
      case 5:
        env->stream_view_limit = input->number(2);
        return;
      case 6:
        return end_here();
      default:
        bs_set_current_position(env, stream, take_place(input, model->size()) % kMostWritten);
    }
  }

  void end_here() const {
    const uint64_t place = position();
    bs_set_eof(env, stream);
    model->resize(place);
  }
};

enum class Target { kMemory, kBuffer, kFile, kMapped };

Stream* open_reader(Environment* env, Source source) {
  if (source == Source::kFile) return bs_reader_from_file(env, large_file());
  if (source == Source::kMapped) return bs_reader_from_mmap(env, large_file());
  return bs_reader_from_buffer(env, small_contents().data(), kSmallFile);
}

Stream* open_writer(Environment* env, Target target, const char* path, uint8_t* buffer,
                    uint64_t view) {
  if (target == Target::kFile) return bs_writer_to_file(env, path, view);
  if (target == Target::kMapped) return bs_writer_to_mmap(env, path, view);
  return bs_writer_to_buffer(env, target == Target::kBuffer ? buffer : nullptr, kBuffer);
}

void run_reader(Environment* env, Source source, Input* input) {
  const Reading reading = {env, open_reader(env, source), input};
  for (int i = 0; i < kMaxSteps && !input->is_empty(); ++i) reading.take_step();
}

// What the finished stream must hold is the model; where it is held, the caller looks.
void run_writer(Environment* env, Target target, const char* path, uint8_t* buffer, Input* input,
                std::string* model) {
  Stream* stream = open_writer(env, target, path, buffer, input->number(2));
  const Writing writing = {env, stream, input, model};
  for (int i = 0; i < kMaxSteps && model->size() < kMostWritten && !input->is_empty(); ++i) {
    writing.take_step();
  }
  writing.end_here();
  if (target == Target::kMemory) {
    uint64_t length;
    uint8_t* bytes = bs_writer_get_buffer(env, stream, &length);
    require(length == model->size() && (length == 0 || memcmp(bytes, model->data(), length) == 0),
            "a memory writer hands over what was written");
    release(env, bytes);
  }
  destroy_stream(env, stream);
}

void check_writer(const Session& session, Target target, Input* input) {
  static const DiskFile file({});
  static uint8_t buffer[kBuffer];
  Environment* const env = &session.get()->environment;
  memset(buffer, 0, sizeof(buffer));
  std::string model;
  const int code =
      raised(env, [&] { run_writer(env, target, file.path(), buffer, input, &model); });
  // 999: copies with steps of no length, and growing a buffer that is the caller's.
  require(code == 0 || code == JPX_ERR_MEMORY || code == JPX_ERR_INTERNAL ||
              (code == JPX_ERR_BUFFER_TOO_SMALL && target == Target::kBuffer),
          "a writer fails for its own reasons only");
  if (code != JPX_ERR_INTERNAL) session.judged(code);
  if (code != 0 || target == Target::kMemory) return;
  const bool is_on_disk = target != Target::kBuffer;
  const Bytes held = is_on_disk ? file.contents() : Bytes(buffer, buffer + model.size());
  require(std::equal(held.begin(), held.end(), model.begin(), model.end(),
                     [](uint8_t a, char b) { return a == static_cast<uint8_t>(b); }),
          "a writer leaves what was written");
}

void check_reader(const Session& session, Source source, Input* input) {
  Environment* const env = &session.get()->environment;
  const int code = raised(env, [&] { run_reader(env, source, input); });
  // A file reader that seeks near the end of a large file ends in 999, and its leaps in 18.
  require(
      code == 0 || code == JPX_ERR_MEMORY || code == JPX_ERR_BUFFER_TOO_SMALL ||
          (source == Source::kFile && (code == JPX_ERR_INTERNAL || code == JPX_ERR_READ_PAST_END)),
      "a reader fails for its own reasons only");
  if (code != JPX_ERR_INTERNAL) session.judged(code);
}

}  // namespace

// Odd choices are writers.
void run(Input input) {
  const uint8_t choice = input.byte();
  const Session session(input.number(2));
  if (session.get() == nullptr) return;
  if (choice % 2 != 0) {
    check_writer(session, static_cast<Target>(choice / 2 % 4), &input);
  } else {
    check_reader(session, static_cast<Source>(choice / 2 % 3), &input);
  }
}

}  // namespace kvjpx::fuzz
