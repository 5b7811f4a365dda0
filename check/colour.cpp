// Colour boxes (colr), and the ICC profiles in them.
#include <set>

#include "rules.h"

namespace kvjpx_check {
namespace {

// The header of an ICC profile (ISO 15076-1, 7.2).
constexpr uint64_t kProfile = 3;  // in the content of the box
constexpr uint64_t kClass = 12;
constexpr uint64_t kSpace = 16;
constexpr uint64_t kConnection = 20;
constexpr uint64_t kSignature = 36;
constexpr uint64_t kTags = 128;

bool has_profile(const Check& check) {
  const uint32_t method = check.fields().u8(0);
  return method == KV_JPX_METH_RESTRICTED_ICC ||
         (method == KV_JPX_METH_ANY_ICC && check.profile != kJp2);  // a method of JPX
}

// A number of a profile that is there, at the offset in the profile.
bool has_number(const Check& check, uint64_t at) {
  return has_profile(check) && check.fields().has(kProfile + at, 4);
}

bool is_restricted(const Check& check) {
  return check.fields().u8(0) == KV_JPX_METH_RESTRICTED_ICC;
}

void need_code(const Check& check, uint64_t at, std::initializer_list<uint32_t> codes) {
  if (!has_number(check, at)) return;
  const uint32_t value = check.fields().u32(kProfile + at);
  std::string expected;
  for (const uint32_t one : codes) {
    if (value == one) return;
    expected += (expected.empty() ? "" : ", ") + type_name(one);
  }
  check.tell(kProfile + at, type_name(value), expected);
}

bool is_enumerated(const Check& check) {
  return check.fields().u8(0) == KV_JPX_METH_ENUMERATED && check.fields().has(3, 4);
}

// 0 for spaces that are not known.
uint32_t colours_of(uint32_t space) {
  switch (space) {
    case KV_JPX_ENUMCS_BI_LEVEL:
    case KV_JPX_ENUMCS_BI_LEVEL_2:
    case KV_JPX_ENUMCS_GREYSCALE:
      return 1;
    case KV_JPX_ENUMCS_CMYK:
    case KV_JPX_ENUMCS_YCCK:
      return 4;
    default:
      return space <= KV_JPX_ENUMCS_E_SYCC ? 3 : 0;
  }
}

// Colours that the box wants and channels that there are, when both can be told.
struct Channels {
  uint32_t wanted;
  uint32_t there;
};
uint32_t wanted_channels(const Check& check) {
  if (is_enumerated(check)) return colours_of(check.fields().u32(3));
  if (!has_number(check, kSpace)) return 0;
  switch (check.fields().u32(kProfile + kSpace)) {
    case code("GRAY"):
      return 1;
    case code("RGB "):
      return 3;
    case code("CMYK"):
      return 4;
    default:
      return 0;
  }
}
std::optional<Channels> channels_for(const Check& check) {
  if (check.parent().type != code("jp2h")) return std::nullopt;
  // In JPX it is layers that have colours; they may put several codestreams together.
  if (!check.file.layer_headers().empty()) return std::nullopt;
  const auto channels = check.file.channels_of(check.parent());
  const uint32_t wanted = wanted_channels(check);
  if (!channels || *channels == 0 || wanted == 0) return std::nullopt;
  return Channels{wanted, *channels};
}

// Readers of JP2 take the first box, and pass over what 15444-2 has defined in further ones.
bool is_for_others(const Check& check) {
  return check.file.child(check.parent(), code("colr")) != check.box;
}

// The tags of a profile whose table is whole; nothing else.
std::set<uint32_t> tags_of(const Check& check) {
  constexpr uint64_t kTagLength = 12;
  const Fields colr = check.fields();
  const uint64_t table = kProfile + kTags + 4;
  const uint64_t count = colr.u32(kProfile + kTags);
  std::set<uint32_t> tags;
  if (!colr.has(table, count * kTagLength)) return tags;
  for (uint64_t i = 0; i < count; ++i) tags.insert(colr.u32(table + i * kTagLength));
  return tags;
}

}  // namespace

void colr_missing(Check& check) {
  if (check.file.child(*check.box, code("colr")) != nullptr) return;
  check.tell_at(*check.box, check.box->offset, "", "a colr box");
}

void colr_scattered(Check& check) {
  const Box* colr = check.file.child(*check.box, code("colr"));
  while (colr != nullptr && colr->type == code("colr")) colr = check.file.next(*colr);
  for (; colr != nullptr; colr = check.file.next(*colr)) {
    if (colr->type == code("colr")) check.tell_at(*colr, colr->offset);
  }
}

void colr_method_jp2(Check& check) {
  is_for_others(check) ? colr_method_jpx(check) : check.need(0, 1, {1, 2});
}
void colr_method_jpx(Check& check) { check.need_range(0, 1, 1, 5); }
void colr_precedence(Check& check) { check.need(1, 1, {0}); }
// JP2 wants 0, but tells readers to ignore the field, and the conformance files of 15444-4 have
// what 15444-2 says of their spaces.
void colr_approximation(Check& check) { check.need_range(2, 1, 0, 4); }

void colr_space_jp2(Check& check) {
  if (!is_enumerated(check)) return;
  is_for_others(check) ? colr_space_jpx(check) : check.need(3, 4, {16, 17, 18});
}
void colr_space_jpx(Check& check) {
  if (!is_enumerated(check)) return;
  check.need(3, 4, {0, 1, 3, 4, 9, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24});
}

void colr_channels(Check& check) {
  const auto channels = channels_for(check);
  if (!channels || channels->there >= channels->wanted) return;
  check.tell(3, std::to_string(channels->there), std::to_string(channels->wanted));
}

void colr_extra_channels(Check& check) {
  const auto channels = channels_for(check);
  if (!channels || channels->there <= channels->wanted) return;
  if (check.file.child(check.parent(), code("cdef")) != nullptr) return;
  check.tell(3, std::to_string(channels->there) + " channels",
             std::to_string(channels->wanted) + ", or a cdef box");
}

void icc_short(Check& check) {
  const uint64_t size = check.fields().size();
  if (!has_profile(check) || size >= kProfile + kTags + 4) return;
  check.tell(kProfile, std::to_string(size < kProfile ? 0 : size - kProfile) + " bytes",
             "at least " + std::to_string(kTags + 4));
}

void icc_size(Check& check) {
  if (!has_number(check, 0)) return;
  const uint64_t size = check.fields().u32(kProfile);
  const uint64_t there = check.fields().size() - kProfile;
  if (size != there) check.tell(kProfile, std::to_string(size), std::to_string(there));
}

void icc_signature(Check& check) { need_code(check, kSignature, {code("acsp")}); }

void icc_class(Check& check) {
  if (is_restricted(check)) need_code(check, kClass, {code("scnr"), code("mntr")});
}

void icc_space(Check& check) {
  if (is_restricted(check)) need_code(check, kSpace, {code("GRAY"), code("RGB ")});
}

void icc_connection(Check& check) {
  if (is_restricted(check)) need_code(check, kConnection, {code("XYZ ")});
}

void icc_tags(Check& check) {
  if (!is_restricted(check) || !has_number(check, kTags)) return;
  const std::set<uint32_t> tags = tags_of(check);
  if (tags.empty()) return;
  const auto need_tags = [&](std::initializer_list<uint32_t> wanted) {
    for (const uint32_t tag : wanted) {
      if (tags.count(tag) == 0) check.tell(kProfile + kTags, "", type_name(tag));
    }
  };
  const uint32_t space = check.fields().u32(kProfile + kSpace);
  if (space == code("GRAY")) need_tags({code("kTRC")});
  if (space != code("RGB ")) return;
  need_tags({code("rXYZ"), code("gXYZ"), code("bXYZ"), code("rTRC"), code("gTRC"), code("bTRC")});
}

void icc_lookup(Check& check) {
  if (!is_restricted(check) || tags_of(check).count(code("A2B0")) == 0) return;
  check.tell(kProfile + kTags, "A2B0", "a matrix or a curve alone");
}

}  // namespace kvjpx_check
