// Fuzzer: decoding, by the codec directly and through a context. An input that starts like a
// codestream (0xFF) or a JPX file (0) is one and is decoded as a whole; any other starts with nine
// bytes of settings.
#include <algorithm>

#include "kv_j2k.h"
#include "session.h"
#include "target.h"

extern "C" {
int32_t __real_kv_j2k_create(void** codec);
int32_t __wrap_kv_j2k_create(void** codec);

// The linker sends all calls of kv_j2k_create here. Small limits keep a run short.
int32_t __wrap_kv_j2k_create(void** codec) {
  constexpr uint64_t kMost = uint64_t{1} << 17;
  constexpr uint64_t kFree = uint64_t{1} << 14;
  const int32_t code = __real_kv_j2k_create(codec);
  if (code == KV_J2K_OK) kv_j2k_set_limits(*codec, kMost, 64, kFree);
  return code;
}
}

namespace kvjpx::fuzz {
namespace {

constexpr uint8_t kCodestreamStart = 0xFF;
constexpr uint8_t kFileStart = 0;

struct Settings {
  bool has_region = false;
  uint64_t left = 0;
  uint64_t top = 0;
  uint64_t right = 0;
  uint64_t bottom = 0;
  int16_t level = 1;
  int16_t flag = 0;
  int16_t quality = 1;
  int32_t type = KV_J2K_OUTPUT_PLANES;
};

Settings take_settings(Input& input) {
  Settings result;
  if (input.is_empty() || *input.data() == kCodestreamStart || *input.data() == kFileStart) {
    return result;
  }
  constexpr int32_t kTypes[] = {64, 66, 67, 68, 69, 70, 71, 75, 77};
  const uint8_t choice = input.byte();
  result.type = kTypes[choice % 9];
  result.has_region = choice % 2 == 0;
  result.left = input.byte();
  result.top = input.byte();
  result.right = input.byte();
  result.bottom = input.byte();
  result.level = static_cast<int16_t>(input.byte() % 36);
  result.flag = static_cast<int16_t>(input.byte() % 2);
  result.quality = static_cast<int16_t>(input.number(2));
  return result;
}

struct Grid {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t x_offset = 0;
  uint32_t y_offset = 0;
  uint32_t components = 0;
};

Grid grid_of(void* codec) {
  Grid grid;
  uint32_t reserved;
  uint32_t unused[4];
  require(kv_j2k_get_input_image_info(codec, &grid.width, &grid.height, &reserved,
                                      &grid.components) == KV_J2K_OK,
          "an accepted codestream can be described");
  require(kv_j2k_get_input_j2k_tile_info(codec, &unused[0], &unused[1], &unused[2], &unused[3],
                                         &grid.x_offset, &grid.y_offset) == KV_J2K_OK,
          "an accepted codestream can be described");
  return grid;
}

// Columns or rows delivered for a span of the reference grid, as kv_j2k.h promises them.
uint64_t extent(uint64_t from, uint64_t to, uint64_t offset, uint64_t size, uint32_t reduction) {
  const uint64_t round = (uint64_t{1} << reduction) - 1;
  const uint64_t end = (std::min(to, size) + round) >> reduction;
  const uint64_t begin = (std::max(from, offset) + round) >> reduction;
  return end > begin ? end - begin : 0;
}

uint64_t promised_samples(const Grid& grid, const Settings& settings) {
  const bool is_reduced = settings.level >= 2 && settings.flag != 1;
  const uint32_t reduction = is_reduced ? (static_cast<uint32_t>(settings.level) - 1) % 32 : 0;
  const uint64_t left = settings.has_region ? settings.left : 0;
  const uint64_t top = settings.has_region ? settings.top : 0;
  const uint64_t right = settings.has_region ? settings.right : UINT64_MAX;
  const uint64_t bottom = settings.has_region ? settings.bottom : UINT64_MAX;
  return extent(left, right, grid.x_offset, grid.width, reduction) *
         extent(top, bottom, grid.y_offset, grid.height, reduction) * grid.components;
}

void deliver(void* codec, const Settings& settings, const Grid& grid) {
  void* block = nullptr;
  uint32_t length = 0;
  const int32_t code = kv_j2k_get_output_image(codec, &block, &length);
  require(kv_j2k_get_error_text(codec) != nullptr, "there is always a text");
  if (code != KV_J2K_OK) {
    require(block == nullptr && length == 0, "a failure delivers nothing");
    return;
  }
  require((block == nullptr) == (length == 0), "a block comes with its length");
  if (settings.type == KV_J2K_OUTPUT_PLANES || settings.type == KV_J2K_OUTPUT_INTERLEAVED) {
    require(length == promised_samples(grid, settings), "the picture has the size promised");
  }
  Bytes room(length);
  void* target = room.data();
  uint32_t filled = length;
  if (length != 0) {
    require(kv_j2k_get_output_image(codec, &target, &filled) == KV_J2K_OK && filled == length,
            "the output fits into its length");
    require(std::equal(room.begin(), room.end(), static_cast<const uint8_t*>(block)),
            "the output stays the same");
  }
  const int32_t expected = length != 0 ? KV_J2K_OK : KV_J2K_ERR_NOTHING_TO_WRITE;
  require(kv_j2k_get_output_image_file(codec, "/dev/null") == expected,
          "what is delivered can be written");
  kv_j2k_free(codec, block);
}

void decode_codestream(const Settings& settings, Input codestream) {
  void* codec = nullptr;
  require(kv_j2k_create(&codec) == KV_J2K_OK, "a handle can be made");
  if (kv_j2k_set_input_image(codec, codestream.data(), static_cast<uint32_t>(codestream.size())) ==
      KV_J2K_OK) {
    const Grid grid = grid_of(codec);
    if (settings.has_region) {
      kv_j2k_set_input_j2k_region_level(codec, settings.left, settings.top, settings.right,
                                        settings.bottom);
    }
    kv_j2k_set_input_j2k_resolution_level(codec, settings.level, settings.flag);
    kv_j2k_set_input_j2k_quality_level(codec, settings.quality);
    kv_j2k_set_output_type(codec, settings.type);
    deliver(codec, settings, grid);
  }
  require(kv_j2k_destroy(codec) == KV_J2K_OK, "a handle can be ended");
}

void decode_file(const Settings& settings, const Bytes& file) {
  constexpr size_t kLargestPicture = size_t{1} << 20;
  Session session;
  session.allocator().set_largest_block(kLargestPicture);
  if (session.load(file) != JPX_OK) return;
  kv_jpx_context* const context = session.get();
  if (settings.has_region) {
    kv_jpx_set_input_jpx_region_level(context, settings.left, settings.top, settings.right,
                                      settings.bottom);
  }
  kv_jpx_set_input_jpx_resolution_level(context, settings.level, settings.flag);
  kv_jpx_set_input_jpx_quality_level(context, settings.quality);
  require(kv_jpx_set_output_type(context, settings.type) == JPX_OK, "the type is one of the list");
  void* data = nullptr;
  uint64_t length = 0;
  // Code 1 also means a picture of a size that cannot even be asked for.
  const int32_t code = kv_jpx_get_output_image(context, &data, &length);
  require(code == JPX_OK || code == JPX_ERR_MEMORY, "what the codec cannot decode is left empty");
  if (code != JPX_OK) return;
  require((data == nullptr) == (length == 0), "a block comes with its length");
  if (data != nullptr) require(kv_jpx_free(context, data) == JPX_OK, "an output can be freed");
}

}  // namespace

void run(Input input) {
  const Settings settings = take_settings(input);
  if (!input.is_empty() && *input.data() == kFileStart) {
    decode_file(settings, input.bytes(input.size()));
  } else {
    decode_codestream(settings, input);
  }
}

}  // namespace kvjpx::fuzz
