#include "thumbnail.h"

#include <algorithm>

#include "codec_loader.h"
#include "document.h"
#include "kv_j2k.h"

namespace kvjpx_tool {
namespace {

constexpr int32_t kPng = 68;
constexpr uint64_t kWantedSide = 640;
// What is larger, as it has no reduced resolution, is no thumbnail.
constexpr uint64_t kMaxSide = 2048;
constexpr uint64_t kMaxSamples = 1 << 25;
constexpr size_t kMaxSize = 4 << 20;

Failure no_thumbnail(const std::string& reason) { return Failure(kNothingDecoded, reason); }

// As strict readers take the file, by whose fields pictures are composed, if they take it.
ContextPointer load_strictly(const OpenedFile& file) {
  ContextPointer context = make_context(file.label());
  uint32_t count = 0;
  const std::string_view bytes = file.bytes();
  if (kv_jpx_set_input_image(context.get(), bytes.data(), bytes.size()) != JPX_OK) return nullptr;
  kv_jpx_get_box_count_by_type(context.get(), KV_JPX_TYPE('j', 'p', '2', 'c'), &count);
  return count > 0 ? std::move(context) : nullptr;
}

unsigned common_levels(const Json& info) {
  unsigned levels = 31;
  for (const Json& codestream : info["codestreams"]) {
    levels = std::min(levels, codestream.value("levels", 0U));
  }
  return levels;
}

std::string decode(kv_jpx_context* context, const std::string& label) {
  kv_jpx_set_output_type(context, kPng);
  const LibraryBlock picture = output_of(context, label, kNothingDecoded);
  const DecodingRecord& record = decoding_record();
  if (record.stopped_by == KV_J2K_ERR_LIMIT) throw no_thumbnail("decoding it is too much work");
  if (record.delivered == 0 || picture.bytes().empty()) {
    throw no_thumbnail("the codec gave up" +
                       (record.error.empty() ? std::string() : ": " + record.error));
  }
  if (picture.bytes().size() > kMaxSize) throw no_thumbnail("it would be too large");
  return std::string(picture.bytes());
}

}  // namespace

std::string thumbnail_png(const OpenedFile& file, const Json& info) {
  if (!info.contains("image")) {
    throw no_thumbnail(file.is_codestream() ? "a bare codestream; kvjpx wrap makes a file of it"
                                            : "the file has no image header");
  }
  if (info["codestreams"].empty()) throw no_thumbnail("the file has no codestream");
  const uint64_t width = info["image"]["width"], height = info["image"]["height"];
  const unsigned levels = common_levels(info);
  unsigned reduction = 0;
  while (reduction < levels && std::max(width, height) >> reduction > kWantedSide) ++reduction;
  const uint64_t components = info["image"]["components"];
  const uint64_t plane = ((width >> reduction) + 1) * ((height >> reduction) + 1);
  if (std::max(width, height) >> reduction > kMaxSide) {
    throw no_thumbnail("the file has no resolution that is small enough");
  }
  if (components > kMaxSamples / plane) throw no_thumbnail("the image has too many components");
  const ContextPointer strict = load_strictly(file);
  kv_jpx_context* const context = strict ? strict.get() : file.document().context();
  // Level 1 stands for everything.
  kv_jpx_set_input_jpx_resolution_level(context, static_cast<int16_t>(reduction + 1), 0);
  load_codec({kMaxSamples, kMaxSamples, plane});
  return decode(context, file.label());
}

}  // namespace kvjpx_tool
