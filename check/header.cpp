// The JP2 header box, and the header boxes of codestreams and layers.
#include <map>
#include <set>

#include "rules.h"

namespace kvjpx_check {
namespace {

constexpr uint32_t kMaxDepth = 38;
constexpr uint32_t kMaxComponents = 16384;
// The codestream header boxes of JPX come on top of the JP2 header.
const Box* header_of(const Check& check) {
  const Box& header = check.parent();
  const bool is_header = header.type == code("jp2h") || header.type == code("jpch");
  return is_header && header.parent == 0 ? &header : nullptr;
}

bool is_depth(uint32_t value) { return (value & 0x7F) < kMaxDepth; }

// The image that an ihdr or bpcc box describes; null when it can't be told.
const kvjpx_codestream::Image* image_of(const Check& check) {
  const Box* const header = header_of(check);
  const Codestream* const codestream =
      header != nullptr ? check.file.codestream_of(*header) : nullptr;
  return codestream != nullptr ? &codestream->summary.image : nullptr;
}

// The same, but for codestreams of 15444-2, whose component transformations may give other
// components than SIZ has.
const kvjpx_codestream::Image* plain_image_of(const Check& check) {
  const kvjpx_codestream::Image* const image = image_of(check);
  return image != nullptr && (image->capabilities & 0x8000) == 0 ? image : nullptr;
}

void tell_difference(const Check& check, uint64_t at, uint64_t found, uint64_t expected) {
  if (found == expected) return;
  check.tell(at, std::to_string(found), std::to_string(expected) + " as in SIZ");
}

struct Definition {
  uint64_t at;
  uint32_t channel;
  uint32_t type;
  uint32_t association;
};

// Calls `look` with each definition of a cdef box.
template <class Look>
void each_definition(const Check& check, const Look& look) {
  const Fields cdef = check.fields();
  const uint64_t count = cdef.u16(0);
  for (uint64_t at = 2; at < 2 + 6 * count && cdef.has(at, 6); at += 6) {
    look(Definition{at, cdef.u16(at), cdef.u16(at + 2), cdef.u16(at + 4)});
  }
}

// How many channels there are for a cdef box to define; nothing where that can't be told, as layers
// may put several codestreams together.
std::optional<uint32_t> channels_for(const Check& check) {
  if (!check.file.layer_headers().empty()) return std::nullopt;
  return check.file.channels_of(check.parent());
}

// How many columns the palette has that a cmap box looks into.
uint32_t palette_columns(const Check& check) {
  const Box* const pclr = check.file.in_header(check.parent(), code("pclr"));
  return pclr != nullptr ? check.file.fields(*pclr).u8(2) : 0;
}

std::string up_to(uint64_t limit) { return "at most " + std::to_string(limit); }

}  // namespace

// ---- ihdr

void ihdr_missing(Check& check) {
  if (check.file.child(*check.box, code("ihdr")) == nullptr) {
    check.tell_at(*check.box, check.box->offset, "", "an image header box");
  }
}

void ihdr_missing_jpx(Check& check) {
  const Box* const header = check.file.child(check.file.root(), code("jp2h"));
  if (header != nullptr && check.file.child(*header, code("ihdr")) != nullptr) return;
  const std::vector<uint32_t>& headers = check.file.codestream_headers();
  const std::vector<Codestream>& codestreams = check.file.codestreams();
  for (size_t i = 0; i < codestreams.size(); ++i) {
    const Box* const own = i < headers.size() ? &check.file.boxes()[headers[i]] : nullptr;
    if (own != nullptr && check.file.child(*own, code("ihdr")) != nullptr) continue;
    const Box& box = *codestreams[i].box;
    check.tell_at(box, box.offset, "codestream " + std::to_string(i), "ihdr in jp2h or jpch");
  }
}

void ihdr_first(Check& check) {
  const Box* const first = check.file.first(*check.box);
  if (first == nullptr || first->type == code("ihdr")) return;
  if (check.file.child(*check.box, code("ihdr")) == nullptr) return;
  check.tell_at(*first, first->offset, type_name(first->type), "ihdr");
}

void ihdr_size(Check& check) {
  check.need_range(0, 4, 1, 0xFFFFFFFF);
  check.need_range(4, 4, 1, 0xFFFFFFFF);
}

void ihdr_components(Check& check) { check.need_range(8, 2, 1, kMaxComponents); }

void ihdr_depth(Check& check) {
  const Fields ihdr = check.fields();
  const uint32_t value = ihdr.u8(10);
  if (!ihdr.has(10, 1) || value == KV_JPX_BPC_VARIES || is_depth(value)) return;
  check.tell(10, depth_words(value), "1 to 38 bits, or 255");
}

void ihdr_compression_jp2(Check& check) { check.need(11, 1, {7}); }
void ihdr_compression_jpx(Check& check) { check.need_range(11, 1, 0, 9); }
void ihdr_unknown_colour(Check& check) { check.need(12, 1, {0, 1}); }
void ihdr_ipr(Check& check) { check.need(13, 1, {0, 1}); }

void ihdr_size_of_codestream(Check& check) {
  const Fields ihdr = check.fields();
  const kvjpx_codestream::Image* const image = image_of(check);
  if (image == nullptr || !ihdr.has(0, 8)) return;
  tell_difference(check, 0, ihdr.u32(0), image->y.size());
  tell_difference(check, 4, ihdr.u32(4), image->x.size());
}

void ihdr_components_of_codestream(Check& check) {
  const kvjpx_codestream::Image* const image = plain_image_of(check);
  if (image == nullptr || !check.fields().has(8, 2)) return;
  tell_difference(check, 8, check.fields().u16(8), image->components.size());
}

void ihdr_depth_of_codestream(Check& check) {
  const Fields ihdr = check.fields();
  const uint32_t depth = ihdr.u8(10);
  const kvjpx_codestream::Image* const image = plain_image_of(check);
  if (image == nullptr || !ihdr.has(10, 1) || depth == KV_JPX_BPC_VARIES) return;
  for (const kvjpx_codestream::Component& component : image->components) {
    if (depth_byte(component) == depth) continue;
    check.tell(10, depth_words(depth), depth_words(depth_byte(component)) + " as in SIZ");
    return;
  }
}

// ---- bpcc

void bpcc_missing(Check& check) {
  const Fields ihdr = check.fields();
  const Box* const header = header_of(check);
  if (header == nullptr || !ihdr.has(10, 1) || ihdr.u8(10) != KV_JPX_BPC_VARIES) return;
  if (check.file.in_header(*header, code("bpcc")) == nullptr) check.tell(10, "", "a bpcc box");
}

void bpcc_needless(Check& check) {
  const Box* const ihdr = check.file.in_header(check.parent(), code("ihdr"));
  if (ihdr == nullptr || !check.file.fields(*ihdr).has(10, 1)) return;
  const uint32_t depth = check.file.fields(*ihdr).u8(10);
  if (depth == KV_JPX_BPC_VARIES) return;
  check.tell_at(*check.box, check.box->offset, "BPC " + std::to_string(depth), "BPC 255");
}

void bpcc_count(Check& check) {
  const auto components = check.file.components_of(check.parent());
  const uint64_t count = check.box->content_length;
  if (!components || count == *components) return;
  check.tell(0, std::to_string(count), std::to_string(*components) + " as in ihdr");
}

void bpcc_depth(Check& check) {
  const Fields bpcc = check.fields();
  for (uint64_t at = 0; at < bpcc.size(); ++at) {
    if (!is_depth(bpcc.u8(at))) check.tell(at, depth_words(bpcc.u8(at)), "1 to 38 bits");
  }
}

void bpcc_of_codestream(Check& check) {
  const Fields bpcc = check.fields();
  const kvjpx_codestream::Image* const image = plain_image_of(check);
  if (image == nullptr) return;
  for (uint64_t at = 0; at < bpcc.size() && at < image->components.size(); ++at) {
    const uint32_t expected = depth_byte(image->components[at]);
    if (bpcc.u8(at) == expected) continue;
    check.tell(at, depth_words(bpcc.u8(at)), depth_words(expected) + " as in SIZ");
  }
}

// ---- pclr and cmap

void pclr_entries(Check& check) { check.need_range(0, 2, 1, 1024); }
void pclr_columns(Check& check) { check.need_range(2, 1, 1, 255); }

void pclr_depth(Check& check) {
  const Fields pclr = check.fields();
  for (uint64_t at = 3; at < 3 + uint64_t{pclr.u8(2)} && pclr.has(at, 1); ++at) {
    if (!is_depth(pclr.u8(at))) check.tell(at, depth_words(pclr.u8(at)), "1 to 38 bits");
  }
}

void pclr_without_cmap(Check& check) {
  if (header_of(check) == nullptr) return;
  // What a JPX file's headers have for all of them may be completed by each of its own.
  if (check.file.child(check.parent(), code("cmap")) != nullptr) return;
  if (check.profile == kJpx && !check.file.all(code("cmap")).empty()) return;
  check.tell_at(*check.box, check.box->offset, "", "a cmap box beside it");
}

void cmap_without_pclr(Check& check) {
  const Box* const header = header_of(check);
  if (header == nullptr || check.file.in_header(*header, code("pclr")) != nullptr) return;
  if (check.profile == kJpx) return;  // components may be put in another order by it
  check.tell_at(*check.box, check.box->offset, "", "a pclr box beside it");
}

void cmap_component(Check& check) {
  const Fields cmap = check.fields();
  const auto components = check.file.components_of(check.parent());
  if (!components || *components == 0) return;
  for (uint64_t at = 0; cmap.has(at, 4); at += 4) {
    if (cmap.u16(at) < *components) continue;
    check.tell(at, std::to_string(cmap.u16(at)), up_to(*components - 1));
  }
}

void cmap_type(Check& check) {
  for (uint64_t at = 0; check.fields().has(at, 4); at += 4) check.need(at + 2, 1, {0, 1});
}

void cmap_column(Check& check) {
  const Fields cmap = check.fields();
  const uint32_t columns = palette_columns(check);
  for (uint64_t at = 0; cmap.has(at, 4); at += 4) {
    const uint32_t type = cmap.u8(at + 2);
    if (type == KV_JPX_MTYP_DIRECT) check.need(at + 3, 1, {0});
    if (type != KV_JPX_MTYP_PALETTE || columns == 0 || cmap.u8(at + 3) < columns) continue;
    check.tell(at + 3, std::to_string(cmap.u8(at + 3)), up_to(columns - 1));
  }
}

// ---- cdef

void cdef_empty(Check& check) { check.need_range(0, 2, 1, 0xFFFF); }

void cdef_channel(Check& check) {
  const auto channels = channels_for(check);
  if (!channels || *channels == 0) return;
  each_definition(check, [&](const Definition& one) {
    if (one.channel < *channels) return;
    check.tell(one.at, std::to_string(one.channel), up_to(*channels - 1));
  });
}

void cdef_twice(Check& check) {
  std::set<uint32_t> seen;
  each_definition(check, [&](const Definition& one) {
    if (seen.insert(one.channel).second) return;
    check.tell(one.at, "channel " + std::to_string(one.channel) + " again");
  });
}

void cdef_type(Check& check) {
  each_definition(check, [&](const Definition& one) {
    check.need(one.at + 2, 2, {0, 1, 2, 65535});
  });
}

void cdef_association(Check& check) {
  const auto channels = channels_for(check);
  if (!channels) return;
  each_definition(check, [&](const Definition& one) {
    if (one.association <= *channels || one.association == KV_JPX_ASOC_NONE) return;
    check.tell(one.at + 4, std::to_string(one.association),
               up_to(*channels) + ", as there are so many channels, or 65535");
  });
}

void cdef_pair(Check& check) {
  std::map<std::pair<uint32_t, uint32_t>, uint32_t> seen;
  each_definition(check, [&](const Definition& one) {
    if (one.type == KV_JPX_TYP_UNSPECIFIED || one.association == KV_JPX_ASOC_NONE) return;
    const auto [place, is_new] = seen.insert({{one.type, one.association}, one.channel});
    if (is_new || place->second == one.channel) return;
    check.tell(one.at + 2, "type " + std::to_string(one.type) + ", association " +
                               std::to_string(one.association) + " as channel " +
                               std::to_string(place->second));
  });
}

void cdef_incomplete(Check& check) {
  const auto channels = channels_for(check);
  const Fields cdef = check.fields();
  if (!channels || !cdef.has(0, 2)) return;
  if (cdef.u16(0) == 0 || cdef.u16(0) >= *channels) return;
  check.tell(0, std::to_string(cdef.u16(0)), std::to_string(*channels));
}

// ---- res

void res_empty(Check& check) {
  if (check.file.child(*check.box, code("resc")) != nullptr) return;
  if (check.file.child(*check.box, code("resd")) != nullptr) return;
  check.tell(0, "", "resc, resd or both");
}

void res_zero(Check& check) {
  for (uint64_t at = 0; at < 8; at += 2) check.need_range(at, 2, 1, 65535);
}

}  // namespace kvjpx_check
