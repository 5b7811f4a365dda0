// Reads the headers of a codestream. OpenJPEG allocates for tiles, precincts, code-blocks and
// packets as a header asks, whatever the codestream's length; so the headers are weighed here
// before.
#include "codestream_header.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "failure.h"

namespace kvj2k {
namespace {

constexpr uint32_t kMaxLevels = 32;
constexpr uint32_t kMaxComponents = 16384;
constexpr uint32_t kMaxTiles = 65535;
constexpr uint32_t kMaxPrecision = 31;  // OpenJPEG's samples are 32-bit signed integers
constexpr size_t kSotSize = 12;
constexpr size_t kSmallestTilePart = kSotSize + 2;  // SOT segment and SOD marker

// What OpenJPEG spends on its records, in the unit of work_limits.h.
constexpr Cost kCostOfTile = 4096;
constexpr Cost kCostOfTileComponent = 768;
constexpr Cost kCostOfBlock = 256;  // also of a precinct
constexpr Cost kCostOfPacket = 16;
constexpr Cost kCostOfPosition = 1;

enum Marker : uint32_t {
  kSoc = 0xFF4F,
  kCap = 0xFF50,
  kSiz = 0xFF51,
  kCod = 0xFF52,
  kCoc = 0xFF53,
  kTlm = 0xFF55,
  kPlm = 0xFF57,
  kPlt = 0xFF58,
  kCpf = 0xFF59,
  kQcd = 0xFF5C,
  kQcc = 0xFF5D,
  kRgn = 0xFF5E,
  kPoc = 0xFF5F,
  kPpm = 0xFF60,
  kPpt = 0xFF61,
  kCrg = 0xFF63,
  kCom = 0xFF64,
  kMct = 0xFF74,
  kMcc = 0xFF75,
  kMco = 0xFF77,
  kCbd = 0xFF78,
  kSot = 0xFF90,
  kSod = 0xFF93,
  kEoc = 0xFFD9
};

[[noreturn]] void fail(const std::string& text) {
  throw Failure(KV_J2K_ERR_BROKEN_CODESTREAM, text);
}

// Reads big-endian numbers; fails at the end of its bytes.
class Cursor {
 public:
  Cursor(const uint8_t* data, size_t length) : position_(data), end_(data + length) {}

  size_t left() const { return static_cast<size_t>(end_ - position_); }
  const uint8_t* position() const { return position_; }

  uint32_t number(size_t bytes) {
    uint32_t value = 0;
    for (const uint8_t* last = take(bytes) + bytes; position_ != last; ++position_) {
      value = value << 8 | *position_;
    }
    return value;
  }

  // The payload of the marker segment that begins here, behind its marker.
  Cursor segment() {
    const uint32_t length = number(2);
    if (length < 2) fail("a marker segment is shorter than its length field");
    const uint8_t* payload = take(length - 2);
    position_ += length - 2;
    return Cursor(payload, length - 2);
  }

  void skip(size_t bytes) { position_ = take(bytes) + bytes; }

 private:
  const uint8_t* take(size_t bytes) const {
    if (left() < bytes) fail("the codestream ends inside a header");
    return position_;
  }

  const uint8_t* position_;
  const uint8_t* end_;
};

// The most expensive coding style that the COD and COC segments of a codestream can add up to.
// Which tile or component a segment belongs to is left aside: a bound is wanted, not the exact
// cost.
class CodingBounds {
 public:
  void note_cod(Cursor segment) {
    const uint32_t style = segment.number(1);
    segment.skip(1);  // progression order
    layers_ = std::max(layers_, segment.number(2));
    has_component_transform_ = has_component_transform_ || segment.number(1) != 0;
    note_style(style, segment);
    has_default_ = true;
  }

  void note_coc(Cursor segment, size_t components) {
    segment.skip(components < 257 ? 1 : 2);
    const uint32_t style = segment.number(1);
    note_style(style, segment);
  }

  void note_poc(const Cursor& segment, size_t components) {
    const size_t entry_size = components < 257 ? 7 : 9;
    progressions_ = std::max(progressions_, segment.left() / entry_size);
  }

