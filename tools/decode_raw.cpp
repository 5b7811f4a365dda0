// decode --raw: the library's own decoding, which composes planes of 8 bits a sample out of the
// file's codestreams and gives them no meaning.
#include "decode_raw.h"

#include <algorithm>
#include <cmath>

#include "codec_loader.h"
#include "commands.h"
#include "kv_j2k.h"
#include "opened_file.h"
#include "picture_reading.h"
#include "progress.h"
#include "value.h"

namespace kvjpx_tool {
namespace {

constexpr uint32_t kImageHeaderType = KV_JPX_TYPE('i', 'h', 'd', 'r');
// Without --limit, a file may cost so many samples a byte, and these in any case.
constexpr uint64_t kSamplesPerByte = 4096;
constexpr uint64_t kFreeSamples = 1 << 27;

Failure nothing_decoded(const OpenedFile& file, const std::string& reason) {
  return Failure(kNothingDecoded, file.label() + ": nothing could be decoded: " + reason);
}

uint64_t reduced(uint64_t extent, unsigned halvings) {
  return (extent + (uint64_t{1} << halvings) - 1) >> halvings;
}

std::vector<kvjpx::box> find_codestreams(const OpenedFile& file) {
  const kvjpx::type_range codestreams = file.document().boxes("jp2c");
  return {codestreams.begin(), codestreams.end()};
}

uint64_t number_at(std::string_view bytes, size_t position, size_t width) {
  uint64_t value = 0;
  for (const char byte : bytes.substr(position, width)) {
    value = value << 8 | static_cast<unsigned char>(byte);
  }
  return value;
}

// A file of one codestream alone, so that no instruction set places it. Its image header says what
// the codestream's own header says, the SIZ marker segment (ISO/IEC 15444-1, A.5.1).
std::string file_of_codestream(const OpenedFile& file, kvjpx::box codestream) {
  const std::string_view payload = codestream.source_content().value_or(kvjpx::byte_view()).text();
  if (payload.substr(0, 4) != "\xFF\x4F\xFF\x51" || payload.size() < 42) {
    throw nothing_decoded(file, codestream.path() + " is not a JPEG 2000 codestream");
  }
  const uint64_t right = number_at(payload, 8, 4), left = number_at(payload, 16, 4);
  const uint64_t bottom = number_at(payload, 12, 4), top = number_at(payload, 20, 4);
  if (left >= right || top >= bottom) {
    throw nothing_decoded(file, codestream.path() + " has an empty image area");
  }
  const std::string header = big_endian(bottom - top, 4) + big_endian(right - left, 4) +
                             big_endian(number_at(payload, 40, 2), 2) +
                             std::string("\x07\x07\x00\x00", 4);
  // The length 0 of the last box stands for the rest of the file.
  return big_endian(12, 4) + "jP  \r\n\x87\n" + big_endian(30, 4) + "jp2h" + big_endian(22, 4) +
         "ihdr" + header + big_endian(0, 4) + "jp2c" + std::string(payload);
}

kvjpx::document load_codestream(const OpenedFile& file, const std::vector<kvjpx::box>& codestreams,
                                uint64_t wanted) {
  if (wanted >= codestreams.size()) {
    throw Failure(kNoSuchPlace, file.label() + ": there is no codestream " +
                                    std::to_string(wanted) + "; the file has " +
                                    std::to_string(codestreams.size()) + ", counted from 0");
  }
  return taken(
      kvjpx::document::read(file_of_codestream(file, codestreams[wanted]), kvjpx::reading::strict),
      file.label(), kNothingDecoded);
}

// The file as strict readers take it, by whose fields pictures are composed; nothing for one that
// they do not take, or only without its codestreams.
std::optional<kvjpx::document> load_strictly(const OpenedFile& file) {
  auto strict = file.read_again(kvjpx::reading::strict);
  if (!strict || strict->count("jp2c") == 0) return std::nullopt;
  return *std::move(strict);
}

// What the library composes by: the first image header.
struct ImageSize {
  ImageSize(const OpenedFile& file, kv_jpx_context* context) {
    uint32_t id = KV_JPX_ROOT;
    if (kv_jpx_get_next_box_id_by_type(context, kImageHeaderType, 0, &id) != JPX_OK) {
      throw nothing_decoded(file, "the file has no image header");
    }
    kv_jpx_get_box_field_int(context, id, JPX_FIELD_IHDR_WIDTH, 0, &width);
    kv_jpx_get_box_field_int(context, id, JPX_FIELD_IHDR_HEIGHT, 0, &height);
    kv_jpx_get_box_field_int(context, id, JPX_FIELD_IHDR_NC, 0, &planes);
  }

  std::string words() const { return std::to_string(width) + " x " + std::to_string(height); }

