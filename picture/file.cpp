// Reads the boxes.
#include "file.h"

#include <algorithm>
#include <cmath>

namespace kvjpx_picture {
namespace {

constexpr char kXmp[] = "\xBE\x7A\xCF\xCB\x97\xA9\x42\xE8\x9C\x71\x99\x94\x91\xE3\xAF\xAC";
constexpr char kExif[] = "JpgTiffExif->JP2";
// Instructions are made of few bytes; no composition of people has so many.
constexpr uint64_t kMostInstructions = 1 << 16;

constexpr uint32_t kDepthMask = 0x7F;
constexpr uint32_t kMostDepth = 16;

std::optional<ImageHeader> read_image_header(kvjpx::box container) {
  const kvjpx::box ihdr = container.child("ihdr");
  if (!ihdr || !ihdr.get<kvjpx::ihdr::width>()) return std::nullopt;
  ImageHeader header;
  header.width = ihdr.get<kvjpx::ihdr::width>().value_or(0);
  header.height = ihdr.get<kvjpx::ihdr::height>().value_or(0);
  header.components = ihdr.get<kvjpx::ihdr::nc>().value_or(0);
  const uint8_t depth = ihdr.get<kvjpx::ihdr::bpc>().value_or(0);
  const kvjpx::box bpcc = container.child("bpcc");
  if (depth != KV_JPX_BPC_VARIES) {
    header.depths = {depth};
  } else if (bpcc) {
    header.depths = bpcc.entries<kvjpx::bpcc::bpc>().value_or({});
  }
  return header;
}

// A value as the file holds it, without the sign's extension.
int32_t palette_value(uint32_t stored, uint32_t depth, bool is_signed) {
  auto value = static_cast<int64_t>(stored & ((uint64_t{1} << depth) - 1));
  if (is_signed && (value >> (depth - 1)) != 0) value -= int64_t{1} << depth;
  return static_cast<int32_t>(depth > kMostDepth ? value >> (depth - kMostDepth) : value);
}

std::optional<Palette> read_palette(kvjpx::box container) {
  const kvjpx::box pclr = container.child("pclr");
  if (!pclr) return std::nullopt;
  const auto depths = pclr.entries<kvjpx::pclr::b>();
  const auto rows = pclr.get<kvjpx::pclr::ne>();
  const auto values = pclr.bytes<kvjpx::pclr::c>();
  if (!depths || !rows || !values || depths->empty() || *rows == 0) return std::nullopt;
  const size_t columns = depths->size();
  if (values->size() < columns * *rows * sizeof(uint32_t)) return std::nullopt;
  Palette palette;
  for (size_t column = 0; column < columns; ++column) {
    const uint32_t depth = ((*depths)[column] & kDepthMask) + 1;
    const bool is_signed = ((*depths)[column] & KV_JPX_BPC_SIGNED) != 0;
    if (depth > 32) return std::nullopt;
    Palette::Column made{std::min(depth, kMostDepth), is_signed, {}};
    for (size_t row = 0; row < *rows; ++row) {
      uint32_t stored = 0;
      const uint8_t* from = values->data() + (row * columns + column) * sizeof stored;
      std::copy_n(from, sizeof stored, reinterpret_cast<uint8_t*>(&stored));
      made.values.push_back(palette_value(stored, depth, is_signed));
    }
    palette.columns.push_back(std::move(made));
  }
  return palette;
}

std::vector<Mapping> read_mapping(kvjpx::box container) {
  std::vector<Mapping> mapping;
  const kvjpx::box cmap = container.child("cmap");
  const uint64_t count = cmap ? cmap.count<kvjpx::cmap::cmp>().value_or(0) : 0;
  for (uint64_t i = 0; i < count; ++i) {
    mapping.push_back({cmap.get<kvjpx::cmap::cmp>(i).value_or(0),
                       cmap.get<kvjpx::cmap::mtyp>(i).value_or(0) == KV_JPX_MTYP_PALETTE,
                       cmap.get<kvjpx::cmap::pcol>(i).value_or(0)});
  }
  return mapping;
}

std::vector<ChannelDefinition> read_definitions(kvjpx::box container) {
  std::vector<ChannelDefinition> definitions;
  const kvjpx::box cdef = container.child("cdef");
  const uint64_t count = cdef ? cdef.count<kvjpx::cdef::cn>().value_or(0) : 0;
  for (uint64_t i = 0; i < count; ++i) {
    definitions.push_back({cdef.get<kvjpx::cdef::cn>(i).value_or(0),
                           cdef.get<kvjpx::cdef::typ>(i).value_or(KV_JPX_TYP_UNSPECIFIED),
                           cdef.get<kvjpx::cdef::asoc>(i).value_or(KV_JPX_ASOC_NONE)});
  }
  return definitions;
}

std::vector<uint32_t> read_parameters(kvjpx::box colr, uint32_t space) {
  constexpr uint32_t kLab[] = {JPX_FIELD_COLR_RL, JPX_FIELD_COLR_OL, JPX_FIELD_COLR_RA,
                               JPX_FIELD_COLR_OA, JPX_FIELD_COLR_RB, JPX_FIELD_COLR_OB,
                               JPX_FIELD_COLR_IL};
  constexpr uint32_t kJab[] = {JPX_FIELD_COLR_JAB_RJ, JPX_FIELD_COLR_JAB_OJ, JPX_FIELD_COLR_JAB_RA,
                               JPX_FIELD_COLR_JAB_OA, JPX_FIELD_COLR_JAB_RB, JPX_FIELD_COLR_JAB_OB};
  std::vector<uint32_t> parameters;
  const auto add = [&](uint32_t key) {
    if (const auto value = colr.get(key)) parameters.push_back(static_cast<uint32_t>(*value));
  };
  if (space == KV_JPX_ENUMCS_CIELAB) std::for_each(std::begin(kLab), std::end(kLab), add);
  if (space == KV_JPX_ENUMCS_CIEJAB) std::for_each(std::begin(kJab), std::end(kJab), add);
  return parameters;
}

std::vector<ColourBox> read_colours(kvjpx::box container) {
  std::vector<ColourBox> colours;
  for (const kvjpx::box colr : container.children()) {
    if (colr.type() != kvjpx::type("colr")) continue;
    const auto method = colr.get<kvjpx::colr::meth>();
    if (!method) continue;
    ColourBox colour;
    colour.method = *method;
    colour.precedence = colr.get<kvjpx::colr::prec>().value_or(0);
    colour.approximation = colr.get<kvjpx::colr::approx>().value_or(0);
    if (*method == KV_JPX_METH_ENUMERATED) {
      colour.space = colr.get<kvjpx::colr::enumcs>().value_or(UINT32_MAX);
      colour.parameters = read_parameters(colr, colour.space);
    } else if (*method == KV_JPX_METH_RESTRICTED_ICC || *method == KV_JPX_METH_ANY_ICC) {
      if (const auto profile = colr.bytes<kvjpx::colr::icc>()) colour.profile = profile->text();
    }
    colours.push_back(std::move(colour));
  }
  return colours;
}

double exact(uint32_t numerator, uint32_t denominator, int32_t exponent) {
  return denominator == 0 ? 0 : numerator * std::pow(10.0, exponent) / denominator;
}

// The default display resolution, which is what other formats mean, or else that of the capture.
Resolution read_resolution(kvjpx::box container) {
  const kvjpx::box res = container.child("res");
  if (!res) return {};
  kvjpx::box place = res.child("resd");
  if (!place) place = res.child("resc");
  if (!place) return {};
  return {
      exact(place.get<kvjpx::resc::hr_n>().value_or(0), place.get<kvjpx::resc::hr_d>().value_or(0),
            place.get<kvjpx::resc::hr_e>().value_or(0)),
      exact(place.get<kvjpx::resc::vr_n>().value_or(0), place.get<kvjpx::resc::vr_d>().value_or(0),
            place.get<kvjpx::resc::vr_e>().value_or(0))};
}

std::vector<Registration> read_registrations(kvjpx::box container) {
  std::vector<Registration> registrations;
  const kvjpx::box creg = container.child("creg");
  const uint64_t count = creg ? creg.count<kvjpx::creg::cdn>().value_or(0) : 0;
  const auto positive = [](uint32_t number) { return std::max<uint32_t>(number, 1); };
  for (uint64_t i = 0; i < count; ++i) {
    Registration one;
    one.codestream = creg.get<kvjpx::creg::cdn>(i).value_or(0);
    one.unit_x = positive(creg.get<kvjpx::creg::xs>().value_or(1));
    one.unit_y = positive(creg.get<kvjpx::creg::ys>().value_or(1));
    one.step_x = positive(creg.get<kvjpx::creg::xr>(i).value_or(1));
    one.step_y = positive(creg.get<kvjpx::creg::yr>(i).value_or(1));
    one.offset_x = creg.get<kvjpx::creg::xo>(i).value_or(0);
    one.offset_y = creg.get<kvjpx::creg::yo>(i).value_or(0);
    registrations.push_back(one);
  }
  return registrations;
}

std::optional<OpacityBox> read_opacity(kvjpx::box container) {
  const kvjpx::box opct = container.child("opct");
  if (!opct) return std::nullopt;
  const auto type = opct.get<kvjpx::opct::otyp>();
  if (!type) return std::nullopt;
  return OpacityBox{*type, opct.entries<kvjpx::opct::cv>().value_or({})};
}

Instruction read_instruction(kvjpx::box inst, uint64_t i, uint32_t groups, uint32_t tick) {
  Instruction made;
  if ((groups & KV_JPX_ITYP_OFFSETS) != 0) {
    made.x = inst.get<kvjpx::inst::xo>(i).value_or(0);
    made.y = inst.get<kvjpx::inst::yo>(i).value_or(0);
  }
  if ((groups & KV_JPX_ITYP_SCALING) != 0) {
    made.width = inst.get<kvjpx::inst::width>(i).value_or(0);
    made.height = inst.get<kvjpx::inst::height>(i).value_or(0);
  }
  if ((groups & KV_JPX_ITYP_PERSISTENCE) != 0) {
    made.persists = inst.get<kvjpx::inst::persist>(i).value_or(1) != 0;
    const uint64_t life = uint64_t{inst.get<kvjpx::inst::life>(i).value_or(0)} * tick;
    made.life = static_cast<uint32_t>(std::min<uint64_t>(life, UINT32_MAX));
    made.next_use = inst.get<kvjpx::inst::next_use>(i).value_or(0);
  }
  if ((groups & KV_JPX_ITYP_CROPPING) != 0) {
    made.crop = {inst.get<kvjpx::inst::xc>(i).value_or(0), inst.get<kvjpx::inst::yc>(i).value_or(0),
                 inst.get<kvjpx::inst::wc>(i).value_or(0),
                 inst.get<kvjpx::inst::hc>(i).value_or(0)};
  }
  return made;
}

// How many instructions a set has, whatever groups they have.
uint64_t count_instructions(kvjpx::box inst) {
  uint64_t count = 0;
  for (const uint32_t key :
       {JPX_FIELD_INST_XO, JPX_FIELD_INST_WIDTH, JPX_FIELD_INST_PERSIST, JPX_FIELD_INST_XC}) {
    count = std::max(count, inst.count(key).value_or(0));
  }
  return std::min(count, kMostInstructions);
}

}  // namespace

File::File(const kvjpx::document& document, std::string_view bytes)
    : document_(document), bytes_(bytes) {
  constexpr std::string_view kStart = "\xFF\x4F\xFF\x51";
  is_bare_ = !document.root().first_child() && bytes.substr(0, kStart.size()) == kStart;
  if (is_bare_) codestreams_.emplace_back();
  for (const kvjpx::box box : document.root().children()) {
    const kvjpx::type type = box.type();
    if (type == kvjpx::type("jp2h") && !default_header_) default_header_ = box;
    if (type == kvjpx::type("jp2c") || type == kvjpx::type("ftbl")) codestreams_.push_back(box);
    if (type == kvjpx::type("jpch")) codestream_headers_.push_back(box);
    if (type == kvjpx::type("jplh")) layer_headers_.push_back(box);
  }
}

CodestreamBytes File::codestream(uint64_t number) const {
  if (is_bare_) return {bytes_, {}, true};
  const kvjpx::box box = codestreams_[number];
  CodestreamBytes found;
  if (box.type() == kvjpx::type("jp2c")) {
    if (const auto content = box.source_content()) found.of_file = content->text();
    const auto extent = box.extent();
    found.is_whole = !extent || (extent->flags & KV_JPX_BOX_CUT_SHORT) == 0;
    return found;
  }
  const kvjpx::box list = box.child("flst");
  const uint64_t count = list ? list.count<kvjpx::flst::off>().value_or(0) : 0;
  found.is_whole = count > 0;
  for (uint64_t i = 0; i < count; ++i) {
    const uint64_t offset = list.get<kvjpx::flst::off>(i).value_or(UINT64_MAX);
    const uint64_t length = list.get<kvjpx::flst::len>(i).value_or(0);
    const bool is_here =
        list.get<kvjpx::flst::dr>(i).value_or(0) == KV_JPX_DR_THIS_FILE && offset <= bytes_.size();
    if (!is_here || length > bytes_.size() - offset) found.is_whole = false;
    // Fragments may overlap, so that a short list could stand for any number of bytes.
    if (!is_here || found.joined.size() > bytes_.size()) break;
    if (count == 1) {
      found.of_file = bytes_.substr(offset, length);
    } else {
      found.joined += bytes_.substr(offset, length);
    }
  }
  return found;
}

CodestreamHeader File::codestream_header(uint64_t number) const {
  CodestreamHeader header;
  const auto read = [&](kvjpx::box container) {
    if (!header.image) header.image = read_image_header(container);
    if (!header.palette) header.palette = read_palette(container);
    if (header.mapping.empty()) header.mapping = read_mapping(container);
  };
  if (number < codestream_headers_.size()) read(codestream_headers_[number]);
  // A default palette is not that of a codestream with a mapping of its own.
  const bool maps_itself = !header.mapping.empty() && !header.palette;
  const bool has_own_image = header.image.has_value();
  if (default_header_) read(default_header_);
  // What the default says of the image is that of the first codestream.
  if (number > 0 && !has_own_image) header.image.reset();
  const bool is_direct = std::none_of(header.mapping.begin(), header.mapping.end(),
                                      [](const Mapping& one) { return one.is_palette; });
  if (maps_itself && is_direct) header.palette.reset();
  return header;
}

LayerHeader File::layer_header(uint64_t number) const {
  LayerHeader header;
  if (number < layer_headers_.size()) {
    const kvjpx::box jplh = layer_headers_[number];
    if (const kvjpx::box group = jplh.child("cgrp")) header.colours = read_colours(group);
    header.definitions = read_definitions(jplh);
    header.opacity = read_opacity(jplh);
    header.registrations = read_registrations(jplh);
    header.resolution = read_resolution(jplh);
  }
  if (header.registrations.empty()) {
    Registration alone;
    alone.codestream = number;
    header.registrations.push_back(alone);
  }
  if (!default_header_) return header;
  if (header.colours.empty()) header.colours = read_colours(default_header_);
  if (header.definitions.empty() && !header.opacity) {
    header.definitions = read_definitions(default_header_);
  }
  if (header.resolution.x == 0) header.resolution = read_resolution(default_header_);
  return header;
}

std::optional<CompositionBox> File::composition() const {
  const kvjpx::box comp = document_.root().child("comp");
  if (!comp) return std::nullopt;
  CompositionBox made;
  if (const kvjpx::box options = comp.child("copt")) {
    made.width = options.get<kvjpx::copt::width>().value_or(0);
    made.height = options.get<kvjpx::copt::height>().value_or(0);
    made.loop = options.get<kvjpx::copt::loop>().value_or(0);
  }
  for (const kvjpx::box inst : comp.children()) {
    if (inst.type() != kvjpx::type("inst")) continue;
    InstructionSet set;
    const uint32_t groups = inst.get<kvjpx::inst::ityp>().value_or(0);
    const uint32_t tick = inst.get<kvjpx::inst::tick>().value_or(0);
    set.repeat = inst.get<kvjpx::inst::rept>().value_or(0);
    const uint64_t count = count_instructions(inst);
    for (uint64_t i = 0; i < count; ++i) {
      set.instructions.push_back(read_instruction(inst, i, groups, tick));
    }
    if (count > 0) made.sets.push_back(std::move(set));
  }
  if (made.width == 0 || made.height == 0 || made.sets.empty()) return std::nullopt;
  return made;
}

std::string File::uuid_payload(std::string_view id) const {
  for (const kvjpx::box box : document_.root().children()) {
    if (box.type() != kvjpx::type("uuid")) continue;
    const auto found = box.bytes<kvjpx::uuid::id>();
    if (!found || found->text() != id) continue;
    const auto payload = box.payload();
    if (payload) return std::string(payload->text());
  }
  return {};
}

std::string File::xmp() const { return uuid_payload({kXmp, 16}); }

std::string File::exif() const {
  constexpr std::string_view kPrefix("Exif\0\0", 6);
  std::string exif = uuid_payload({kExif, 16});
  if (exif.compare(0, kPrefix.size(), kPrefix) == 0) exif.erase(0, kPrefix.size());
  return exif;
}

}  // namespace kvjpx_picture