  // Arrays of coefficients that mix components (ISO/IEC 15444-2, Annex J).
  void note_array_transform() { has_component_transform_ = true; }

  bool has_default() const { return has_default_; }
  bool has_component_transform() const { return has_component_transform_; }
  uint32_t fewest_levels() const { return fewest_levels_; }
  uint32_t most_layers() const { return layers_; }

  Cost tile_cost(const CodestreamHeader& header) const {
    Cost blocks = 0;
    Cost most_precincts = 0;
    Cost positions = 0;
    for (const ComponentHeader& component : header.components) {
      const Cost width = largest_tile(header.x, component.dx);
      const Cost height = largest_tile(header.y, component.dy);
      for (uint32_t depth = 0; depth <= most_levels_; ++depth) {
        const Precinct& precinct = smallest_[depth];
        const Cost precincts = cells(width, height, depth, precinct.x, precinct.y);
        blocks += precincts + cells(width, height, depth, block_exponent(block_x_, precinct.x),
                                    block_exponent(block_y_, precinct.y));
        most_precincts = std::max(most_precincts, precincts);
      }
      positions = std::max(positions, position_count(width, height));
    }
    const Cost passes = static_cast<Cost>(header.components.size()) * (most_levels_ + 1);
    return blocks * kCostOfBlock + most_precincts * passes * layers_ * kCostOfPacket +
           positions * passes * static_cast<Cost>(progressions_) * kCostOfPosition;
  }

 private:
  struct Precinct {
    uint32_t x = 15;
    uint32_t y = 15;
  };

  void note_style(uint32_t style, Cursor& segment) {
    const uint32_t levels = segment.number(1);
    if (levels > kMaxLevels) fail("there are more than 32 decomposition levels");
    most_levels_ = std::max(most_levels_, levels);
    fewest_levels_ = std::min(fewest_levels_, levels);
    block_x_ = std::min(block_x_, (segment.number(1) & 15) + 2);
    block_y_ = std::min(block_y_, (segment.number(1) & 15) + 2);
    segment.skip(2);  // code-block style, transformation
    if (!(style & 1)) return;
    for (uint32_t depth = levels + 1; depth-- > 0;) {
      const uint32_t exponents = segment.number(1);
      smallest_[depth].x = std::min(smallest_[depth].x, exponents & 15);
      smallest_[depth].y = std::min(smallest_[depth].y, exponents >> 4);
    }
  }

  static Cost largest_tile(const GridAxis& axis, uint32_t spacing) {
    return std::floor(std::min<Cost>(axis.tile_size, axis.end - axis.begin) / spacing) + 1;
  }

  // Cells of 2^x by 2^y that a tile-component has after `depth` halvings.
  static Cost cells(Cost width, Cost height, uint32_t depth, uint32_t x, uint32_t y) {
    return (std::floor(std::ldexp(width, -static_cast<int>(depth + x))) + 1) *
           (std::floor(std::ldexp(height, -static_cast<int>(depth + y))) + 1);
  }

  // A code-block does not cross a precinct's edge, and a sub-band has half its precinct's size.
  static uint32_t block_exponent(uint32_t block, uint32_t precinct) {
    return std::min(block, precinct > 0 ? precinct - 1 : 0);
  }

  // The position-driven progressions step through a tile by its narrowest and its lowest precinct.
  Cost position_count(Cost width, Cost height) const {
    uint32_t x = 31;
    uint32_t y = 31;
    for (uint32_t depth = 0; depth <= most_levels_; ++depth) {
      x = std::min(x, smallest_[depth].x + depth);
      y = std::min(y, smallest_[depth].y + depth);
    }
    return cells(width, height, 0, x, y);
  }

