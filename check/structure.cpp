// Boxes as such, and their order at the top level.
#include "rules.h"

namespace kvjpx_check {
namespace {

std::string list_words(const Fields& ftyp) {
  constexpr uint64_t kMost = 8;
  std::string words;
  for (uint64_t at = 8; ftyp.has(at, 4); at += 4) {
    if (at >= 8 + 4 * kMost) return words + "...";
    words += (words.empty() ? "" : ", ") + type_name(ftyp.u32(at));
  }
  return words.empty() ? "an empty list" : words;
}

bool is_about_codestream(const Box& box) {
  return box.type == code("jp2c") || box.type == code("ftbl");
}

void tell_repeated(Check& check, const Box& container, std::initializer_list<uint32_t> types) {
  for (const uint32_t type : types) {
    uint32_t count = check.file.count(container, type);
    if (count < 2) continue;
    for (const Box* box = check.file.next(*check.file.child(container, type)); box != nullptr;
         box = check.file.next(*box)) {
      if (box->type == type) check.tell_at(*box, box->offset, std::to_string(count), "1");
    }
  }
}

bool is_known_method(uint32_t method) {
  return method >= KV_JPX_METH_ENUMERATED && method <= KV_JPX_METH_VENDOR;
}

// Boxes for which later editions have found further places.
bool may_stand_elsewhere(uint32_t type) {
  return type == code("roid") || type == code("uinf") || type == code("cref") ||
         type == code("mdat");
}

// To a JP2 file, boxes that other parts of the standard define are like unknown ones (15444-1,
// I.8): their contents and places are not its to judge.
bool is_of_part_1(const Box& box) {
  switch (box.type) {
    case code("jP  "):
    case code("ftyp"):
    case code("jp2h"):
    case code("ihdr"):
    case code("bpcc"):
    case code("colr"):
    case code("pclr"):
    case code("cmap"):
    case code("cdef"):
    case code("res "):
    case code("resc"):
    case code("resd"):
    case code("jp2c"):
    case code("jp2i"):
    case code("xml "):
    case code("uuid"):
    case code("uinf"):
    case code("ulst"):
    case code("url "):
      return true;
    default:
      return false;
  }
}

bool is_about_content(uint32_t kind) {
  return kind == KV_JPX_FINDING_MISPLACED || kind == KV_JPX_FINDING_UNREAD ||
         kind == KV_JPX_FINDING_MALFORMED;
}

bool follows_from_another(const Check& check, const Box& box, uint32_t kind) {
  switch (kind) {
    // Numbers that have a rule of their own make a content unreadable, too.
    case KV_JPX_FINDING_MALFORMED:
      return check.is_known(box);
    // What a method holds that nobody knows, nobody knows.
    case KV_JPX_FINDING_UNREAD:
      return box.type == code("colr") && !is_known_method(check.file.fields(box).u8(0));
    // A box without a length that stands in another always goes on too far.
    case KV_JPX_FINDING_CUT_SHORT:
      return box.has(KV_JPX_BOX_OPEN_ENDED);
    case KV_JPX_FINDING_MISPLACED:
      return may_stand_elsewhere(box.type);
    default:
      return false;
  }
}

}  // namespace

// What the library's reader met, in its words.
template <uint32_t kKind>
void reader_finding(Check& check) {
  for (const kvjpx::finding& finding : check.file.document().findings()) {
    if (finding.kind != kKind) continue;
    const Box* box = check.file.by_id(finding.place.id());
    if (box == nullptr) box = &check.file.root();
    const bool is_seen = box->is_in_part_1 && is_of_part_1(*box);
    if (check.profile == kJp2 && is_about_content(kKind) && !is_seen) continue;
    if (!follows_from_another(check, *box, kKind)) {
      check.tell_at(*box, finding.offset, finding.text);
    }
  }
}
template void reader_finding<KV_JPX_FINDING_TRAILING>(Check&);
template void reader_finding<KV_JPX_FINDING_BAD_LENGTH>(Check&);
template void reader_finding<KV_JPX_FINDING_CUT_SHORT>(Check&);
template void reader_finding<KV_JPX_FINDING_MALFORMED>(Check&);
template void reader_finding<KV_JPX_FINDING_UNREAD>(Check&);
template void reader_finding<KV_JPX_FINDING_TOO_DEEP>(Check&);
template void reader_finding<KV_JPX_FINDING_MISPLACED>(Check&);

void open_ended_inside(Check& check) {
  const Box& box = *check.box;
  if (!box.has(KV_JPX_BOX_OPEN_ENDED) || box.parent == 0 || box.place == 0) return;
  if (check.parent().has(KV_JPX_BOX_OPEN_ENDED)) return;
  check.tell_at(box, box.offset, "LBox 0", "LBox 0 also in " + type_name(check.parent().type));
}

void signature_first(Check& check) {
  const Box* const first = check.file.first(check.file.root());
  if (first != nullptr && first->type == code("jP  ")) return;
  check.tell(0, first == nullptr ? "no box" : type_name(first->type), "jP");
}

void signature_bytes(Check& check) {
  const Fields bytes = check.fields();
  if (bytes.has(0, 4) && bytes.u32(0) != 0x0D0A870A) {
    check.tell(0, hexadecimal(bytes.u32(0)), "0xD0A870A");
  }
}

void signature_length(Check& check) {
  const Box& box = *check.box;
  if (box.header_length != 8 || box.has(KV_JPX_BOX_OPEN_ENDED)) {
    check.tell_at(box, box.offset, "a header of another form", "LBox 12");
  }
}

void ftyp_second(Check& check) {
  const Box* const first = check.file.first(check.file.root());
  const Box* const second = first == nullptr ? nullptr : check.file.next(*first);
  if (second != nullptr && second->type == code("ftyp")) return;
  const Box* const ftyp = check.file.child(check.file.root(), code("ftyp"));
  check.tell_at(ftyp != nullptr ? *ftyp : check.file.root(), second != nullptr ? second->offset : 0,
                second != nullptr ? type_name(second->type) : "no box", "ftyp");
}

void ftyp_brand(Check& check) {
  const Fields ftyp = check.fields();
  const uint32_t brand = ftyp.u32(0);
  if (!ftyp.has(0, 4) || brand == code("jp2 ") || brand == code("jpx ") || brand == code("jph ")) {
    return;
  }
  check.tell(0, type_name(brand), "jp2, jpx or jph");
}

void ftyp_version(Check& check) { check.need(4, 4, {0}); }

void ftyp_jp2(Check& check) {
  const Fields ftyp = check.fields();
  if (!ftyp.has(0, 8) || check.file.is_listed(code("jp2 "))) return;
  check.tell(8, list_words(ftyp), "jp2 among them");
}

void ftyp_jpx(Check& check) {
  const Fields ftyp = check.fields();
  if (!ftyp.has(0, 8) || check.file.is_listed(code("jpx ")) || check.file.is_listed(code("jpxb"))) {
    return;
  }
  check.tell(8, list_words(ftyp), "jpx or jpxb among them");
}

void ftyp_jph(Check& check) {
  const Fields ftyp = check.fields();
  if (!ftyp.has(0, 8) || check.file.is_listed(code("jph "))) return;
  check.tell(8, list_words(ftyp), "jph among them");
}

void ftyp_other(Check& check) { check.tell(0, type_name(check.fields().u32(0))); }

void header_missing(Check& check) {
  const Box& root = check.file.root();
  if (check.file.child(root, code("jp2h")) != nullptr) return;
  // Headers of their own can stand in for it.
  if (check.profile == kJpx && check.file.child(root, code("jpch")) != nullptr) return;
  check.tell(0, "", "a JP2 header box");
}

void header_late(Check& check) {
  const Box* const header = check.file.child(check.file.root(), code("jp2h"));
  if (header == nullptr) return;
  for (const Box* box = check.file.first(check.file.root()); box != header;
       box = check.file.next(*box)) {
    if (!is_about_codestream(*box)) continue;
    check.tell_at(*header, header->offset, "", "jp2h in front of " + type_name(box->type));
    return;
  }
}

void codestream_missing(Check& check) {
  const Box& root = check.file.root();
  if (check.file.child(root, code("jp2c")) != nullptr) return;
  if (check.profile == kJpx && check.file.child(root, code("ftbl")) != nullptr) return;
  if (check.profile == kJpx && !check.file.has_all_codestreams()) return;
  check.tell(0, "", check.profile == kJpx ? "jp2c or ftbl" : "jp2c");
}

void codestream_more(Check& check) {
  const uint32_t count = check.file.count(check.file.root(), code("jp2c"));
  if (count < 2) return;
  const Box* box = check.file.child(check.file.root(), code("jp2c"));
  do {
    box = check.file.next(*box);
  } while (box != nullptr && box->type != code("jp2c"));
  if (box != nullptr) check.tell_at(*box, box->offset, std::to_string(count), "1");
}

void too_many_at_top(Check& check) {
  tell_repeated(check, check.file.root(),
                {code("jP  "), code("ftyp"), code("jp2h"), code("rreq"), code("comp"), code("dtbl"),
                 code("drep")});
}

void too_many_in_container(Check& check) {
  if (check.box->place == 0) return;
  if (check.box->type == code("res ")) {
    tell_repeated(check, *check.box, {code("resc"), code("resd")});
  } else if (check.box->type == code("jp2h") || check.box->type == code("jpch") ||
             check.box->type == code("jplh")) {
    tell_repeated(check, *check.box,
                  {code("ihdr"), code("bpcc"), code("pclr"), code("cmap"), code("cdef"),
                   code("res "), code("cgrp"), code("opct"), code("creg")});
  } else if (check.box->type == code("comp")) {
    tell_repeated(check, *check.box, {code("copt")});
  }
}

void ipr_flag(Check& check) {
  const Fields ihdr = check.fields();
  if (check.parent().type != code("jp2h") || !ihdr.has(13, 1) || ihdr.u8(13) > 1) return;
  const bool has_box = check.file.child(check.file.root(), code("jp2i")) != nullptr;
  if (has_box == (ihdr.u8(13) == 1)) return;
  check.tell(13, std::to_string(ihdr.u8(13)),
             has_box ? "1, as there is a jp2i box" : "0, as there is no jp2i box");
}

}  // namespace kvjpx_check
