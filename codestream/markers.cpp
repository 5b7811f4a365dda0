// Marker segments, one reader each (ISO/IEC 15444-1, A.4 to A.9; CAP also 15444-15, A.3).
#include "markers.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>

namespace kvjpx_codestream {
namespace {

constexpr uint32_t kMaxComponents = 16384;
constexpr uint32_t kMaxTiles = 65535;
constexpr uint32_t kMaxDepth = 38;
constexpr uint32_t kMaxLevels = 32;
constexpr uint32_t kLastProgression = 4;

// ---- Texts

std::string profile_words(uint64_t value) { return profile_name(static_cast<uint16_t>(value)); }
std::string progression_words(uint64_t value) {
  return progression_name(static_cast<uint32_t>(value));
}
std::string transformation_words(uint64_t value) {
  return transformation_name(static_cast<uint32_t>(value));
}
std::string block_style_words(uint64_t value) {
  return code_block_style_names(static_cast<uint32_t>(value));
}

std::string depth_words(uint64_t value) {
  return std::to_string((value & 0x7F) + 1) + " bits, " + (value & 0x80 ? "signed" : "unsigned");
}

std::string coding_style_words(uint64_t value) {
  std::string words = value & 1 ? "precincts given" : "largest precincts";
  if (value & 2) words += ", SOP may be used";
  if (value & 4) words += ", EPH used";
  return words;
}

std::string colour_transform_words(uint64_t value) {
  return value == 0 ? "none" : value == 1 ? "components 0, 1, 2" : "reserved";
}

std::string block_size_words(uint64_t value) { return std::to_string(uint64_t{4} << (value & 15)); }

std::string precinct_words(uint64_t value) {
  return std::to_string(1 << (value & 15)) + " x " + std::to_string(1 << (value >> 4));
}

std::string quantization_words(uint64_t value) {
  return std::string(quantization_name(value & 31)) + ", " + std::to_string(value >> 5) +
         " guard bits";
}

std::string exponent_words(uint64_t value) { return "exponent " + std::to_string(value >> 3); }

std::string step_words(uint64_t value) {
  return "exponent " + std::to_string(value >> 11) + ", mantissa " + std::to_string(value & 0x7FF);
}

std::string region_words(uint64_t value) { return value == 0 ? "implicit" : "reserved"; }

std::string comment_words(uint64_t value) {
  return value == 0 ? "binary" : value == 1 ? "ISO/IEC 8859-15" : "reserved";
}

std::string tile_length_words(uint64_t value) { return value == 0 ? "up to EOC" : ""; }

std::string part_count_words(uint64_t value) { return value == 0 ? "not told" : ""; }

std::string capability_words(uint64_t value) {
  std::string words;
  for (unsigned part = 1; part <= 32; ++part) {
    if (value >> (32 - part) & 1) {
      words += (words.empty() ? "ISO/IEC 15444-" : ", 15444-") + std::to_string(part);
    }
  }
  return words;
}

std::string high_throughput_words(uint64_t value) {
  static constexpr std::array<const char*, 4> kUse = {"HTONLY", "reserved", "HTDECLARED", "MIXED"};
  const uint64_t p = value & 31;
  const uint64_t magnitude = p == 0 ? 8 : p < 20 ? p + 8 : p < 31 ? 4 * (p - 19) + 27 : 74;
  return std::string(kUse[value >> 14 & 3]) + (value >> 13 & 1 ? ", MULTIHT" : ", SINGLEHT") +
         (value >> 12 & 1 ? ", RGN" : ", RGNFREE") +
         (value >> 11 & 1 ? ", HETEROGENEOUS" : ", HOMOGENEOUS") +
         (value >> 5 & 1 ? ", HTIRV" : ", HTREV") + ", magnitude bound " +
         std::to_string(magnitude);
}

void append_utf8(std::string& text, uint32_t code) {
  if (code < 0x80) {
    text += static_cast<char>(code);
  } else if (code < 0x800) {
    text += static_cast<char>(0xC0 | code >> 6);
    text += static_cast<char>(0x80 | (code & 0x3F));
  } else {
    text += static_cast<char>(0xE0 | code >> 12);
    text += static_cast<char>(0x80 | (code >> 6 & 0x3F));
    text += static_cast<char>(0x80 | (code & 0x3F));
  }
}

// The eight places where ISO/IEC 8859-15 differs from Unicode's first 256.
uint32_t latin9_to_unicode(uint8_t byte) {
  switch (byte) {
    case 0xA4:
      return 0x20AC;
    case 0xA6:
      return 0x160;
    case 0xA8:
      return 0x161;
    case 0xB4:
      return 0x17D;
    case 0xB8:
      return 0x17E;
    case 0xBC:
      return 0x152;
    case 0xBD:
      return 0x153;
    case 0xBE:
      return 0x178;
    default:
      return byte;
  }
}

// Control characters, which could command a terminal, become U+FFFD; a closing NUL is no text.
std::string comment_text(const std::string& bytes) {
  constexpr uint32_t kReplacement = 0xFFFD;
  const size_t length = bytes.empty() || bytes.back() != '\0' ? bytes.size() : bytes.size() - 1;
  std::string text;
  for (size_t i = 0; i < length; ++i) {
    const auto byte = static_cast<uint8_t>(bytes[i]);
    const bool is_control =
        (byte < 0x20 && byte != '\t' && byte != '\n') || (byte >= 0x7F && byte < 0xA0);
    append_utf8(text, is_control ? kReplacement : latin9_to_unicode(byte));
  }
  return text;
}

std::string hexadecimal(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    text += kDigits[static_cast<uint8_t>(c) >> 4];
    text += kDigits[static_cast<uint8_t>(c) & 15];
  }
  return text;
}

// ---- What several segments have in common

// Notes a segment that a header may have once for each value of what was just read.
void note_once(SegmentReader& in, Knowledge& known, uint32_t key, ProblemKind kind,
               int64_t index = kNone) {
  if (in.is_short() || in.is_ignored()) return;
  const bool is_new = known.scope->seen.insert(uint64_t{in.marker()} << 32 | key).second;
  in.require(is_new, kind, 0, index);
  if (!is_new) in.ignore();
}

uint32_t series_number(SegmentReader& in, Knowledge& known, const char* name) {
  const uint32_t number = in.number(name, 1);
  note_once(in, known, number, ProblemKind::kDuplicateIndex);
  return number;
}

size_t component_width(const Knowledge& known) { return known.components() < 257 ? 1 : 2; }

uint32_t component_number(SegmentReader& in, Knowledge& known, const char* name) {
  const uint32_t component = in.number(name, component_width(known));
  if (known.components() > 0 && component >= known.components()) {
    in.problem(ProblemKind::kComponentIndex, known.components() - 1, component);
    in.ignore();
  }
  note_once(in, known, component, ProblemKind::kDuplicate, component);
  return component;
}

// SPcod and SPcoc.
CodingStyle read_style(SegmentReader& in, Knowledge& known, bool has_precincts,
                       const std::array<const char*, 6>& names) {
  constexpr uint32_t kMaxBlock = 8;      // 2^10 samples in one direction
  constexpr uint32_t kMaxBlockArea = 8;  // 2^12 samples
  constexpr uint32_t kHt = 0x40;
  constexpr uint32_t kMixed = 0x80;
  const bool is_extended = known.is_extended();
  CodingStyle style;
  style.levels = in.number(names[0], 1);
  if (!is_extended) in.require_at_most(kMaxLevels, ProblemKind::kLevels);
  const uint32_t x = in.number(names[1], 1, block_size_words);
  in.require_at_most(kMaxBlock, ProblemKind::kCodeBlockSize);
  const uint32_t y = in.number(names[2], 1, block_size_words);
  in.require(y <= kMaxBlock && (x > kMaxBlock || x + y <= kMaxBlockArea),
             ProblemKind::kCodeBlockSize, kMaxBlockArea - std::min(x, kMaxBlockArea));
  style.block_width = 4U << (x & 15);
  style.block_height = 4U << (y & 15);
  style.block_style = in.number(names[3], 1, block_style_words);
  if (!is_extended) {
    in.require((style.block_style & (kHt | kMixed)) != kMixed, ProblemKind::kCodeBlockStyle,
               style.block_style & ~kMixed);
  }
  if (style.block_style & kHt) {
    known.has_ht_blocks = known.summary.is_high_throughput = true;
  }
  style.transformation = in.number(names[4], 1, transformation_words);
  if (!is_extended) in.require_at_most(1, ProblemKind::kTransformation);
  if (!has_precincts) return style;
  for (uint32_t resolution = 0; resolution <= std::min(style.levels, kMaxLevels); ++resolution) {
    const uint32_t size = in.element(names[5], 1, precinct_words);
    in.require(resolution == 0 || ((size & 15) != 0 && size >> 4 != 0), ProblemKind::kPrecinctSize,
               0x11);
  }
  return style;
}

// Sqcd and SPqcd, Sqcc and SPqcc.
Quantizer read_quantizer(SegmentReader& in, Knowledge& known, const char* style_name,
                         const char* step_name) {
  constexpr uint32_t kDerived = 1;
  constexpr uint32_t kMaxSteps = 3 * kMaxLevels + 1;
  const uint32_t value = in.number(style_name, 1, quantization_words);
  const uint32_t style = value & 31;
  Quantizer quantizer{std::numeric_limits<uint32_t>::max(), in.offset(), in.marker()};
  if (!known.is_extended()) in.require(style <= 2, ProblemKind::kQuantization, 2);
  if (style > 2) {
    in.rest();
    return quantizer;
  }
  if (in.marker() == kQcd && !in.is_ignored() && known.scope == &known.main) {
    known.summary.has_quantization = !in.is_short();
    known.summary.quantization = style;
    known.summary.guard_bits = value >> 5;
  }
  const size_t width = style == 0 ? 1 : 2;
  uint32_t steps = 0;
  do {
    in.element(step_name, width, width == 1 ? exponent_words : step_words);
    ++steps;
  } while (style != kDerived && steps < kMaxSteps && in.left() >= width);
  if (style != kDerived) quantizer.steps = steps;
  return quantizer;
}

// ---- Fixed information

Axis read_axis_end(SegmentReader& in, const char* name) {
  Axis axis;
  axis.end = in.number(name, 4);
  in.require(axis.end > 0, ProblemKind::kImageArea, 1);
  return axis;
}

void read_axis_begin(SegmentReader& in, Axis& axis, const char* name) {
  axis.begin = in.number(name, 4);
  if (axis.end > 0) in.require_at_most(axis.end - 1, ProblemKind::kImageArea);
}

void read_tile_size(SegmentReader& in, Axis& axis, const char* name) {
  axis.tile_size = in.number(name, 4);
  in.require(axis.tile_size > 0, ProblemKind::kTileSize, 1);
}

void read_tile_begin(SegmentReader& in, Axis& axis, const char* name) {
  axis.tile_begin = in.number(name, 4);
  in.require_at_most(axis.begin, ProblemKind::kTileOffset);
  if (axis.tile_size == 0 || axis.tile_begin > axis.begin) return;
  in.require(uint64_t{axis.tile_begin} + axis.tile_size > axis.begin, ProblemKind::kTileOffset,
             uint64_t{axis.begin} - axis.tile_size + 1);
}

void read_siz(SegmentReader& in, Knowledge& known) {
  Image image;
  image.capabilities = static_cast<uint16_t>(in.number("Rsiz", 2, profile_words));
  in.require(profile_name(image.capabilities) != "reserved", ProblemKind::kProfile, 0);
  image.x = read_axis_end(in, "Xsiz");
  image.y = read_axis_end(in, "Ysiz");
  read_axis_begin(in, image.x, "XOsiz");
  read_axis_begin(in, image.y, "YOsiz");
  read_tile_size(in, image.x, "XTsiz");
  read_tile_size(in, image.y, "YTsiz");
  read_tile_begin(in, image.x, "XTOsiz");
  read_tile_begin(in, image.y, "YTOsiz");
  if (image.tiles() > kMaxTiles) {
    in.problem(ProblemKind::kTooManyTiles, kMaxTiles, image.tiles());
  }
  const uint32_t count = in.number("Csiz", 2);
  in.require(count > 0 && count <= kMaxComponents, ProblemKind::kComponentCount,
             std::clamp(count, 1U, kMaxComponents));
  for (uint32_t i = 0; i < count; ++i) {
    Component component;
    const uint32_t depth = in.element("Ssiz", 1, depth_words);
    component.depth = (depth & 0x7F) + 1;
    component.is_signed = (depth & 0x80) != 0;
    if (component.depth > kMaxDepth) {
      in.problem(ProblemKind::kDepth, kMaxDepth, component.depth, i);
    }
    component.dx = in.element("XRsiz", 1);
    in.require(component.dx > 0, ProblemKind::kSubsampling, 1, i);
    component.dy = in.element("YRsiz", 1);
    in.require(component.dy > 0, ProblemKind::kSubsampling, 1, i);
    if (!in.is_short()) image.components.push_back(component);
  }
  if (in.is_ignored()) return;
  known.summary.has_image = !in.is_short();
  known.summary.image = std::move(image);
}

void read_cap(SegmentReader& in, Knowledge& known) {
  constexpr unsigned kExtensions = 2;
  constexpr unsigned kHighThroughput = 15;
  constexpr uint32_t kReservedBits = 0x07C0;
  const uint32_t parts = in.number("Pcap", 4, capability_words);
  for (unsigned part = 1; part <= 32; ++part) {
    if (!(parts >> (32 - part) & 1)) continue;
    if (part == kExtensions && !in.is_ignored()) known.has_part_2_cap = true;
    if (part != kHighThroughput) {
      in.element("Ccap", 2);
      continue;
    }
    const uint32_t bits = in.element("Ccap", 2, high_throughput_words);
    in.require((bits & kReservedBits) == 0 && bits >> 14 != 1, ProblemKind::kHtCapability,
               bits & ~kReservedBits);
    if (!in.is_ignored()) known.has_ht_cap = known.summary.is_high_throughput = true;
  }
  if (!in.is_ignored()) known.has_cap = true;
}

void read_prf(SegmentReader& in, Knowledge&) {
  do {
    in.element("Pprf", 2);
  } while (in.left() >= 2);
}

void read_cpf(SegmentReader& in, Knowledge&) {
  do {
    in.element("Pcpf", 2);
  } while (in.left() >= 2);
}

// ---- Functional segments

bool same_size(const Component& a, const Component& b) {
  return a.depth == b.depth && a.dx == b.dx && a.dy == b.dy;
}

void check_colour_transform(SegmentReader& in, const Knowledge& known) {
  const std::vector<Component>& components = known.summary.image.components;
  if (!known.summary.has_image) return;
  if (components.size() < 3) {
    in.problem(ProblemKind::kTransformComponents, 3, components.size());
    return;
  }
  for (size_t i = 1; i < 3; ++i) {
    if (same_size(components[0], components[i])) continue;
    in.problem(ProblemKind::kTransformComponents, 3, i, static_cast<int64_t>(i));
    return;
  }
}

void read_cod(SegmentReader& in, Knowledge& known) {
  const uint32_t bits = in.number("Scod", 1, coding_style_words);
  if (!known.is_extended()) in.require_bits(7, ProblemKind::kCodingStyle);
  const uint32_t progression = in.number("SGcod progression", 1, progression_words);
  in.require_at_most(kLastProgression, ProblemKind::kProgression);
  const uint32_t layers = in.number("SGcod layers", 2);
  in.require(layers > 0, ProblemKind::kLayers, 1);
  const uint32_t transform = in.number("SGcod transformation", 1, colour_transform_words);
  if (!known.is_extended()) {
    in.require_at_most(1, ProblemKind::kColourTransform);
    if (transform == 1) check_colour_transform(in, known);
  }
  CodingStyle style =
      read_style(in, known, (bits & 1) != 0,
                 {"SPcod levels", "SPcod code-block width", "SPcod code-block height",
                  "SPcod code-block style", "SPcod transformation", "SPcod precincts"});
  if (in.is_ignored() || in.is_short()) return;
  known.scope->coding = Coding{style.levels, in.offset(), in.marker()};
  if (known.scope != &known.main) return;
  style.style = bits;
  style.progression = progression;
  style.layers = layers;
  style.has_colour_transform = transform != 0;
  known.summary.has_coding = true;
  known.summary.coding = style;
}

void read_coc(SegmentReader& in, Knowledge& known) {
  const uint32_t component = component_number(in, known, "Ccoc");
  const uint32_t bits = in.number("Scoc", 1, coding_style_words);
  if (!known.is_extended()) in.require_bits(1, ProblemKind::kCodingStyle);
  const CodingStyle style =
      read_style(in, known, (bits & 1) != 0,
                 {"SPcoc levels", "SPcoc code-block width", "SPcoc code-block height",
                  "SPcoc code-block style", "SPcoc transformation", "SPcoc precincts"});
  if (in.is_ignored() || in.is_short()) return;
  known.scope->codings[component] = Coding{style.levels, in.offset(), in.marker()};
}

void read_rgn(SegmentReader& in, Knowledge& known) {
  component_number(in, known, "Crgn");
  in.number("Srgn", 1, region_words);
  if (!known.is_extended()) in.require_at_most(0, ProblemKind::kRegionStyle);
  in.number("SPrgn", 1);
}

void read_qcd(SegmentReader& in, Knowledge& known) {
  const Quantizer quantizer = read_quantizer(in, known, "Sqcd", "SPqcd");
  if (!in.is_ignored() && !in.is_short()) known.scope->quantizer = quantizer;
}

void read_qcc(SegmentReader& in, Knowledge& known) {
  const uint32_t component = component_number(in, known, "Cqcc");
  const Quantizer quantizer = read_quantizer(in, known, "Sqcc", "SPqcc");
  if (!in.is_ignored() && !in.is_short()) known.scope->quantizers[component] = quantizer;
}

void read_poc(SegmentReader& in, Knowledge& known) {
  constexpr uint32_t kMostResolutions = kMaxLevels + 1;
  const size_t width = component_width(known);
  const size_t entry_size = 5 + 2 * width;
  int64_t entry = 0;
  do {
    const uint32_t first = in.element("RSpoc", 1);
    in.require_at_most(kMaxLevels, ProblemKind::kPocResolution, entry);
    const uint32_t component = in.element("CSpoc", width);
    in.require_at_most(kMaxComponents - 1, ProblemKind::kPocComponent, entry);
    const uint32_t layers = in.element("LYEpoc", 2);
    in.require(layers > 0, ProblemKind::kPocLayer, 1, entry);
    const uint32_t end = in.element("REpoc", 1);
    in.require(end <= kMostResolutions && (end > first || first > kMaxLevels),
               ProblemKind::kPocResolution, std::min(first + 1, kMostResolutions), entry);
    // 0 stands for all that the field can't tell.
    const uint32_t component_end = in.element("CEpoc", width);
    in.require(component_end == 0 || (component_end > component && component_end <= kMaxComponents),
               ProblemKind::kPocComponent, component + 1, entry);
    in.element("Ppoc", 1, progression_words);
    in.require_at_most(kLastProgression, ProblemKind::kProgression, entry);
    ++entry;
  } while (in.left() >= entry_size);
}

// ---- Pointers

void read_tlm(SegmentReader& in, Knowledge& known) {
  const uint32_t number = series_number(in, known, "Ztlm");
  const uint32_t style = in.number("Stlm", 1);
  const size_t tile_width = style >> 4 & 3;
  const size_t length_width = style & 0x40 ? 4 : 2;
  in.require_bits(0x70, ProblemKind::kTlmStyle);
  in.require(tile_width < 3, ProblemKind::kTlmStyle, style & 0x40);
  std::vector<TlmEntry> entries;
  if (tile_width == 3) {
    in.rest();
    in.ignore();
  }
  while (in.left() >= tile_width + length_width) {
    TlmEntry entry;
    if (tile_width > 0) entry.tile = in.element("Ttlm", tile_width);
    entry.length = in.element("Ptlm", length_width);
    entries.push_back(entry);
  }
  if (!in.is_ignored() && !in.is_short()) known.tlm[number] = std::move(entries);
}

void read_plm(SegmentReader& in, Knowledge& known) {
  series_number(in, known, "Zplm");
  in.rest();
}

void read_plt(SegmentReader& in, Knowledge& known) {
  constexpr uint64_t kMost = std::numeric_limits<uint64_t>::max() >> 16;
  series_number(in, known, "Zplt");
  // Seven bits a byte, the highest first; the top bit says that more follow.
  const std::string bytes = in.rest();
  uint64_t length = 0;
  bool goes_on = false;
  for (const char c : bytes) {
    const auto byte = static_cast<uint8_t>(c);
    length = std::min(kMost, length << 7 | (byte & 0x7F));
    goes_on = (byte & 0x80) != 0;
    if (goes_on) continue;
    in.add_element("Iplt", length);
    uint64_t& sum = known.scope->packet_bytes;
    if (!in.is_ignored()) sum = std::min(kMost, sum + length);
    length = 0;
  }
  in.require(!goes_on, ProblemKind::kPacketLengthCut, 0);
}

void read_ppm(SegmentReader& in, Knowledge& known) {
  const uint32_t number = series_number(in, known, "Zppm");
  const std::string headers = in.rest();
  in.add_element("Ippm bytes", headers.size());
  if (!in.is_ignored() && !in.is_short()) known.ppm[number] = headers;
}

void read_ppt(SegmentReader& in, Knowledge& known) {
  series_number(in, known, "Zppt");
  in.require(known.ppm.empty(), ProblemKind::kPpmAndPpt, 0);
  in.add_element("Ippt bytes", in.rest().size());
}

// ---- Information

void read_crg(SegmentReader& in, Knowledge& known) {
  if (!known.summary.has_image) in.rest();
  for (size_t i = 0; i < known.components(); ++i) {
    in.element("Xcrg", 2);
    in.element("Ycrg", 2);
  }
}

void read_com(SegmentReader& in, Knowledge& known) {
  const uint32_t use = in.number("Rcom", 2, comment_words);
  in.require_at_most(1, ProblemKind::kCommentUse);
  if (in.left() == 0) {
    in.number("Ccom", 1);  // at least one byte
    return;
  }
  const std::string bytes = in.rest();
  Comment comment{use == 1, use == 1 ? comment_text(bytes) : hexadecimal(bytes)};
  in.add_text("Ccom", comment.text);
  known.summary.comments.push_back(std::move(comment));
}

// ---- Delimiters

void read_sot(SegmentReader& in, Knowledge& known) {
  TilePart& part = known.tile_part;
  part.tile = in.number("Isot", 2);
  const uint64_t tiles = known.summary.image.tiles();
  if (tiles > 0) in.require_at_most(tiles - 1, ProblemKind::kTileIndex);
  part.length = in.number("Psot", 4, tile_length_words);
  part.part = in.number("TPsot", 1);
  part.parts = in.number("TNsot", 1, part_count_words);
}

// By marker. Columns: marker, name, has a length, where, once, of 15444-2, reader.
constexpr MarkerRow kMarkers[] = {{kSoc, "SOC", false, kNowhere, false, false, nullptr},
                                  {kCap, "CAP", true, kMain, true, false, read_cap},
                                  {kSiz, "SIZ", true, kMain, true, false, read_siz},
                                  {kCod, "COD", true, kMain | kFirstPart, true, false, read_cod},
                                  {kCoc, "COC", true, kMain | kFirstPart, false, false, read_coc},
                                  {0xFF54, "NSI", true, kMain, true, false, nullptr},
                                  {kTlm, "TLM", true, kMain, false, false, read_tlm},
                                  {0xFF56, "PRF", true, kMain, true, false, read_prf},
                                  {kPlm, "PLM", true, kMain, false, false, read_plm},
                                  {kPlt, "PLT", true, kAnyPart, false, false, read_plt},
                                  {0xFF59, "CPF", true, kMain, true, false, read_cpf},
                                  {kQcd, "QCD", true, kMain | kFirstPart, true, false, read_qcd},
                                  {kQcc, "QCC", true, kMain | kFirstPart, false, false, read_qcc},
                                  {kRgn, "RGN", true, kMain | kFirstPart, false, false, read_rgn},
                                  {0xFF5F, "POC", true, kAnyHeader, true, false, read_poc},
                                  {kPpm, "PPM", true, kMain, false, false, read_ppm},
                                  {kPpt, "PPT", true, kAnyPart, false, false, read_ppt},
                                  {0xFF63, "CRG", true, kMain, true, false, read_crg},
                                  {0xFF64, "COM", true, kAnyHeader, false, false, read_com},
                                  {0xFF65, "SEC", true, kAnyHeader, false, false, nullptr},
                                  {0xFF66, "EPB", true, kAnyHeader, false, false, nullptr},
                                  {0xFF67, "ESD", true, kAnyHeader, false, false, nullptr},
                                  {0xFF68, "EPC", true, kMain, false, false, nullptr},
                                  {0xFF69, "RED", true, kAnyHeader, false, false, nullptr},
                                  {0xFF70, "DCO", true, kMain | kFirstPart, false, true, nullptr},
                                  {0xFF71, "VMS", true, kMain | kFirstPart, false, true, nullptr},
                                  {0xFF72, "DFS", true, kMain, false, true, nullptr},
                                  {0xFF73, "ADS", true, kMain | kFirstPart, false, true, nullptr},
                                  {0xFF74, "MCT", true, kMain | kFirstPart, false, true, nullptr},
                                  {0xFF75, "MCC", true, kMain | kFirstPart, false, true, nullptr},
                                  {0xFF76, "NLT", true, kMain | kFirstPart, false, true, nullptr},
                                  {0xFF77, "MCO", true, kMain | kFirstPart, false, true, nullptr},
                                  {0xFF78, "CBD", true, kMain, false, true, nullptr},
                                  {0xFF79, "ATK", true, kMain | kFirstPart, false, true, nullptr},
                                  {kSot, "SOT", true, kNowhere, false, false, read_sot},
                                  {0xFF91, "SOP", true, kNowhere, false, false, nullptr},
                                  {0xFF92, "EPH", false, kNowhere, false, false, nullptr},
                                  {kSod, "SOD", false, kNowhere, false, false, nullptr},
                                  {0xFF94, "INSEC", true, kNowhere, false, false, nullptr},
                                  {kEoc, "EOC", false, kNowhere, false, false, nullptr}};

}  // namespace

