// Decoding the image (see decoding.h).
//
// What the codec answers is not judged: a codestream that it cannot decode leaves its place in the
// composed image empty, so that one broken layer does not cost the others. What it delivers is
// trusted for nothing: copies are clipped to the composed image and to the bytes that came.
#include "api/decoding.h"

#include <string.h>

#include "api/codec.h"
#include "api/geometry.h"
#include "api/lookup.h"
#include "box/super.h"
#include "kvjpx.h"

namespace kvjpx {
namespace {

constexpr int32_t kRawPlanes = 64;  // the codec's type: one byte a sample, plane by plane
constexpr uint32_t kRawBits = 24;   // handed on with the composed image
constexpr uint32_t kCodestream = code("jp2c");
constexpr uint64_t kMaxPayload = 0xFFFFFFFF;

// The codestream boxes of a file, by identifier. Searching the tree for each would take time in
// proportion to the square of their number.
struct Codestreams {
  Box** boxes;
  uint64_t count;
};

// Everything of one call. It is a tracked record, known to the environment, so that an error exit
// ends the codec instance.
struct Decoding {
  Resource resource;
  void* codec;
  Context* context;
  uint32_t components;  // of the codestream described last
  Composition image;
  Codestreams codestreams;
  uint64_t next_codestream;
};

void release_codec(Resource* resource) {
  static_assert(offsetof(Decoding, resource) == 0, "the resource stands for the record");
  auto* decoding = reinterpret_cast<Decoding*>(resource);
  if (decoding->codec != nullptr) kv_j2k_destroy(decoding->codec);
}

Decoding* begin(Context& context) {
  Environment* const env = &context.environment;
  auto* decoding = static_cast<Decoding*>(allocate_zeroed(env, sizeof(Decoding)));
  decoding->context = &context;
  attach_resource(env, &decoding->resource, release_codec);
  if (has_codec()) kv_j2k_create(&decoding->codec);
  return decoding;
}

void end(Decoding* decoding) {
  Environment* const env = &decoding->context->environment;
  detach_resource(env, &decoding->resource);
  release_codec(&decoding->resource);
  release(env, decoding->image.samples);
  release(env, decoding->codestreams.boxes);
  JPX_SafeFreeInternal(env, decoding);
}

// The first box of a type as callers of the library find it, that is, never the one with
// identifier 0.
Box* find_first(const Context& context, uint32_t type) {
  Box* const root = context.root;
  return root == nullptr ? nullptr : root->find_by_type(root, type, 0);
}

// 0 when the box or the field is missing.
uint64_t field_of(Box* box, uint32_t key, uint64_t index) {
  uint64_t value = 0;
  if (box == nullptr || box->get_int_field(box, key, index, &value) != JPX_OK) return 0;
  return value;
}

// Raises 1 for a size that cannot be allocated.
uint64_t plane_bytes(Environment* env, const Composition& image, uint64_t planes) {
  uint64_t size;
  if (!has_size(image, planes, &size)) JPX_ErrorExit(env, JPX_ERR_MEMORY);
  return size;
}

// Notes what is wrong with an image that is larger than the caller allows.
bool is_allowed(Decoding* decoding, uint64_t planes) {
  Context& context = *decoding->context;
  uint64_t samples;
  if (!has_size(decoding->image, planes, &samples)) samples = UINT64_MAX;
  const bool fits = (context.most_samples == 0 || samples <= context.most_samples) &&
                    (context.most_components == 0 || planes <= context.most_components);
  if (!fits) {
    const Box* const header = find_first(context, code("ihdr"));
    context.at = {KV_JPX_FINDING_IMAGE_SIZE,
                  code("ihdr"),
                  header != nullptr ? header->id : kRoot,
                  kNoOffset,
                  {samples, planes}};
  }
  return fits;
}

// False for an image that is not allowed.
bool prepare_image(Decoding* decoding) {
  const Context& context = *decoding->context;
  Environment* const env = &decoding->context->environment;
  Box* const header = find_first(context, code("ihdr"));
  const auto width = static_cast<uint32_t>(field_of(header, JPX_FIELD_IHDR_WIDTH, 0));
  const auto height = static_cast<uint32_t>(field_of(header, JPX_FIELD_IHDR_HEIGHT, 0));
  const Rectangle region = {context.region_left, context.region_top, context.region_right,
                            context.region_bottom};
  Composition& image = decoding->image;
  image = composition_of(region, width, height,
                         reduction_of(context.resolution_level, context.resolution_flag));
  image.planes = static_cast<uint32_t>(field_of(header, JPX_FIELD_IHDR_NC, 0));
  decoding->components = image.planes;
  if (!is_allowed(decoding, image.planes)) return false;
  image.samples =
      static_cast<uint8_t*>(allocate_zeroed(env, plane_bytes(env, image, image.planes)));
  return true;
}

// Of a codestream's answers the first that is none of success is kept.
void note_answer(int32_t* kept, int32_t answer) {
  if (*kept == 0) *kept = answer;
}

// Hands the payload to the codec, which keeps what it needs. False when there is nothing to hand.
bool give_payload(Decoding* decoding, Box* box, int32_t* answer) {
  Environment* const env = &decoding->context->environment;
  uint64_t length = 0;
  box->get_field_count(box, JPX_FIELD_JP2C_DATA, &length, nullptr);
  if (length == 0 || length > kMaxPayload) return false;
  void* payload = nullptr;
  box->get_buffer_field(box, env, JPX_FIELD_JP2C_DATA, nullptr, nullptr, &payload);
  *answer = kv_j2k_set_input_image(decoding->codec, payload, static_cast<uint32_t>(length));
  JPX_SafeFreeInternal(env, payload);
  return true;
}

void describe(Decoding* decoding, Codestream* stream) {
  uint32_t unused = 0;
  kv_j2k_get_input_image_info(decoding->codec, &stream->width, &stream->height, &unused,
                              &stream->components);
  kv_j2k_get_input_j2k_tile_info(decoding->codec, nullptr, nullptr, nullptr, nullptr,
                                 &stream->x_offset, &stream->y_offset);
  if (stream->components != 0) decoding->components = stream->components;
}

// Sets the levels that the caller asked for.
void set_levels(const Decoding& decoding) {
  const Context& context = *decoding.context;
  if (context.resolution_level >= kFirstMeaningfulLevel) {
    kv_j2k_set_input_j2k_resolution_level(decoding.codec, context.resolution_level,
                                          context.resolution_flag);
  }
  if (context.quality_level >= kFirstMeaningfulLevel) {
    kv_j2k_set_input_j2k_quality_level(decoding.codec, context.quality_level);
  }
}

// Decodes the part of a codestream that the region needs into the composed image; later codestreams
// overwrite earlier ones.
void decode_part(Decoding* decoding, const Codestream& stream, void** decoded, int32_t* answer) {
  const Composition& image = decoding->image;
  const Rectangle part = needed_part(image, stream);
  kv_j2k_set_input_j2k_region_level(decoding->codec, part.left, part.top, part.right, part.bottom);
  set_levels(*decoding);
  kv_j2k_set_output_type(decoding->codec, kRawPlanes);
  uint32_t length = 0;
  note_answer(answer, kv_j2k_get_output_image(decoding->codec, decoded, &length));
  if (*decoded == nullptr) return;
  copy_into_image(image, stream, delivery_of(image, stream, part, *decoded, length));
}

// Null behind the last one.
Box* take_codestream(Decoding* decoding) {
  const Codestreams& codestreams = decoding->codestreams;
  if (decoding->next_codestream == codestreams.count) return nullptr;
  return codestreams.boxes[decoding->next_codestream++];
}

// Counts a codestream by the codec's answer.
void note_codestream(Context& context, const Box* box, int32_t answer, bool is_delivered) {
  DecodeRecord& record = context.decoded;
  if (answer == 0) {
    record.delivered += is_delivered ? 1 : 0;
  } else if (record.failed++ == 0) {
    record.codec_code = answer;
    record.failed_at = place_of(context, box);
  }
}

// Decodes the next codestream to the place given. Kept for compatibility: an instruction that
// begins behind the region is skipped without using up its codestream, which the next instruction
// then takes. Without it, that instruction would show the codestream after.
void compose(Decoding* decoding, Codestream stream) {
  void* decoded = nullptr;
  if (!begins_behind_region(decoding->image, stream)) {
    Box* const box = take_codestream(decoding);
    int32_t answer = 0;
    if (box != nullptr && give_payload(decoding, box, &answer)) {
      describe(decoding, &stream);
      if (!ends_before_region(decoding->image, stream)) {
        decode_part(decoding, stream, &decoded, &answer);
      }
      note_codestream(*decoding->context, box, answer, decoded != nullptr);
    }
  }
  kv_j2k_free(decoding->codec, decoded);
}

// Collects the codestreams of a chain of siblings and of everything in them. As in every search by
// type, a box with identifier 0 is not found.
void collect(Box* box, Codestreams* codestreams) {
  for (; box != nullptr; box = box->next) {
    if (box->type == kCodestream && box->id != 0) codestreams->boxes[codestreams->count++] = box;
    if (box->kind == kSuper) collect(static_cast<SuperBox*>(box)->first_child, codestreams);
  }
}

// Moves a box down the heap, whose greatest identifier stands first, to where it belongs.
void sift_down(Box** boxes, uint64_t at, uint64_t count) {
  Box* const box = boxes[at];
  for (uint64_t child; (child = 2 * at + 1) < count; at = child) {
    if (child + 1 < count && boxes[child]->id < boxes[child + 1]->id) ++child;
    if (boxes[child]->id <= box->id) break;
    boxes[at] = boxes[child];
  }
  boxes[at] = box;
}

// Heap sort, as qsort may allocate, and beside the context's allocator. Boxes of a file stand in
// order already; only those added since need it.
void sort_by_identifier(const Codestreams& codestreams) {
  Box** const boxes = codestreams.boxes;
  const uint64_t count = codestreams.count;
  bool is_sorted = true;
  for (uint64_t i = 1; i < count; ++i) is_sorted = is_sorted && boxes[i - 1]->id <= boxes[i]->id;
  if (is_sorted) return;
  for (uint64_t i = count / 2; i > 0; --i) sift_down(boxes, i - 1, count);
  for (uint64_t end = count - 1; end > 0; --end) {
    Box* const greatest = boxes[0];
    boxes[0] = boxes[end];
    boxes[end] = greatest;
    sift_down(boxes, 0, end);
  }
}

void compose_all(Decoding* decoding) {
  Context& context = *decoding->context;
  Codestreams& codestreams = decoding->codestreams;
  const uint32_t count = jpx_count_boxes_of_type(context.root, kCodestream);
  context.decoded.codestreams = count;
  if (count == 0) return;
  codestreams.boxes = static_cast<Box**>(
      allocate(&decoding->context->environment, uint64_t{count} * sizeof(void*)));
  collect(context.root, &codestreams);
  sort_by_identifier(codestreams);
  Box* const instructions = count > 1 ? find_first(context, code("inst")) : nullptr;
  for (uint32_t i = 0; i < count; ++i) {
    compose(decoding, {field_of(instructions, JPX_FIELD_INST_XO, i),
                       field_of(instructions, JPX_FIELD_INST_YO, i), 0, 0, 0, 0, 0});
  }
}

// The codec reads as many planes as the codestream described last has; the image gets empty ones if
// its header promised fewer. False for an image that is not allowed.
bool hand_over_image(Decoding* decoding) {
  Environment* const env = &decoding->context->environment;
  Composition& image = decoding->image;
  if (decoding->components > image.planes) {
    if (!is_allowed(decoding, decoding->components)) return false;
    const uint64_t held = plane_bytes(env, image, image.planes);
    const uint64_t needed = plane_bytes(env, image, decoding->components);
    image.samples = static_cast<uint8_t*>(reallocate(env, image.samples, needed));
    if (needed != 0) memset(image.samples + held, 0, needed - held);
  }
  kv_j2k_set_input_image_raw(
      decoding->codec, image.samples, static_cast<uint32_t>(image.out_height),
      static_cast<uint32_t>(image.out_width), decoding->components, kRawBits, 0);
  kv_j2k_set_output_type(decoding->codec, decoding->context->output_type);
  return true;
}

bool compose_image(Decoding* decoding) {
  if (!prepare_image(decoding)) return false;
  if (decoding->codec == nullptr) return true;
  compose_all(decoding);
  return hand_over_image(decoding);
}

// From the input to an image in the codec's hands. Without a codec there is nothing to do. Null for
// an image that is not allowed.
Decoding* decode(Context& context) {
  context.decoded = {};
  Decoding* const decoding = begin(context);
  if (compose_image(decoding)) return decoding;
  end(decoding);
  return nullptr;
}

// Fetches the final output: its length first, then its bytes. The block that comes in serves as the
// handle of the length query only and is freed, whoever allocated it; null comes back for no
// output.
void* fetch_output(Decoding* decoding, void* block, uint64_t* length) {
  Environment* const env = &decoding->context->environment;
  uint32_t needed = 0;
  if (decoding->codec != nullptr) {
    decoding->context->decoded.output_code =
        kv_j2k_get_output_image(decoding->codec, &block, &needed);
  }
  JPX_SafeFreeInternal(env, block);
  *length = 0;
  if (needed == 0) return nullptr;
  void* output = allocate(env, needed);
  uint32_t filled = needed;
  kv_j2k_get_output_image(decoding->codec, &output, &filled);
  *length = filled < needed ? filled : needed;
  return output;
}

}  // namespace

int32_t decode_to_memory(Context& context, void** data, uint64_t* length) {
  Decoding* const decoding = decode(context);
  if (decoding == nullptr) return JPX_ERR_INVALID_ARGUMENT;
  if (*data != nullptr && *length == 0) {
    *length = 1;
    end(decoding);
    return JPX_ERR_BUFFER_TOO_SMALL;
  }
  void* const block = *data != nullptr ? *data : allocate(&context.environment, 1);
  *data = nullptr;
  *data = fetch_output(decoding, block, length);
  end(decoding);
  return JPX_OK;
}

int32_t decode_to_file(Context& context, const char* path) {
  Decoding* const decoding = decode(context);
  if (decoding == nullptr) return JPX_ERR_INVALID_ARGUMENT;
  int32_t result = JPX_OK;
  if (decoding->codec != nullptr) result = kv_j2k_get_output_image_file(decoding->codec, path);
  context.decoded.output_code = result;
  end(decoding);
  // Of all that a codec may answer, only a file that could not be made or filled is the caller's
  // business.
  return result == JPX_ERR_OPEN_FILE || result == JPX_ERR_FILE_IO ? result : JPX_OK;
}

}  // namespace kvjpx
