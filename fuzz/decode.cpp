// Fuzzer: decoding, by both interfaces of the codec and through a context. An input that starts
// like a codestream (0xFF) or a JPX file (0) is one and is decoded as a whole; any other starts
// with nine bytes of settings.
#include <algorithm>

#include "kv_j2k_samples.h"
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

// Samples of a plane that stand in a span, as kv_j2k_samples.h promises them.
void check_span(uint32_t begin, uint32_t count, uint32_t from, uint32_t to, uint64_t spacing) {
  const auto points = [&](uint64_t end) { return (end + spacing - 1) / spacing; };
  require(begin == points(from) && begin + count == points(to),
          "a plane has the samples of its rectangle");
}

void check_samples(const kv_j2k_samples& samples, const kv_j2k_sample_request& request) {
  require(samples.plane_count == request.component_count, "planes are those asked for");
  require((samples.is_complete != 0) == (samples.missing[0] == 0), "what is missing is told");
  for (uint32_t i = 0; i < samples.plane_count; ++i) {
    const kv_j2k_plane& plane = samples.planes[i];
    const uint64_t scale = uint64_t{1} << request.reduction;
    require(plane.component == request.components[i], "planes are in the order asked for");
    check_span(plane.x0, plane.width, request.left, request.right, plane.dx * scale);
    check_span(plane.y0, plane.height, request.top, request.bottom, plane.dy * scale);
    const int64_t range = int64_t{1} << plane.precision;
    const int64_t least = plane.is_signed != 0 ? -range / 2 : 0;
    const size_t count = size_t{plane.width} * plane.height;
    require(std::all_of(plane.samples, plane.samples + count,
                        [&](int64_t v) { return v >= least && v < least + range; }),
            "samples keep to their precision");
  }
}

// The whole, or the part in the settings; then again a part of that, which may use what is left of
// the first time.
void decode_samples(const Settings& settings, Input codestream) {
  void* codec = nullptr;
  require(kv_j2k_create(&codec) == KV_J2K_OK, "a handle can be made");
  kv_j2k_codestream header = {};
  header.size = sizeof header;
  if (kv_j2k_set_input_borrowed(codec, codestream.data(), codestream.size()) == KV_J2K_OK) {
    require(kv_j2k_get_codestream(codec, &header) == KV_J2K_OK, "an input can be described");
    const uint32_t components[] = {0, header.components - 1};
    kv_j2k_sample_request request = {};
    request.size = sizeof request;
    request.flags = settings.flag == 0 ? KV_J2K_SAMPLES_PARTIAL : 0;
    const auto inside = [](uint64_t value, uint32_t from, uint32_t to) {
      return static_cast<uint32_t>(std::clamp<uint64_t>(value, from, to));
    };
    request.left = inside(settings.left, header.left, header.right - 1);
    request.top = inside(settings.top, header.top, header.bottom - 1);
    request.right =
        settings.has_region ? inside(settings.right, request.left + 1, header.right) : header.right;
    request.bottom = settings.has_region ? inside(settings.bottom, request.top + 1, header.bottom)
                                         : header.bottom;
    request.reduction = (static_cast<uint32_t>(settings.level) - 1) % (header.levels + 1);
    request.layers = static_cast<uint32_t>(settings.quality) % 8;
    request.components = components;
    request.component_count = header.components > 1 ? 2 : 1;
    request.threads = 1;
    for (int time = 0; time < 2; ++time) {
      kv_j2k_samples* samples = nullptr;
      const int32_t code = kv_j2k_decode_samples(codec, &request, &samples);
      require((code == KV_J2K_OK) == (samples != nullptr), "a failure delivers nothing");
      require(code != KV_J2K_ERR_INVALID_ARGUMENT && code != KV_J2K_ERR_MEMORY,
              "what there is can be asked for");
      if (samples != nullptr) check_samples(*samples, request);
      kv_j2k_free_samples(samples);
      request.bottom = request.top + (request.bottom - request.top + 1) / 2;
    }
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
    decode_samples(settings, input);
  }
}

}  // namespace kvjpx::fuzz