const MarkerRow* find_marker(uint16_t marker) {
  const auto row = std::lower_bound(
      std::begin(kMarkers), std::end(kMarkers), marker,
      [](const MarkerRow& candidate, uint16_t wanted) { return candidate.marker < wanted; });
  return row != std::end(kMarkers) && row->marker == marker ? row : nullptr;
}

const char* marker_name(uint16_t marker) {
  const MarkerRow* row = find_marker(marker);
  return row ? row->name : "";
}

uint32_t Axis::tiles() const {
  if (begin >= end || tile_size == 0 || tile_begin > begin ||
      uint64_t{tile_begin} + tile_size <= begin) {
    return 0;
  }
  return (end - 1 - tile_begin) / tile_size + 1;
}

// ---- SegmentReader

uint32_t SegmentReader::take(size_t width) {
  value_offset_ =
      segment_.offset + (segment_.has_length ? 4U : 2U) + static_cast<size_t>(position_ - begin_);
  value_ = 0;
  if (is_short() || left() < width) {
    missing_ += width - (is_short() ? 0 : left());
    position_ = end_;
    return 0;
  }
  for (const uint8_t* last = position_ + width; position_ != last; ++position_) {
    value_ = value_ << 8 | *position_;
  }
  return static_cast<uint32_t>(value_);
}

