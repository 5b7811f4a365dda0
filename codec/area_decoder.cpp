// Opens a codestream with OpenJPEG and decodes areas of it.
#include "area_decoder.h"

#include <utility>

namespace kvj2k {
namespace {

constexpr int kMostReuses = 16;
constexpr char kUndecodable[] = "the codestream can't be decoded";

opj_dparameters_t parameters_for(const DecoderSettings& settings) {
  opj_dparameters_t parameters;
  opj_set_default_decoder_parameters(&parameters);
  parameters.cp_reduce = settings.reduction;
  parameters.cp_layer = settings.layers;
  return parameters;
}

}  // namespace

AreaDecoder::AreaDecoder(Source source, const DecoderSettings& settings)
    : settings_(settings),
      source_(std::move(source)),
      stream_(open_source(source_)),
      codec_(owned<OpjCodec>(opj_create_decompress(OPJ_CODEC_J2K))),
      reuses_left_(settings.is_single_tile ? kMostReuses : 0) {
  messages_.listen_to(codec_.get());
  opj_dparameters_t parameters = parameters_for(settings);
  // OpenJPEG stays strict: when it leaves broken packets out, it reads and writes outside its
  // memory.
  const bool is_set_up = opj_setup_decoder(codec_.get(), &parameters) != 0;
  const uint32_t threads = thread_count(settings.threads);
  if (threads > 1) use_threads(codec_.get(), threads);
  opj_image_t* header = nullptr;
  const bool is_read = is_set_up && opj_read_header(stream_.get(), codec_.get(), &header);
  header_.reset(header);
  const auto count = static_cast<OPJ_UINT32>(settings.components.size());
  if (!is_read || (count != 0 && !opj_set_decoded_components(
                                     codec_.get(), count, settings.components.data(), OPJ_FALSE))) {
    throw messages_.failure(KV_J2K_ERR_BROKEN_CODESTREAM, kUndecodable);
  }
  if (settings.notes_damage) messages_.note_warnings_of(codec_.get());
}

OpjImage AreaDecoder::decode(const Area& area) {
  const bool is_whole = area == Area{{header_->x0, header_->x1}, {header_->y0, header_->y1}};
  const int reuses_left = is_whole ? 0 : reuses_left_ - 1;
  reuses_left_ = 0;
  OpjImage image = make_image();
  if (!opj_set_decode_area(codec_.get(), image.get(), static_cast<OPJ_INT32>(area.x.begin),
                           static_cast<OPJ_INT32>(area.y.begin), static_cast<OPJ_INT32>(area.x.end),
                           static_cast<OPJ_INT32>(area.y.end)) ||
      !opj_decode(codec_.get(), stream_.get(), image.get())) {
    throw messages_.failure(KV_J2K_ERR_BROKEN_CODESTREAM, kUndecodable);
  }
  reuses_left_ = reuses_left;
  return image;
}

// An image without samples. OpenJPEG leaves components out of it that are not wanted.
OpjImage AreaDecoder::make_image() const {
  std::vector<opj_image_cmptparm_t> layouts(header_->numcomps);
  for (size_t i = 0; i < layouts.size(); ++i) {
    const opj_image_comp_t& component = header_->comps[i];
    opj_image_cmptparm_t& layout = layouts[i];
    layout = {};
    layout.dx = component.dx;
    layout.dy = component.dy;
    layout.w = component.w;
    layout.h = component.h;
    layout.x0 = component.x0;
    layout.y0 = component.y0;
    layout.prec = component.prec;
    layout.sgnd = component.sgnd;
  }
  auto image = owned<OpjImage>(
      opj_image_tile_create(header_->numcomps, layouts.data(), header_->color_space));
  image->x0 = header_->x0;
  image->y0 = header_->y0;
  image->x1 = header_->x1;
  image->y1 = header_->y1;
  return image;
}

}  // namespace kvj2k
