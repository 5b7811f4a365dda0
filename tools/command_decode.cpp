// decode: a picture out of the file's codestreams.
#include <algorithm>
#include <cctype>
#include <sstream>

#include "box_path.h"
#include "codec_loader.h"
#include "commands.h"
#include "document.h"
#include "progress.h"
#include "value.h"

namespace kvjpx_tool {
namespace {

constexpr uint32_t kCodestreamType = KV_JPX_TYPE('j', 'p', '2', 'c');
constexpr uint32_t kImageHeaderType = KV_JPX_TYPE('i', 'h', 'd', 'r');

struct Format {
  const char* name;  // also the ending of file names
  int32_t output_type;
};

constexpr Format kFormats[] = {
    {"png", 68}, {"bmp", 66},  {"pnm", 67}, {"ppm", 67},  {"pgm", 67}, {"pam", 67},
    {"tif", 69}, {"tiff", 69}, {"jpg", 70}, {"jpeg", 70}, {"raw", 71}, {"planar", 64},
    {"j2k", 75}, {"j2c", 75},  {"jpc", 75}, {"jp2", 77},
};

const Format* find_format(std::string name) {
  for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  const auto* found = std::find_if(std::begin(kFormats), std::end(kFormats),
                                   [&](const Format& format) { return name == format.name; });
  return found == std::end(kFormats) ? nullptr : found;
}

const Format& choose_format(const DecodeRequest& request, const Target& target) {
  if (!request.format.empty()) {
    const Format* format = find_format(request.format);
    if (format) return *format;
    throw Failure(kUsage, "--format " + request.format + ": unknown; one of " + decode_formats());
  }
  if (target.is_stdout()) throw Failure(kUsage, "standard output needs --format");
  const size_t dot = target.name.rfind('.');
  const Format* format =
      dot == std::string::npos ? nullptr : find_format(target.name.substr(dot + 1));
  if (format) return *format;
  throw Failure(kUsage, target.name + ": the name tells no format; use --format with one of " +
                            decode_formats());
}

struct Region {
  uint64_t left = 0;
  uint64_t top = 0;
  uint64_t right = 0;  // exclusive; 0 is the image's edge, as is bottom
  uint64_t bottom = 0;
};

Region parse_region(const std::string& text) {
  uint64_t edges[4] = {};
  if (text.empty()) return {};
  size_t count = 0;
  std::istringstream parts(text + ",");
  for (std::string part; std::getline(parts, part, ',');) {
    const std::optional<uint64_t> edge = parse_number(part);
    if (!edge || count == 4) {
      count = 0;
      break;
    }
    edges[count++] = *edge;
  }
  const Region region{edges[0], edges[1], edges[2], edges[3]};
  const bool is_empty = (region.right != 0 && region.right <= region.left) ||
                        (region.bottom != 0 && region.bottom <= region.top);
  if (count != 4 || is_empty) {
    throw Failure(kUsage, "--region " + text +
                              ": needs left,top,right,bottom with left < right and top < bottom "
                              "(0 for right or bottom is the image's edge)");
  }
  return region;
}

Failure nothing_decoded(const Document& document, const std::string& reason) {
  return Failure(kNothingDecoded, document.label() + ": nothing could be decoded: " + reason);
}

std::vector<const Box*> find_codestreams(const Document& document) {
  std::vector<const Box*> codestreams;
  for_each_box(document.root(), [&](const Box& box) {
    if (box.type == kCodestreamType) codestreams.push_back(&box);
  });
  return codestreams;
}

// The image header that the library composes by: the first one in the file.
class ImageHeader {
 public:
  explicit ImageHeader(const Document& document) : document_(document) {
    if (kv_jpx_get_next_box_id_by_type(document.context(), kImageHeaderType, 0, &id_) != JPX_OK) {
      throw nothing_decoded(document, "the file has no image header");
    }
  }

  uint64_t get(uint32_t key) const {
    uint64_t value = 0;
    kv_jpx_get_box_field_int(document_.context(), id_, key, 0, &value);
    return value;
  }

  void set(uint32_t key, uint64_t value) const {
    const int32_t code = kv_jpx_set_box_field_int(document_.context(), id_, key, 0, value);
    if (code != JPX_OK) throw nothing_decoded(document_, library_reason(code));
  }

