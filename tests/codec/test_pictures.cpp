// Encodes test pictures with OpenJPEG.
#include "test_pictures.h"

#include <openjpeg.h>

#include <algorithm>
#include <cstdlib>

#include "support/files.h"

namespace {

opj_image_t* make_image(const Recipe& recipe) {
  const Rectangle& area = recipe.area;
  std::vector<opj_image_cmptparm_t> layouts;
  for (const uint32_t spacing : recipe.spacings) {
    opj_image_cmptparm_t layout = {};
    layout.dx = layout.dy = spacing;
    layout.w = ceil_div(area.right, spacing) - ceil_div(area.left, spacing);
    layout.h = ceil_div(area.bottom, spacing) - ceil_div(area.top, spacing);
    layout.prec = recipe.precision;
    layout.sgnd = recipe.is_signed;
    layouts.push_back(layout);
  }
  opj_image_t* image = opj_image_create(static_cast<uint32_t>(layouts.size()), layouts.data(),
                                        OPJ_CLRSPC_UNSPECIFIED);
  image->x0 = area.left;
  image->y0 = area.top;
  image->x1 = area.right;
  image->y1 = area.bottom;
  for (uint32_t c = 0; c < image->numcomps; ++c) {
    const opj_image_comp_t& component = image->comps[c];
    for (uint32_t i = 0; i < component.w * component.h; ++i) {
      component.data[i] = sample_at(recipe, c, ceil_div(area.left, component.dx) + i % component.w,
                                    ceil_div(area.top, component.dy) + i / component.w);
    }
  }
  return image;
}

}  // namespace

int32_t sample_at(const Recipe& recipe, uint32_t component, uint32_t column, uint32_t row) {
  if (recipe.is_smooth) return static_cast<int32_t>(20 * component + 2 * column + 2 * row);
  const uint32_t mix = column * 2654435761u / 3 + row * 40503u * 977 + component * 0x1234567u;
  const auto value = static_cast<int32_t>((mix >> 7) & ((1u << recipe.precision) - 1));
  return recipe.is_signed ? value - (1 << (recipe.precision - 1)) : value;
}

Bytes encode(const Recipe& recipe) {
  opj_cparameters_t parameters;
  opj_set_default_encoder_parameters(&parameters);
  parameters.cp_disto_alloc = 1;
  parameters.tcp_numlayers = std::max(1, static_cast<int>(recipe.rates.size()));
  std::copy(recipe.rates.begin(), recipe.rates.end(), parameters.tcp_rates);
  parameters.irreversible = recipe.is_irreversible;
  parameters.numresolution = recipe.levels + 1;
  parameters.image_offset_x0 = static_cast<int>(recipe.area.left);
  parameters.image_offset_y0 = static_cast<int>(recipe.area.top);
  parameters.csty = recipe.has_markers ? 2 | 4 : 0;
  parameters.tile_size_on = recipe.tile != 0;
  parameters.cp_tdx = parameters.cp_tdy = recipe.tile;

  const kvjpx::test::TempFile file;
  opj_image_t* image = make_image(recipe);
  opj_codec_t* codec = opj_create_compress(OPJ_CODEC_J2K);
  opj_stream_t* stream = opj_stream_create_default_file_stream(file.path(), OPJ_FALSE);
  const bool is_done = opj_setup_encoder(codec, &parameters, image) &&
                       opj_start_compress(codec, image, stream) && opj_encode(codec, stream) &&
                       opj_end_compress(codec, stream);
  opj_stream_destroy(stream);
  opj_destroy_codec(codec);
  opj_image_destroy(image);
  const std::string codestream = is_done ? file.contents() : "";
  return Bytes(codestream.begin(), codestream.end());
}

std::vector<size_t> marker_places(const Bytes& codestream, uint8_t marker) {
  std::vector<size_t> places;
  for (size_t at = 0; at + 1 < codestream.size(); ++at) {
    if (codestream[at] == 0xFF && codestream[at + 1] == marker) places.push_back(at);
  }
  return places;
}

int distance(const Bytes& a, const Bytes& b) {
  if (a.size() != b.size()) return 256;
  int result = 0;
  for (size_t i = 0; i < a.size(); ++i) result = std::max(result, std::abs(a[i] - b[i]));
  return result;
}

Bytes Codec::output() {
  void* data = nullptr;
  uint32_t length = 0;
  result = kv_j2k_get_output_image(handle_, &data, &length);
  const auto* samples = static_cast<const uint8_t*>(data);
  const Bytes bytes(samples, samples + length);
  kv_j2k_free(handle_, data);
  return bytes;
}
