// What ISO/IEC 15444-2 adds.
#include <algorithm>

#include "rules.h"

namespace kvjpx_check {
namespace {

// Parts of an rreq box: 1 ML, then FUAM and DCM of ML bytes each, then the features.
class Requirements {
 public:
  explicit Requirements(Fields fields) : fields_(fields), width_(fields.u8(0)) {
    uint64_t at = 1 + 2 * uint64_t{width_};
    is_readable_ = width_ >= 1 && width_ <= 8 && fields_.has(at, 2);
    if (!is_readable_) return;
    at = take(at, 2, features_);
    take(at, 16, vendor_features_);
  }

  bool is_readable() const { return is_readable_; }
  bool lists(std::initializer_list<uint32_t> wanted) const {
    return std::any_of(features_.begin(), features_.end(), [&](uint64_t at) {
      return std::find(wanted.begin(), wanted.end(), fields_.u16(at)) != wanted.end();
    });
  }
  uint64_t understand() const { return fields_.number(1, width_); }
  uint64_t display() const { return fields_.number(1 + width_, width_); }
  // The bits of all features together.
  uint64_t features() const {
    uint64_t bits = 0;
    for (const uint64_t at : features_) bits |= fields_.number(at + 2, width_);
    for (const uint64_t at : vendor_features_) bits |= fields_.number(at + 16, width_);
    return bits;
  }
  unsigned width() const { return width_; }

 private:
  // Where the features of a list stand whose names have this length; tells its end.
  uint64_t take(uint64_t at, unsigned name, std::vector<uint64_t>& places) const {
    const uint64_t count = fields_.u16(at);
    at += 2;
    for (uint64_t i = 0; i < count && fields_.has(at, name + width_); ++i, at += name + width_) {
      places.push_back(at);
    }
    return at;
  }

