// decode --raw: the library's own decoding, which composes planes of 8 bits a sample out of the
// file's codestreams and gives them no meaning.
#include "decode_raw.h"

#include <algorithm>
#include <cmath>

#include "box_path.h"
#include "codec_loader.h"
#include "commands.h"
#include "document.h"
#include "kv_j2k.h"
#include "progress.h"

namespace kvjpx_tool {
namespace {

constexpr uint32_t kCodestreamType = KV_JPX_TYPE('j', 'p', '2', 'c');
constexpr uint32_t kImageHeaderType = KV_JPX_TYPE('i', 'h', 'd', 'r');
// Without --limit, a file may cost so many samples a byte, and these in any case.
constexpr uint64_t kMillion = 1000000;
constexpr uint64_t kSamplesPerByte = 4096;
constexpr uint64_t kFreeSamples = 1 << 27;

Failure nothing_decoded(const Document& document, const std::string& reason) {
  return Failure(kNothingDecoded, document.label() + ": nothing could be decoded: " + reason);
}

uint64_t reduced(uint64_t extent, unsigned halvings) {
  return (extent + (uint64_t{1} << halvings) - 1) >> halvings;
}

std::vector<const Box*> find_codestreams(const Document& document) {
  std::vector<const Box*> codestreams;
  for_each_box(document.root(), [&](const Box& box) {
    if (box.type == kCodestreamType) codestreams.push_back(&box);
  });
  return codestreams;
}

std::string big_endian(uint64_t value, size_t width) {
  std::string bytes(width, 0);
  for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte, value >>= 8) {
    *byte = static_cast<char>(value);
  }
  return bytes;
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
std::string file_of_codestream(const Document& document, const Box& codestream) {
  const std::string_view payload =
      document.bytes().substr(codestream.content_begin, codestream.end - codestream.content_begin);
  if (payload.substr(0, 4) != "\xFF\x4F\xFF\x51" || payload.size() < 42) {
    throw nothing_decoded(document, path_of(codestream) + " is not a JPEG 2000 codestream");
  }
  const uint64_t right = number_at(payload, 8, 4), left = number_at(payload, 16, 4);
  const uint64_t bottom = number_at(payload, 12, 4), top = number_at(payload, 20, 4);
  if (left >= right || top >= bottom) {
    throw nothing_decoded(document, path_of(codestream) + " has an empty image area");
  }
  const std::string header = big_endian(bottom - top, 4) + big_endian(right - left, 4) +
                             big_endian(number_at(payload, 40, 2), 2) +
                             std::string("\x07\x07\x00\x00", 4);
  // The length 0 of the last box stands for the rest of the file.
  return big_endian(12, 4) + "jP  \r\n\x87\n" + big_endian(30, 4) + "jp2h" + big_endian(22, 4) +
         "ihdr" + header + big_endian(0, 4) + "jp2c" + std::string(payload);
}

ContextPointer load_codestream(const Document& document, const std::vector<const Box*>& codestreams,
                               uint64_t wanted) {
  if (wanted >= codestreams.size()) {
    throw Failure(kNoSuchPlace, document.label() + ": there is no codestream " +
                                    std::to_string(wanted) + "; the file has " +
                                    std::to_string(codestreams.size()) + ", counted from 0");
  }
  const std::string file = file_of_codestream(document, *codestreams[wanted]);
  ContextPointer context = make_context(document.label());
  const int32_t code = kv_jpx_set_input_image(context.get(), file.data(), file.size());
  if (code != JPX_OK) throw library_failure(document.label(), context.get(), kNothingDecoded);
  return context;
}

// The file as strict readers take it, by whose fields pictures are composed; null for one that they
// do not take, or only without its codestreams.
ContextPointer load_strictly(const Document& document) {
  ContextPointer context = make_context(document.label());
  uint32_t count = 0;
  if (document.load_into(context.get()) != JPX_OK) return nullptr;
  kv_jpx_get_box_count_by_type(context.get(), kCodestreamType, &count);
  return count > 0 ? std::move(context) : nullptr;
}

// What the library composes by: the first image header.
struct ImageSize {
  ImageSize(const Document& document, kv_jpx_context* context) {
    uint32_t id = KV_JPX_ROOT;
    if (kv_jpx_get_next_box_id_by_type(context, kImageHeaderType, 0, &id) != JPX_OK) {
      throw nothing_decoded(document, "the file has no image header");
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
ImageSize set_region(const Document& document, kv_jpx_context* context, const Region& region) {
  ImageSize size(document, context);
  if (region.left >= size.width || region.top >= size.height) {
    throw nothing_decoded(document, "the region lies outside the image of " + size.words());
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
DecodingLimit limit_cost(const Document& document, const DecodeRequest& request, ImageSize size) {
  DecodingLimit limit;
  limit.work = request.limit.value_or(kDefaultDecodeLimit) * kMillion;
  limit.free = limit.work;
  if (!request.limit) {
    limit.free = kFreeSamples;
    limit.work = std::min<uint64_t>(
        limit.work, std::max<uint64_t>(kFreeSamples, document.bytes().size() * kSamplesPerByte));
  }
  size.width = reduced(size.width, request.reduce);
  size.height = reduced(size.height, request.reduce);
  // A file's sizes have 32 bits, so this does not wrap around.
  limit.plane_size = size.width * size.height;
  if (size.planes != 0 && limit.plane_size > limit.work / size.planes) {
    const double needed = static_cast<double>(limit.plane_size) * static_cast<double>(size.planes);
    const auto millions = static_cast<uint64_t>(std::ceil(needed / kMillion));
    throw nothing_decoded(document, "a picture of " + size.words() + " with " +
                                        std::to_string(size.planes) +
                                        " components is too large; --limit " +
                                        std::to_string(millions) + " allows it");
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

LibraryBlock decode(const Document& document, kv_jpx_context* context) {
  const Progress progress("kvjpx: decoding " + document.label());
  return output_of(context, document.label(), kNothingDecoded);
}

std::string allowed_words(const DecodeRequest& request) {
  if (request.limit) return "the " + std::to_string(*request.limit) + " million samples of --limit";
  return "their size makes likely; --limit N allows work on N million samples";
}

std::string codec_words() {
  const std::string& error = decoding_record().error;
  return error.empty() ? "" : ": " + error;
}

void check_result(const Document& document, const LibraryBlock& picture, const std::string& format,
                  const DecodeRequest& request) {
  const DecodingRecord& record = decoding_record();
  if (record.stopped_by == KV_J2K_ERR_MEMORY) {
    throw Failure(kInputOutput, document.label() + ": not enough memory");
  }
  if (record.stopped_by == KV_J2K_ERR_LIMIT) {
    throw nothing_decoded(document,
                          "the codestreams ask for more work than " + allowed_words(request));
  }
  if (record.delivered == 0) {
    throw nothing_decoded(document, record.failed == 0 ? "no codestream reaches into the region"
                                                       : "the codec gave up" + codec_words());
  }
  if (picture.bytes().empty()) {
    throw nothing_decoded(
        document, std::string("the codec cannot write this picture as ") + format + codec_words());
  }
  if (record.failed > 0) {
    report(document.label() + ": note: " + std::to_string(record.failed) + " of " +
           std::to_string(record.failed + record.delivered) + " codestreams could not be decoded" +
           codec_words());
  }
}

}  // namespace

void decode_raw(const DecodeRequest& request, const Region& region, const std::string& format,
                int32_t output_type, const Target& target) {
  const Document document(request.file);
  const std::vector<const Box*> codestreams = find_codestreams(document);
  if (codestreams.empty()) throw nothing_decoded(document, "the file has no codestream");
  const ContextPointer own = request.codestream
                                 ? load_codestream(document, codestreams, *request.codestream)
                                 : load_strictly(document);
  kv_jpx_context* const context = own ? own.get() : document.context();
  const DecodingLimit limit = limit_cost(document, request, set_region(document, context, region));
  set_effort(context, request);
  load_codec(limit);

  kv_jpx_set_output_type(context, output_type);
  const LibraryBlock picture = decode(document, context);
  check_result(document, picture, format, request);
  write_result(target, picture.bytes());
}

}  // namespace kvjpx_tool
