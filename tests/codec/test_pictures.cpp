// Encodes test pictures with OpenJPEG, and decodes them with it for comparison.
#include "test_pictures.h"

#include <openjpeg.h>

#include <algorithm>
#include <cstring>

namespace {

struct MemoryStream {
  Bytes bytes;
  size_t position = 0;
};

OPJ_SIZE_T read(void* buffer, OPJ_SIZE_T size, void* user) {
  auto& memory = *static_cast<MemoryStream*>(user);
  const size_t count = std::min(size, memory.bytes.size() - memory.position);
  if (count == 0) return static_cast<OPJ_SIZE_T>(-1);
  std::memcpy(buffer, memory.bytes.data() + memory.position, count);
  memory.position += count;
  return count;
}

OPJ_SIZE_T write(void* buffer, OPJ_SIZE_T size, void* user) {
  auto& memory = *static_cast<MemoryStream*>(user);
  memory.bytes.resize(std::max(memory.bytes.size(), memory.position + size));
  std::memcpy(memory.bytes.data() + memory.position, buffer, size);
  memory.position += size;
  return size;
}

OPJ_BOOL seek(OPJ_OFF_T position, void* user) {
  static_cast<MemoryStream*>(user)->position = static_cast<size_t>(position);
  return OPJ_TRUE;
}

OPJ_OFF_T skip(OPJ_OFF_T distance, void* user) {
  static_cast<MemoryStream*>(user)->position += static_cast<size_t>(distance);
  return distance;
}

opj_stream_t* open(MemoryStream& memory, bool is_input) {
  opj_stream_t* stream = opj_stream_default_create(is_input);
  opj_stream_set_user_data(stream, &memory, nullptr);
  opj_stream_set_user_data_length(stream, memory.bytes.size());
  opj_stream_set_read_function(stream, &read);
  opj_stream_set_write_function(stream, &write);
  opj_stream_set_seek_function(stream, &seek);
  opj_stream_set_skip_function(stream, &skip);
  return stream;
}

uint32_t ceil_div(uint32_t a, uint32_t b) { return (a + b - 1) / b; }

opj_image_t* make_image(const Recipe& recipe) {
  std::vector<opj_image_cmptparm_t> layouts;
  for (const uint32_t spacing : recipe.spacings) {
    opj_image_cmptparm_t layout = {};
    layout.dx = layout.dy = spacing;
    layout.x0 = recipe.x0;
    layout.y0 = recipe.y0;
    layout.w = ceil_div(recipe.x1, spacing) - ceil_div(recipe.x0, spacing);
    layout.h = ceil_div(recipe.y1, spacing) - ceil_div(recipe.y0, spacing);
    layout.prec = recipe.precision;
    layout.sgnd = recipe.is_signed;
    layouts.push_back(layout);
  }
  opj_image_t* image = opj_image_create(static_cast<uint32_t>(layouts.size()), layouts.data(),
                                        OPJ_CLRSPC_UNSPECIFIED);
  image->x0 = recipe.x0;
  image->y0 = recipe.y0;
  image->x1 = recipe.x1;
  image->y1 = recipe.y1;
  for (uint32_t c = 0; c < image->numcomps; ++c) {
    const opj_image_comp_t& component = image->comps[c];
    for (uint32_t i = 0; i < component.w * component.h; ++i) {
      component.data[i] = sample_at(recipe, c, ceil_div(recipe.x0, component.dx) + i % component.w,
                                    ceil_div(recipe.y0, component.dy) + i / component.w);
    }
  }
  return image;
}

}  // namespace

int32_t sample_at(const Recipe& recipe, size_t component, uint32_t column, uint32_t row) {
  const uint32_t mix =
      column * 2654435761u / 3 + row * 40503u * 977 + static_cast<uint32_t>(component) * 0x1234567u;
  const auto value = static_cast<int32_t>((mix >> 7) & ((1u << recipe.precision) - 1));
  return recipe.is_signed ? value - (1 << (recipe.precision - 1)) : value;
}

Bytes encode(const Recipe& recipe) {
  opj_cparameters_t parameters;
  opj_set_default_encoder_parameters(&parameters);
  parameters.cp_disto_alloc = 1;
  parameters.tcp_numlayers = std::max(1, static_cast<int>(recipe.rates.size()));
  parameters.tcp_rates[0] = 0;
  std::copy(recipe.rates.begin(), recipe.rates.end(), parameters.tcp_rates);
  parameters.numresolution = recipe.levels + 1;
  parameters.image_offset_x0 = static_cast<int>(recipe.x0);
  parameters.image_offset_y0 = static_cast<int>(recipe.y0);
  parameters.tile_size_on = recipe.tile != 0;
  parameters.cp_tdx = parameters.cp_tdy = recipe.tile;

  MemoryStream memory;
  opj_image_t* image = make_image(recipe);
  opj_codec_t* codec = opj_create_compress(OPJ_CODEC_J2K);
  opj_stream_t* stream = open(memory, false);
  const bool is_done = opj_setup_encoder(codec, &parameters, image) &&
                       opj_start_compress(codec, image, stream) && opj_encode(codec, stream) &&
                       opj_end_compress(codec, stream);
  opj_stream_destroy(stream);
  opj_destroy_codec(codec);
  opj_image_destroy(image);
  return is_done ? memory.bytes : Bytes();
}

Bytes decode_with_openjpeg(const Bytes& file, bool is_jp2, Rectangle area, uint32_t reduction,
                           uint32_t layers) {
  opj_dparameters_t parameters;
  opj_set_default_decoder_parameters(&parameters);
  parameters.cp_reduce = reduction;
  parameters.cp_layer = layers;
  MemoryStream memory{file, 0};
  opj_codec_t* codec = opj_create_decompress(is_jp2 ? OPJ_CODEC_JP2 : OPJ_CODEC_J2K);
  opj_stream_t* stream = open(memory, true);
  opj_image_t* image = nullptr;
  Bytes result;
  if (opj_setup_decoder(codec, &parameters) && opj_read_header(stream, codec, &image) &&
      opj_set_decode_area(codec, image, static_cast<int32_t>(area.left),
                          static_cast<int32_t>(area.top), static_cast<int32_t>(area.right),
                          static_cast<int32_t>(area.bottom)) &&
      opj_decode(codec, stream, image)) {
    for (uint32_t c = 0; c < image->numcomps; ++c) {
      const opj_image_comp_t& component = image->comps[c];
      std::copy_n(component.data, component.w * component.h, std::back_inserter(result));
    }
  }
  opj_image_destroy(image);
  opj_stream_destroy(stream);
  opj_destroy_codec(codec);
  return result;
}

Bytes Codec::output() {
  void* data = nullptr;
  uint32_t length = 0;
  result = kv_j2k_get_output_image(handle_, &data, &length);
  Bytes bytes;
  if (data != nullptr)
    bytes.assign(static_cast<uint8_t*>(data), static_cast<uint8_t*>(data) + length);
  kv_j2k_free(handle_, data);
  return bytes;
}