  bool has_default_ = false;
  bool has_component_transform_ = false;
  uint32_t layers_ = 1;
  size_t progressions_ = 1;
  uint32_t most_levels_ = 0;
  uint32_t fewest_levels_ = kMaxLevels;
  uint32_t block_x_ = 10;
  uint32_t block_y_ = 10;
  Precinct smallest_[kMaxLevels + 1];  // by the number of halvings, 0 the full resolution
};

void read_component(Cursor& siz, CodestreamHeader& header) {
  ComponentHeader component;
  const uint32_t depth = siz.number(1);
  component.is_signed = (depth & 0x80) != 0;
  component.precision = (depth & 0x7F) + 1;
  component.dx = siz.number(1);
  component.dy = siz.number(1);
  if (component.dx == 0 || component.dy == 0) fail("a component has no sample spacing");
  if (component.precision > kMaxPrecision) fail("a component has more than 31 bits");
  const auto has_samples = [](const GridAxis& axis, uint32_t spacing) {
    return (axis.end - 1) / spacing * spacing >= axis.begin;
  };
  if (!has_samples(header.x, component.dx) || !has_samples(header.y, component.dy)) {
    fail("a component has no samples");
  }
  header.components.push_back(component);
}

void check_axis(const GridAxis& axis) {
  if (axis.begin >= axis.end) fail("the image area is empty");
  if (axis.end > static_cast<uint32_t>(std::numeric_limits<int32_t>::max())) {
    fail("the reference grid is larger than 2^31 - 1");
  }
  if (axis.tile_size == 0 || axis.tile_begin > axis.begin ||
      uint64_t{axis.tile_begin} + axis.tile_size <= axis.begin) {
    fail("the first tile does not cover the image area's corner");
  }
}

void read_siz(Cursor siz, CodestreamHeader& header) {
  siz.skip(2);  // capabilities
  for (uint32_t GridAxis::*member :
       {&GridAxis::end, &GridAxis::begin, &GridAxis::tile_size, &GridAxis::tile_begin}) {
    header.x.*member = siz.number(4);
    header.y.*member = siz.number(4);
  }
  check_axis(header.x);
  check_axis(header.y);
  const uint32_t components = siz.number(2);
  if (components == 0 || components > kMaxComponents || siz.left() != components * size_t{3}) {
    fail("the number of components is wrong");
  }
  header.components.reserve(components);
  for (uint32_t i = 0; i < components; ++i) read_component(siz, header);
}

bool is_known(uint32_t marker) {
  switch (marker) {
    case kCap:
    case kSiz:
    case kCod:
    case kCoc:
    case kTlm:
    case kPlm:
    case kPlt:
    case kCpf:
    case kQcd:
    case kQcc:
    case kRgn:
    case kPoc:
    case kPpm:
    case kPpt:
    case kCrg:
    case kCom:
    case kMct:
    case kMcc:
    case kMco:
    case kCbd:
    case kSot:
      return true;
    default:
      return false;
  }
}

void note_segment(uint32_t marker, const Cursor& segment, size_t components, CodingBounds& bounds) {
  if (marker == kCod) bounds.note_cod(segment);
  if (marker == kCoc) bounds.note_coc(segment, components);
  if (marker == kPoc) bounds.note_poc(segment, components);
  if (marker == kMct || marker == kMcc) bounds.note_array_transform();
}

// Whether each tile needs the segment. Lengths, comments and the like it does not.
bool is_shared(uint32_t marker) {
  switch (marker) {
    case kSiz:
    case kTlm:
    case kPlm:
    case kPpm:
    case kCrg:
    case kCom:
      return false;
    default:
      return true;
  }
}

void share_segment(CodestreamHeader& header, const uint8_t* begin, const uint8_t* end) {
  std::vector<ByteView>& shared = header.shared_segments;
  const auto length = static_cast<size_t>(end - begin);
  if (!shared.empty() && shared.back().data + shared.back().length == begin) {
    shared.back().length += length;
  } else {
    shared.push_back({begin, length});
  }
}

// Leaves the cursor behind the first SOT marker.
void read_main_header(Cursor& cursor, CodestreamHeader& header, CodingBounds& bounds) {
  if (cursor.left() < 4 || cursor.number(2) != kSoc || cursor.number(2) != kSiz) {
    fail("this is not a JPEG 2000 codestream");
  }
  read_siz(cursor.segment(), header);
  uint32_t marker;
  while ((marker = cursor.number(2)) != kSot) {
    // OpenJPEG does not trust the length of a marker segment it does not know; it looks for the
    // next marker that it knows, two bytes at a time. What it may find must be found here too.
    if (!is_known(marker)) continue;
    const uint8_t* const begin = cursor.position() - 2;
    note_segment(marker, cursor.segment(), header.components.size(), bounds);
    if (is_shared(marker)) share_segment(header, begin, cursor.position());
    header.has_packed_headers = header.has_packed_headers || marker == kPpm;
  }
  if (!bounds.has_default()) fail("the main header has no coding style");
}

// Notes the segments of a tile-part header; leaves the cursor behind its SOD marker, and returns
// whether there is one.
bool read_tile_part_header(Cursor& cursor, size_t components, CodingBounds& bounds) {
  while (cursor.left() >= 2) {
    const uint32_t marker = cursor.number(2);
    if (marker == kSod) return true;
    if (marker < 0xFF00) return false;
    note_segment(marker, cursor.segment(), components, bounds);
  }
  return false;
}

constexpr size_t kNowhere = std::numeric_limits<size_t>::max();

// Collects the tile-parts behind the main header.
class TileParts {
 public:
  TileParts(ByteView codestream, CodestreamHeader& header, CodingBounds& bounds)
      : bytes_(codestream), header_(header), bounds_(bounds) {}