  Fields fields_;
  unsigned width_;
  bool is_readable_ = false;
  std::vector<uint64_t> features_;
  std::vector<uint64_t> vendor_features_;
};

// `is_used` tells whether the file uses what these features stand for. It is asked once for a file,
// however many boxes of requirements there are.
template <class IsUsed>
void need_feature(const Check& check, const IsUsed& is_used, const char* use,
                  std::initializer_list<uint32_t> features) {
  if (check.box != check.file.child(check.file.root(), code("rreq"))) return;
  const Requirements requirements(check.fields());
  if (!requirements.is_readable() || requirements.lists(features) || !is_used(check.file)) return;
  std::string numbers;
  for (const uint32_t feature : features) {
    numbers += (numbers.empty() ? "feature " : ", ") + std::to_string(feature);
  }
  check.tell(1, use, numbers);
}

bool has_opacity(const File& file) {
  for (const uint32_t place : file.all(code("cdef"))) {
    const Fields cdef = file.fields(file.boxes()[place]);
    for (uint64_t at = 2; cdef.has(at, 6); at += 6) {
      const uint32_t type = cdef.u16(at + 2);
      if (type == KV_JPX_TYP_OPACITY || type == KV_JPX_TYP_PREMULTIPLIED_OPACITY) return true;
    }
  }
  return !file.all(code("opct")).empty();
}

bool has_any_icc(const File& file) {
  const std::vector<uint32_t>& all = file.all(code("colr"));
  return std::any_of(all.begin(), all.end(), [&](uint32_t place) {
    return file.fields(file.boxes()[place]).u8(0) == KV_JPX_METH_ANY_ICC;
  });
}

bool has_extensions(const File& file) {
  const std::vector<Codestream>& all = file.codestreams();
  return std::any_of(all.begin(), all.end(), [](const Codestream& one) {
    return (one.summary.image.capabilities & 0x8000) != 0;
  });
}

// Calls `look` with where each entry of a list stands that fills the content from `begin` on.
template <class Look>
void each_entry(const Check& check, uint64_t begin, uint64_t width, const Look& look) {
  const Fields fields = check.fields();
  for (uint64_t at = begin; fields.has(at, width); at += width) look(at);
}

constexpr uint64_t kFragment = 14;  // 8 OFF, 4 LEN, 2 DR
template <class Look>
void each_fragment(const Check& check, const Look& look) {
  const Fields list = check.fields();
  const uint64_t end = 2 + kFragment * list.u16(0);
  for (uint64_t at = 2; at < end && list.has(at, kFragment); at += kFragment) look(at);
}

constexpr uint64_t kRegistration = 6;  // 2 CDN, 1 XR, 1 YR, 1 XO, 1 YO

void need_one_list(Check& check) {
  const uint32_t count = check.file.count(*check.box, code("flst"));
  if (count != 1) check.tell(0, std::to_string(count), "1");
}

}  // namespace

// ---- rreq

void rreq_missing(Check& check) {
  if (check.file.all(code("rreq")).empty()) check.tell(0, "", "an rreq box behind ftyp");
}

void rreq_second(Check& check) {
  const Box* const rreq = check.file.child(check.file.root(), code("rreq"));
  const Box* const ftyp = check.file.child(check.file.root(), code("ftyp"));
  if (rreq == nullptr || ftyp == nullptr || check.file.next(*ftyp) == rreq) return;
  check.tell_at(*rreq, rreq->offset, "", "rreq directly behind ftyp");
}

void rreq_mask_length(Check& check) { check.need(0, 1, {1, 2, 4, 8}); }

void rreq_masks(Check& check) {
  const Requirements requirements(check.fields());
  if (!requirements.is_readable()) return;
  const uint64_t known = requirements.features();
  if ((requirements.understand() & ~known) != 0) {
    check.tell(1, "FUAM " + hexadecimal(requirements.understand()),
               "bits of " + hexadecimal(known));
  }
  if ((requirements.display() & ~known) != 0) {
    check.tell(1 + requirements.width(), "DCM " + hexadecimal(requirements.display()),
               "bits of " + hexadecimal(known));
  }
}

void rreq_layers(Check& check) {
  const auto is_used = [](const File& file) { return file.layer_headers().size() > 1; };
  need_feature(check, is_used, "several layers", {2});
}

void rreq_fragments(Check& check) {
  const auto is_used = [](const File& file) { return file.count(file.root(), code("ftbl")) > 0; };
  need_feature(check, is_used, "a codestream in fragments", {13, 14, 15, 16});
}

void rreq_palette(Check& check) {
  const auto is_used = [](const File& file) { return !file.all(code("pclr")).empty(); };
  need_feature(check, is_used, "a palette", {42});
}

void rreq_opacity(Check& check) { need_feature(check, has_opacity, "opacity", {9, 10, 11}); }

void rreq_any_icc(Check& check) {
  need_feature(check, has_any_icc, "an ICC profile of any kind", {44});
}

void rreq_composition(Check& check) {
  const auto is_used = [](const File& file) { return !file.all(code("comp")).empty(); };
  need_feature(check, is_used, "a composition", {2, 17, 18, 19, 24, 25, 26, 27, 28, 29, 30});
}

void rreq_extensions(Check& check) {
  need_feature(check, has_extensions, "a codestream of ISO/IEC 15444-2", {6});
}

// ---- Headers of codestreams and layers

void codestream_headers(Check& check) {
  const size_t count = check.file.codestreams().size();
  const std::vector<uint32_t>& headers = check.file.codestream_headers();
  if (headers.size() <= count || !check.file.has_all_codestreams()) return;
  const Box& first = check.file.boxes()[headers[count]];
  check.tell_at(first, first.offset, std::to_string(headers.size()), std::to_string(count));
}

void layer_headers(Check& check) {
  const size_t count = check.file.codestreams().size();
  const std::vector<uint32_t>& layers = check.file.layer_headers();
  if (layers.size() <= count || !check.file.has_all_codestreams()) return;
  if (!check.file.all(code("creg")).empty()) return;
  const Box& first = check.file.boxes()[layers[count]];
  check.tell_at(first, first.offset, std::to_string(layers.size()), std::to_string(count));
}

void layer_colour(Check& check) {
  const Box* const header = check.file.child(check.file.root(), code("jp2h"));
  if (header != nullptr && check.file.child(*header, code("colr")) != nullptr) return;
  // Without layer headers, all layers have what the JP2 header says.
  if (check.file.layer_headers().empty()) {
    if (header != nullptr) check.tell_at(*header, header->offset, "", "a colr box");
    return;
  }
  for (const uint32_t place : check.file.layer_headers()) {
    const Box& layer = check.file.boxes()[place];
    if (check.file.child(layer, code("cgrp")) != nullptr) continue;
    check.tell_at(layer, layer.offset, "", "a cgrp box, or colr in jp2h");
  }
}

void creg_all(Check& check) {
  const Box* without = nullptr;
  bool has_some = false;
  for (const uint32_t place : check.file.layer_headers()) {
    const Box& layer = check.file.boxes()[place];
    const bool has_one = check.file.child(layer, code("creg")) != nullptr;
    has_some |= has_one;
    if (!has_one && without == nullptr) without = &layer;
  }
  if (has_some && without != nullptr) check.tell_at(*without, without->offset, "", "a creg box");
}

void creg_grid(Check& check) {
  check.need_range(0, 2, 1, 65535);
  check.need_range(2, 2, 1, 65535);
}

void creg_codestream(Check& check) {
  const uint64_t count = check.file.codestreams().size();
  if (!check.file.has_all_codestreams()) return;
  each_entry(check, 4, kRegistration, [&](uint64_t at) {
    const uint32_t number = check.fields().u16(at);
    if (number < count) return;
    check.tell(at, std::to_string(number), std::to_string(count) + " codestreams, from 0");
  });
}

void creg_distance(Check& check) {
  each_entry(check, 4, kRegistration, [&](uint64_t at) {
    check.need_range(at + 2, 1, 1, 255);
    check.need_range(at + 3, 1, 1, 255);
  });
}

void creg_offset(Check& check) {
  const uint32_t units[] = {check.fields().u16(0), check.fields().u16(2)};
  each_entry(check, 4, kRegistration, [&](uint64_t at) {
    for (unsigned i = 0; i < 2; ++i) {
      if (units[i] > 0) check.need_range(at + 4 + i, 1, 0, units[i] - 1);
    }
  });
}

void cgrp_empty(Check& check) {
  if (check.file.child(*check.box, code("colr")) != nullptr) return;
  if (check.file.child(*check.box, code("cref")) != nullptr) return;
  check.tell(0, "", "a colr box");
}

void opct_type(Check& check) { check.need_range(0, 1, 0, 2); }

void opct_and_cdef(Check& check) {
  if (check.file.child(check.parent(), code("cdef")) == nullptr) return;
  check.tell_at(*check.box, check.box->offset);
}

// ---- Composition

void comp_copt(Check& check) {
  const Box* const first = check.file.first(*check.box);
  if (first != nullptr && first->type == code("copt")) return;
  check.tell(0, first != nullptr ? type_name(first->type) : "no box", "copt");
}

void comp_inst(Check& check) {
  if (check.file.child(*check.box, code("inst")) != nullptr) return;
  if (check.file.child(*check.box, code("flst")) != nullptr) return;
  check.tell(0, "", "inst");
}

void copt_size(Check& check) {
  check.need_range(0, 4, 1, 0xFFFFFFFF);
  check.need_range(4, 4, 1, 0xFFFFFFFF);
}

void inst_type(Check& check) {
  constexpr uint32_t kKnown =
      KV_JPX_ITYP_OFFSETS | KV_JPX_ITYP_SCALING | KV_JPX_ITYP_PERSISTENCE | KV_JPX_ITYP_CROPPING;
  const uint32_t type = check.fields().u16(0);
  if (check.fields().has(0, 2) && (type & ~kKnown) != 0) {
    check.tell(0, hexadecimal(type), "bits of " + hexadecimal(kKnown));
  }
}

// ---- Associations

void asoc_few(Check& check) {
  const Box* const first = check.file.first(*check.box);
  if (first != nullptr && check.file.next(*first) != nullptr) return;
  // Nested so deeply that nobody has looked.
  if (first == nullptr && check.box->content_length > 0) return;
  check.tell(0, first != nullptr ? "1" : "0", "2 or more");
}

void nlst_reserved(Check& check) {
  each_entry(check, 0, 4, [&](uint64_t at) {
    const uint32_t number = check.fields().u32(at);
    if (number == 0 || number >> 24 == 1 || number >> 24 == 2) return;
    check.tell(at, hexadecimal(number), "0, 0x01NNNNNN or 0x02NNNNNN");
  });
}

void nlst_target(Check& check) {
  if (!check.file.has_all_codestreams()) return;
  const uint64_t codestreams = check.file.codestreams().size();
  // Without layer headers each codestream is a layer.
  const uint64_t layers =
      check.file.layer_headers().empty() ? codestreams : check.file.layer_headers().size();
  each_entry(check, 0, 4, [&](uint64_t at) {
    const uint32_t number = check.fields().u32(at);
    const uint32_t kind = number >> 24;
    const uint64_t count = kind == 1 ? codestreams : layers;
    if ((kind != 1 && kind != 2) || (number & 0xFFFFFF) < count) return;
    const std::string name = kind == 1 ? "codestream" : "layer";
    check.tell(at, name + " " + std::to_string(number & 0xFFFFFF),
               std::to_string(count) + " of them, from 0");
  });
}

// ---- Fragments and references

void ftbl_list(Check& check) { need_one_list(check); }
void cref_list(Check& check) { need_one_list(check); }

void cref_type(Check& check) {
  const uint32_t type = check.fields().u32(0);
  if (check.parent().type != code("cgrp") || !check.fields().has(0, 4) || type == code("colr")) {
    return;
  }
  check.tell(0, type_name(type), "colr");
}

void flst_empty(Check& check) { check.need_range(0, 2, 1, 65535); }

void flst_reference(Check& check) {
  const std::vector<uint32_t>& tables = check.file.all(code("dtbl"));
  const uint32_t count =
      tables.empty() ? 0 : check.file.fields(check.file.boxes()[tables[0]]).u16(0);
  each_fragment(check, [&](uint64_t at) { check.need_range(at + 12, 2, 0, count); });
}

void flst_range(Check& check) {
  const Fields list = check.fields();
  const uint64_t size = check.file.bytes().size();
  each_fragment(check, [&](uint64_t at) {
    const uint64_t offset = list.number(at, 8);
    const uint64_t length = list.u32(at + 8);
    if (list.u16(at + 12) != 0 || (offset <= size && length <= size - offset)) return;
    check.tell(at, std::to_string(length) + " bytes at " + std::to_string(offset),
               "a range in the " + std::to_string(size) + " bytes of the file");
  });
}

void flst_length(Check& check) {
  each_fragment(check, [&](uint64_t at) { check.need_range(at + 8, 4, 1, 0xFFFFFFFF); });
}

void dtbl_count(Check& check) {
  const Fields table = check.fields();
  // The library takes no content of boxes that it can't believe.
  uint64_t count = 0;
  for (uint64_t at = 2; table.has(at, 8) && table.u32(at) >= 8; at += table.u32(at)) ++count;
  if (table.has(0, 2) && table.u16(0) != count) {
    check.tell(0, std::to_string(table.u16(0)), std::to_string(count));
  }
}

}  // namespace kvjpx_check