  uint64_t width = 0;
  uint64_t height = 0;
  uint64_t planes = 0;
};

// Returns the size of what the region leaves of the picture.
ImageSize set_region(const OpenedFile& file, kv_jpx_context* context, const Region& region) {
  ImageSize size(file, context);
  if (region.left >= size.width || region.top >= size.height) {
    throw nothing_decoded(file, "the region lies outside the image of " + size.words());
  }
  // The library works with 32-bit sizes; cut here, a larger edge means what it says.
  const uint64_t right = std::min(region.right, size.width);
  const uint64_t bottom = std::min(region.bottom, size.height);
  kv_jpx_set_input_jpx_region_level(context, region.left, region.top, right, bottom);
  size.width = (right != 0 ? right : size.width) - region.left;
  size.height = (bottom != 0 ? bottom : size.height) - region.top;
  return size;
}

// Throws when the composed picture alone is more than the file may cost.
DecodingLimit limit_cost(const OpenedFile& file, const DecodeRequest& request, ImageSize size) {
  DecodingLimit limit;
  limit.work = request.limit.value_or(kDefaultDecodeLimit) * kMillion;
  limit.free = limit.work;
  if (!request.limit) {
    limit.free = kFreeSamples;
    limit.work = std::min<uint64_t>(
        limit.work, std::max<uint64_t>(kFreeSamples, file.bytes().size() * kSamplesPerByte));
  }
  size.width = reduced(size.width, request.reduce);
  size.height = reduced(size.height, request.reduce);
  // A file's sizes have 32 bits, so this does not wrap around.
  limit.plane_size = size.width * size.height;
  if (size.planes != 0 && limit.plane_size > limit.work / size.planes) {
    const double needed = static_cast<double>(limit.plane_size) * static_cast<double>(size.planes);
    const auto millions = static_cast<uint64_t>(std::ceil(needed / kMillion));
    throw nothing_decoded(
        file, "a picture of " + size.words() + " with " + std::to_string(size.planes) +
                  " components is too large; --limit " + std::to_string(millions) + " allows it");
  }
  return limit;
}

void set_effort(kv_jpx_context* context, const DecodeRequest& request) {
  // Level 1 stands for everything in both scales. The codec takes the number of layers from the low
  // byte, so a higher bit tells one single layer from level 1.
  kv_jpx_set_input_jpx_resolution_level(context, static_cast<int16_t>(request.reduce + 1), 0);
  if (request.layers) {
    kv_jpx_set_input_jpx_quality_level(context, static_cast<int16_t>(0x100 | *request.layers));
  }
}

kvjpx::block decode(const OpenedFile& file, const kvjpx::document& picture, int32_t output_type) {
  const Progress progress("kvjpx: decoding " + file.label());
  return taken(picture.output(output_type), file.label(), kNothingDecoded);
}

std::string allowed_words(const DecodeRequest& request) {
  if (request.limit) return "the " + std::to_string(*request.limit) + " million samples of --limit";
  return "their size makes likely; --limit N allows work on N million samples";
}

std::string codec_words() {
  const std::string& error = decoding_record().error;
  return error.empty() ? "" : ": " + error;
}

void check_result(const OpenedFile& file, const kvjpx::block& picture, const std::string& format,
                  const DecodeRequest& request) {
  const DecodingRecord& record = decoding_record();
  if (record.stopped_by == KV_J2K_ERR_MEMORY) {
    throw Failure(kInputOutput, file.label() + ": not enough memory");
  }
  if (record.stopped_by == KV_J2K_ERR_LIMIT) {
    throw nothing_decoded(file, "the codestreams ask for more work than " + allowed_words(request));
  }
  if (record.delivered == 0) {
    throw nothing_decoded(file, record.failed == 0 ? "no codestream reaches into the region"
                                                   : "the codec gave up" + codec_words());
  }
  if (picture.empty()) {
    throw nothing_decoded(
        file, std::string("the codec cannot write this picture as ") + format + codec_words());
  }
  if (record.failed > 0) {
    report(file.label() + ": note: " + std::to_string(record.failed) + " of " +
           std::to_string(record.failed + record.delivered) + " codestreams could not be decoded" +
           codec_words());
  }
}

}  // namespace

void decode_raw(const DecodeRequest& request, const Region& region, const std::string& format,
                int32_t output_type, const Target& target) {
  const OpenedFile file(request.file, OpenedFile::Content::kBoxes);
  const std::vector<kvjpx::box> codestreams = find_codestreams(file);
  if (codestreams.empty()) throw nothing_decoded(file, "the file has no codestream");
  const std::optional<kvjpx::document> own =
      request.codestream ? load_codestream(file, codestreams, *request.codestream)
                         : load_strictly(file);
  const kvjpx::document& document = own ? *own : file.document();
  kv_jpx_context* const context = document.context();
  const DecodingLimit limit = limit_cost(file, request, set_region(file, context, region));
  set_effort(context, request);
  load_codec(limit);

  const kvjpx::block picture = decode(file, document, output_type);
  check_result(file, picture, format, request);
  write_result(target, picture.text());
}

}  // namespace kvjpx_tool
