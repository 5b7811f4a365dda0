// JPEG 2000 through OpenJPEG, lossless: the bare codestream or a JP2 file.
#include <algorithm>
#include <utility>
#include <vector>

#include "encode.h"
#include "opj.h"

namespace kvj2k {
namespace {

constexpr uint32_t kMaxComponents = 16384;
constexpr uint32_t kMaxSize = 0x7FFFFFFF;
constexpr int kMostResolutions = 6;

// Each further resolution halves the picture; it must keep a sample.
int resolutions_for(const Image& image) {
  int count = 1;
  for (uint32_t side = std::min(image.width, image.height); side > 1; side /= 2) ++count;
  return std::min(count, kMostResolutions);
}

OpjImage make_opj_image(const Image& image) {
  opj_image_cmptparm_t layout = {};
  layout.dx = layout.dy = 1;
  layout.w = image.width;
  layout.h = image.height;
  layout.prec = 8;
  std::vector<opj_image_cmptparm_t> layouts(image.components, layout);
  const bool is_colour = image.components >= 3;
  auto result = owned<OpjImage>(opj_image_create(image.components, layouts.data(),
                                                 is_colour ? OPJ_CLRSPC_SRGB : OPJ_CLRSPC_GRAY));
  result->x1 = image.width;
  result->y1 = image.height;
  for (uint32_t c = 0; c < image.components; ++c) {
    std::copy_n(image.plane(c), image.plane_size(), result->comps[c].data);
  }
  if (image.components == 2 || image.components == 4) {
    result->comps[image.components - 1].alpha = 1;
  }
  return result;
}

opj_cparameters_t parameters_for(const Image& image) {
  opj_cparameters_t parameters;
  opj_set_default_encoder_parameters(&parameters);
  parameters.tcp_numlayers = 1;
  parameters.tcp_rates[0] = 0;  // lossless
  parameters.cp_disto_alloc = 1;
  parameters.tcp_mct = image.components >= 3 ? 1 : 0;
  parameters.numresolution = resolutions_for(image);
  return parameters;
}

Bytes write(const Image& image, OPJ_CODEC_FORMAT format) {
  if (image.components > kMaxComponents) refuse_components(image, "JPEG 2000");
  require_size(image, kMaxSize, "JPEG 2000");
  OpjMessages messages;
  MemoryTarget target = {};
  const OpjImage picture = make_opj_image(image);
  const auto codec = owned<OpjCodec>(opj_create_compress(format));
  messages.listen_to(codec.get());
  opj_cparameters_t parameters = parameters_for(image);
  const bool is_ready = opj_setup_encoder(codec.get(), &parameters, picture.get());
  use_threads(codec.get(), thread_count(0));
  {
    const OpjStream stream = open_target(target);
    if (!is_ready || !opj_start_compress(codec.get(), picture.get(), stream.get()) ||
        !opj_encode(codec.get(), stream.get()) || !opj_end_compress(codec.get(), stream.get())) {
      throw messages.failure(KV_J2K_ERR_UNSUPPORTED, "JPEG 2000 can't be written");
    }
  }
  return std::move(target.bytes);
}

}  // namespace

Bytes write_j2k(const Image& image) { return write(image, OPJ_CODEC_J2K); }

Bytes write_jp2(const Image& image) { return write(image, OPJ_CODEC_JP2); }

}  // namespace kvj2k