uint32_t SegmentReader::number(const char* name, size_t width, Words words) {
  const uint32_t value = take(width);
  if (is_short() || !wants_fields_) return value;
  Field& result = field(name, Field::Kind::kNumber);
  result.values.push_back(value);
  if (words) result.words.push_back(words(value));
  return value;
}

uint32_t SegmentReader::element(const char* name, size_t width, Words words) {
  const uint32_t value = take(width);
  if (!is_short()) add_element(name, value, words);
  return value;
}

void SegmentReader::add_element(const char* name, uint64_t value, Words words) {
  if (!wants_fields_) return;
  Field& list = field(name, Field::Kind::kList);
  list.values.push_back(value);
  if (!words && list.words.empty()) return;
  list.words.resize(list.values.size());
  if (words) list.words.back() = words(value);
}

void SegmentReader::add_text(const char* name, const std::string& text) {
  if (wants_fields_) field(name, Field::Kind::kText).text = text;
}

std::string SegmentReader::rest() {
  std::string result(position_, end_);
  value_offset_ = segment_.offset + 4 + static_cast<size_t>(position_ - begin_);
  position_ = end_;
  return result;
}

Field& SegmentReader::field(const char* name, Field::Kind kind) {
  std::vector<Field>& fields = segment_.fields;
  const auto is_it = [name](const Field& candidate) {
    return std::string_view(candidate.name) == name;
  };
  const auto found = std::find_if(fields.begin(), fields.end(), is_it);
  if (found != fields.end()) return *found;
  fields.emplace_back();
  fields.back().name = name;
  fields.back().kind = kind;
  return fields.back();
}

void SegmentReader::problem(ProblemKind kind, uint64_t expected, uint64_t found, int64_t index) {
  if (!is_short()) report(kind, value_offset_, expected, found, index);
}

void SegmentReader::finish() {
  if (is_short()) {
    report(ProblemKind::kLengthTooShort, segment_.offset + 2, fitting_length(), segment_.length,
           kNone);
  } else if (left() > 0) {
    report(ProblemKind::kLengthTooLong, segment_.offset + 2, fitting_length(), segment_.length,
           kNone);
  }
}

void SegmentReader::report(ProblemKind kind, uint64_t offset, uint64_t expected, uint64_t found,
                           int64_t index) {
  observer_.problem({kind, offset, segment_.marker, expected, found, index});
}

}  // namespace kvjpx_codestream