  // From tile-part to tile-part as their lengths tell. Ends quietly where the chain breaks, as
  // OpenJPEG reads no further either.
  void follow(size_t at) {
    header_.is_chain_whole = false;
    do {
      if (left(at) < kSotSize) return;
      const Found found = read_header(at);
      if (found.told == kSotSize) {  // OpenJPEG takes this for a tile-part without even a SOD
        at += found.sot_length;
        continue;
      }
      if (found.header_length == 0) return;
      if (found.told == 0) {
        header_.is_chain_whole = has_end_marker();
        return note(found, data_end() - at, !has_end_marker());
      }
      if (found.told < found.header_length) return;
      if (found.told > left(at)) return note(found, left(at), true);
      note(found, found.told, false);
      at += found.told;
    } while (is_at(at, kSot));
    header_.is_chain_whole = is_end(at);
  }

  // Whatever stands between: a tile-part whose length leads nowhere ends where the next one begins.
  // (No packet holds a number like that of SOT.)
  void recover(size_t at) {
    while (at != kNowhere) {
      Found found = {};
      try {
        found = read_header(at);
      } catch (const Failure&) {
        // Not one to be read; the search goes on behind it.
      }
      at = found.header_length == 0 ? find(at + 2) : recover_part(at, found);
    }
  }

 private:
  struct Found {
    TilePart part;
    size_t told;           // Psot
    size_t sot_length;     // with its marker
    size_t header_length;  // with SOT and SOD; 0: there is no SOD
  };

  size_t left(size_t at) const { return bytes_.length - at; }
  bool is_at(size_t at, uint32_t marker) const {
    return left(at) >= 2 && (uint32_t{bytes_.data[at]} << 8 | bytes_.data[at + 1]) == marker;
  }
  bool has_end_marker() const { return is_at(bytes_.length - 2, kEoc); }
  size_t data_end() const { return bytes_.length - (has_end_marker() ? 2 : 0); }
  // Whether nothing follows that is a tile-part's; the end marker may be missing.
  bool is_end(size_t at) const { return left(at) < 2 || is_at(at, kEoc); }

  Found read_header(size_t at) {
    Found found = {};
    found.part.offset = at;
    Cursor cursor(bytes_.data + at, left(at));
    cursor.skip(2);
    Cursor sot = cursor.segment();
    found.sot_length = left(at) - cursor.left();
    found.part.tile = static_cast<uint16_t>(sot.number(2));
    found.told = sot.number(4);
    if (found.told == kSotSize) return found;
    if (sot.left() >= 2) {
      found.part.index = static_cast<uint8_t>(sot.number(1));
      found.part.count = static_cast<uint8_t>(sot.number(1));
    }
    if (read_tile_part_header(cursor, header_.components.size(), bounds_)) {
      found.header_length = left(at) - cursor.left();
    }
    return found;
  }