 private:
  const Document& document_;
  uint32_t id_ = KV_JPX_ROOT;
};

uint64_t big_endian(std::string_view bytes, size_t position, size_t width) {
  uint64_t value = 0;
  for (const char byte : bytes.substr(position, width)) {
    value = value << 8 | static_cast<unsigned char>(byte);
  }
  return value;
}

// Makes the image header say what the codestream's own header says, the SIZ marker segment (ISO/IEC
// 15444-1, A.5.1), so that the composed picture is this codestream and nothing else.
void adopt_codestream_size(const Document& document, const Box& codestream) {
  const std::string_view payload =
      document.bytes().substr(codestream.content_begin, codestream.end - codestream.content_begin);
  if (payload.substr(0, 4) != "\xFF\x4F\xFF\x51" || payload.size() < 42) {
    throw nothing_decoded(document, path_of(codestream) + " is not a JPEG 2000 codestream");
  }
  const ImageHeader header(document);
  header.set(JPX_FIELD_IHDR_WIDTH, big_endian(payload, 8, 4) - big_endian(payload, 16, 4));
  header.set(JPX_FIELD_IHDR_HEIGHT, big_endian(payload, 12, 4) - big_endian(payload, 20, 4));
  header.set(JPX_FIELD_IHDR_NC, big_endian(payload, 40, 2));
}

// Leaves one codestream in the tree: a single one is not placed by an instruction set.
void keep_codestream(const Document& document, const std::vector<const Box*>& codestreams,
                     uint64_t wanted) {
  if (wanted >= codestreams.size()) {
    throw Failure(kNoSuchPlace, document.label() + ": there is no codestream " +
                                    std::to_string(wanted) + "; the file has " +
                                    std::to_string(codestreams.size()) + ", counted from 0");
  }
  adopt_codestream_size(document, *codestreams[wanted]);
  for (const Box* codestream : codestreams) {
    if (codestream != codestreams[wanted]) kv_jpx_delete_box(document.context(), codestream->id);
  }
}

void set_region(const Document& document, const Region& region) {
  const ImageHeader header(document);
  const uint64_t width = header.get(JPX_FIELD_IHDR_WIDTH);
  const uint64_t height = header.get(JPX_FIELD_IHDR_HEIGHT);
  if (region.left >= width || region.top >= height) {
    throw nothing_decoded(document, "the region lies outside the image of " +
                                        std::to_string(width) + " x " + std::to_string(height));
  }
  // The library works with 32-bit sizes; cut here, a larger edge means what it says.
  kv_jpx_set_input_jpx_region_level(document.context(), region.left, region.top,
                                    std::min(region.right, width), std::min(region.bottom, height));
}

void set_effort(const Document& document, const DecodeRequest& request) {
  // Level 1 stands for everything in both scales. The codec takes the number of layers from the low
  // byte, so a higher bit tells one single layer from level 1.
  kv_jpx_set_input_jpx_resolution_level(document.context(),
                                        static_cast<int16_t>(request.reduce + 1), 0);
  if (request.layers) {
    kv_jpx_set_input_jpx_quality_level(document.context(),
                                       static_cast<int16_t>(0x100 | *request.layers));
  }
}

LibraryBlock decode(const Document& document) {
  const Progress progress("kvjpx: decoding " + document.label());
  return document.output();
}

std::string codec_words() {
  const std::string& error = decoding_record().error;
  return error.empty() ? "" : ": " + error;
}

void check_result(const Document& document, const LibraryBlock& picture, const Format& format) {
  const DecodingRecord& record = decoding_record();
  if (record.delivered == 0) {
    throw nothing_decoded(document, record.failed == 0 ? "no codestream reaches into the region"
                                                       : "the codec gave up" + codec_words());
  }
  if (picture.bytes().empty()) {
    throw nothing_decoded(document, std::string("the codec cannot write this picture as ") +
                                        format.name + codec_words());
  }
  if (record.failed > 0) {
    report(document.label() + ": note: " + std::to_string(record.failed) + " of " +
           std::to_string(record.failed + record.delivered) + " codestreams could not be decoded" +
           codec_words());
  }
}

}  // namespace

std::string decode_formats() {
  std::string names;
  for (const Format& format : kFormats)
    names += (names.empty() ? "" : ", ") + std::string(format.name);
  return names;
}

void decode_picture(const DecodeRequest& request, const Target& target) {
  const Format& format = choose_format(request, target);
  const Region region = parse_region(request.region);
  check_takes_binary(target);
  const Document document(request.file);
  const std::vector<const Box*> codestreams = find_codestreams(document);
  if (codestreams.empty()) throw nothing_decoded(document, "the file has no codestream");
  if (request.codestream) keep_codestream(document, codestreams, *request.codestream);
  set_region(document, region);
  set_effort(document, request);
  load_codec();

  kv_jpx_set_output_type(document.context(), format.output_type);
  const LibraryBlock picture = decode(document);
  check_result(document, picture, format);
  write_result(target, picture.bytes());
}

}  // namespace kvjpx_tool