  // Returns where the next one begins.
  size_t recover_part(size_t at, const Found& found) {
    const size_t told = found.told;
    const bool fits = told >= found.header_length && told <= left(at);
    if (fits && is_at(at + told, kSot)) {
      note(found, told, false);
      return at + told;
    }
    if (fits && is_end(at + told)) {
      note(found, told, false);
      return kNowhere;
    }
    const size_t next = find(at + found.header_length);
    const size_t end = next != kNowhere ? next : data_end();
    if (fits && at + told <= end) {
      note(found, told, false);
    } else {
      const bool is_last = told == 0 && next == kNowhere && has_end_marker();
      note(found, end - at, !is_last);
    }
    return next;
  }

  // The next place from `at` on that looks like a tile-part's begin.
  size_t find(size_t at) const {
    while (at < bytes_.length) {
      const void* const found = std::memchr(bytes_.data + at, 0xFF, left(at));
      if (found == nullptr) return kNowhere;
      at = static_cast<size_t>(static_cast<const uint8_t*>(found) - bytes_.data);
      if (left(at) < kSmallestTilePart) return kNowhere;
      Cursor cursor(bytes_.data + at, left(at));
      if (cursor.number(2) == kSot && cursor.number(2) == kSotSize - 2 &&
          cursor.number(2) < header_.tile_count()) {
        return at;
      }
      ++at;
    }
    return kNowhere;
  }

  void note(const Found& found, size_t length, bool is_cut) {
    constexpr size_t kMost = std::numeric_limits<uint32_t>::max();
    if (found.part.tile >= header_.tile_count() || found.sot_length != kSotSize) return;
    header_.parts.push_back(found.part);
    TilePart& part = header_.parts.back();
    part.is_cut = is_cut || length > kMost;
    part.length = static_cast<uint32_t>(std::min(length, kMost));
  }

  ByteView bytes_;
  CodestreamHeader& header_;
  CodingBounds& bounds_;
};

void check_tile_count(const CodestreamHeader& header, size_t length) {
  const uint64_t tiles = uint64_t{header.x.tile_count()} * header.y.tile_count();
  if (tiles > kMaxTiles) fail("there are more than 65535 tiles");
  if (tiles > length / kSmallestTilePart) fail("there are more tiles than the length has room for");
}

void weigh(CodestreamHeader& header, const CodingBounds& bounds) {
  const Cost tile =
      kCostOfTile + kCostOfTileComponent * static_cast<Cost>(header.components.size());
  header.tile_cost = bounds.tile_cost(header);
  header.base_cost = header.tile_count() * tile;
  header.opening_cost = tile;
  for (const ByteView& segments : header.shared_segments) {
    header.opening_cost += static_cast<Cost>(segments.length);
  }
}

}  // namespace

CodestreamHeader read_codestream_header(ByteView codestream, Chain chain) {
  CodestreamHeader header;
  CodingBounds bounds;
  Cursor cursor(codestream.data, codestream.length);
  read_main_header(cursor, header, bounds);
  check_tile_count(header, codestream.length);

  TileParts parts(codestream, header, bounds);
  const size_t first = codestream.length - cursor.left() - 2;
  if (chain == Chain::kRecovered) {
    parts.recover(first);
  } else {
    try {
      parts.follow(first);
    } catch (const Failure& failure) {
      header.chain_failure = failure.what();
    }
  }
  std::stable_sort(header.parts.begin(), header.parts.end(),
                   [](const TilePart& a, const TilePart& b) { return a.tile < b.tile; });
  header.fewest_levels = bounds.fewest_levels();
  header.most_layers = bounds.most_layers();
  header.has_component_transform = bounds.has_component_transform();
  weigh(header, bounds);
  return header;
}

}  // namespace kvj2k
