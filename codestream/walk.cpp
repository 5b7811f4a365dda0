// Goes from header to header.
#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "codestream.h"
#include "markers.h"
#include "step_check.h"

namespace kvjpx_codestream {
namespace {

constexpr uint64_t kMarkerSize = 2;
constexpr uint64_t kSmallestTilePart = 14;             // SOT segment and SOD
constexpr uint16_t kAnnouncesCap = 0x4000;             // in Rsiz
constexpr uint32_t kHighThroughput = 1U << (32 - 15);  // in Pcap

// How many bytes of packet data a walk looks through, at most, where the chain of headers is
// broken.
constexpr uint64_t kSearchBudget = 1 << 20;

bool is_lonely(uint16_t marker) { return marker >= 0xFF30 && marker <= 0xFF3F; }
bool is_marker(uint16_t marker) { return marker > 0xFF00 && marker < 0xFFFF; }
bool is_boundary(uint16_t marker) { return marker == kSot || marker == kEoc; }

uint32_t number_at(const std::string& bytes, size_t at) {
  uint32_t value = 0;
  for (size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<uint8_t>(bytes[at + i]);
  return value;
}

struct TileState {
  uint32_t next_part = 0;
  uint32_t parts = 0;  // TNsot, 0 until one tells it
};

class Walk {
 public:
  Walk(Source& source, Observer& observer)
      : source_(source), observer_(observer), size_(source.size()) {}

  Summary run();

 private:
  // Bytes. Behind the end, and where the source fails, markers are 0.
  uint16_t marker_at(uint64_t offset);
  bool load(uint64_t offset, size_t length);
  uint64_t left() const { return size_ - position_; }

  void report(ProblemKind kind, uint64_t offset, uint16_t marker, uint64_t expected, uint64_t found,
              int64_t index = kNone) {
    observer_.problem({kind, offset, marker, expected, found, index});
  }
  // Hands on a marker without a length and goes behind it.
  void take_marker(uint16_t marker);
  Segment segment_at(uint64_t offset, uint16_t marker) const;

  bool begin();
  void read_main_header();
  void end_main_header();
  void flatten_tlm();
  void count_ppm();
  void check_series(uint16_t marker);
  void check_capabilities(uint64_t offset);

  bool read_header(bool is_main, uint64_t limit);
  bool read_segment(uint16_t marker, unsigned place, uint64_t limit);
  void check_place(SegmentReader& reader, const MarkerRow& row, unsigned place);
  bool is_known_at(uint64_t offset);

  void read_tile_part();
  void note_tile_part(uint64_t offset);
  void end_tile_part(uint64_t offset, bool is_whole);
  uint64_t end_of_open_tile_part();
  bool is_without_sop(uint64_t told, uint64_t there) const;
  void check_packet_lengths(uint64_t data, uint64_t end);
  void compare_with_tlm(uint64_t offset, uint64_t length);
  // The next SOT segment or EOC; size_ if there is none within the budget.
  uint64_t search(uint64_t from);
  // Goes there.
  void resume(uint64_t from);
  bool ends_with_eoc() { return size_ >= kMarkerSize && marker_at(size_ - kMarkerSize) == kEoc; }

  void read_end();
  void check_coverage();

  Source& source_;
  Observer& observer_;
  uint64_t size_;
  uint64_t position_ = 0;
  uint64_t search_budget_ = kSearchBudget;
  std::vector<uint8_t> buffer_;
  Knowledge known_;
  std::optional<StepCheck> step_check_;
  std::map<uint32_t, TileState> tiles_;
  std::vector<TlmEntry> tlm_;
  uint64_t ppm_parts_ = 0;
  bool is_ppm_whole_ = true;
  bool has_told_cap_ = false;
  int64_t tile_part_ = kNone;
  // Whether the last segment's length did not fit its fields; that no marker follows then is no
  // news.
  bool is_length_bad_ = false;
  bool is_cut_ = false;   // the end of the codestream came too early, and was told
  bool is_lost_ = false;  // headers may have been missed
  bool is_unreadable_ = false;
};

// ---- Bytes

bool Walk::load(uint64_t offset, size_t length) {
  if (is_unreadable_) return false;
  buffer_.resize(length);
  if (length == 0 || source_.read(offset, length, buffer_.data())) return true;
  report(ProblemKind::kUnreadable, offset, 0, length, 0);
  // As if the codestream ended here.
  size_ = offset;
  is_cut_ = is_lost_ = is_unreadable_ = true;
  return false;
}

uint16_t Walk::marker_at(uint64_t offset) {
  if (offset > size_ || size_ - offset < kMarkerSize || !load(offset, kMarkerSize)) return 0;
  return static_cast<uint16_t>(buffer_[0] << 8 | buffer_[1]);
}

bool Walk::is_known_at(uint64_t offset) {
  const uint16_t marker = marker_at(offset);
  return find_marker(marker) || is_lonely(marker);
}

uint64_t Walk::search(uint64_t from) {
  constexpr size_t kChunk = 4096;
  constexpr uint8_t kSotBegin[] = {0xFF, 0x90, 0, 10};
  while (from < size_ && search_budget_ > 0) {
    const auto length = static_cast<size_t>(std::min<uint64_t>(kChunk, size_ - from));
    if (!load(from, length)) return size_;
    for (size_t i = 0; i + 1 < length; ++i) {
      if (buffer_[i] != 0xFF) continue;
      const bool is_sot = length - i >= sizeof kSotBegin &&
                          std::memcmp(&buffer_[i], kSotBegin, sizeof kSotBegin) == 0;
      if (is_sot || buffer_[i + 1] == (kEoc & 0xFF)) return from + i;
    }
    search_budget_ -= std::min<uint64_t>(search_budget_, length);
    if (length < kChunk) return size_;
    from += length - sizeof kSotBegin + 1;
  }
  // What lies between is not known then.
  if (from < size_) is_lost_ = true;
  return from < size_ && ends_with_eoc() ? size_ - kMarkerSize : size_;
}

// Packet data has no such markers, so the next one is what ends the tile-part.
void Walk::resume(uint64_t from) {
  position_ = search(from);
  is_lost_ = is_lost_ || position_ == size_;
  is_cut_ = is_cut_ && position_ == size_;
}

// ---- Headers

Segment Walk::segment_at(uint64_t offset, uint16_t marker) const {
  Segment segment;
  segment.offset = offset;
  segment.marker = marker;
  segment.name = marker_name(marker);
  segment.tile_part = tile_part_;
  return segment;
}

void Walk::take_marker(uint16_t marker) {
  observer_.segment(segment_at(position_, marker));
  position_ += kMarkerSize;
}

// Stops at the marker that ends the header, and returns whether it found one.
bool Walk::read_header(bool is_main, uint64_t limit) {
  is_length_bad_ = false;
  while (limit - position_ >= kMarkerSize && !is_unreadable_) {
    const uint16_t marker = marker_at(position_);
    if (is_main ? is_boundary(marker) : marker == kSod) return true;
    if (!is_marker(marker)) {
      if (!is_length_bad_ && !is_unreadable_) {
        report(ProblemKind::kNotAMarker, position_, 0, 0, marker);
      }
      return false;
    }
    if (!is_main && is_boundary(marker)) {
      report(ProblemKind::kMissing, position_, kSod, kSod, marker);
      return false;
    }
    const MarkerRow* row = find_marker(marker);
    if (row ? !row->has_length : is_lonely(marker)) {
      report(row ? ProblemKind::kMisplaced : ProblemKind::kUnknownMarker, position_, marker, 0,
             marker);
      // Packet data may follow SOD.
      if (marker == kSod) return false;
      take_marker(marker);
      continue;
    }
    const unsigned place = is_main ? kMain : known_.tile_part.part == 0 ? kFirstPart : kLaterPart;
    if (!read_segment(marker, place, limit)) return false;
  }
  if (!is_length_bad_ && !is_unreadable_) {
    report(ProblemKind::kMissing, position_, is_main ? kSot : kSod, is_main ? kSot : kSod, 0);
    is_cut_ = is_cut_ || limit == size_;
  }
  return false;
}

// Returns whether it knows where the next one begins.
bool Walk::read_segment(uint16_t marker, unsigned place, uint64_t limit) {
  const uint64_t offset = position_;
  const uint64_t payload = offset + 2 * kMarkerSize;
  is_length_bad_ = false;
  if (limit < payload) {
    report(ProblemKind::kSegmentPastEnd, offset, marker, limit - offset - kMarkerSize, kMarkerSize);
    is_cut_ = is_cut_ || limit == size_;
    return false;
  }
  Segment segment = segment_at(offset, marker);
  segment.has_length = true;
  segment.length = marker_at(offset + kMarkerSize);
  if (segment.length < kMarkerSize) {
    report(ProblemKind::kLengthTooShort, offset + kMarkerSize, marker, kMarkerSize, segment.length);
    return false;
  }
  if (segment.length - kMarkerSize > limit - payload) {
    report(ProblemKind::kSegmentPastEnd, offset + kMarkerSize, marker, limit - offset - kMarkerSize,
           segment.length);
    is_cut_ = is_cut_ || limit == size_;
    return false;
  }
  const size_t length = segment.length - kMarkerSize;
  if (!load(payload, length)) return false;
  position_ = payload + length;

  const MarkerRow* row = find_marker(marker);
  SegmentReader reader(buffer_.data(), length, segment, observer_);
  if (!row) {
    report(ProblemKind::kUnknownMarker, offset, marker, 0, marker);
  } else {
    check_place(reader, *row, place);
    if (row->read) {
      row->read(reader, known_);
      if (known_.is_extended()) reader.rest();  // extensions append fields
      reader.finish();
      is_length_bad_ = reader.is_short() || reader.left() > 0;
    }
  }
  const uint64_t fitting = offset + kMarkerSize + reader.fitting_length();
  observer_.segment(std::move(segment));
  // A wrong length misleads only those who have nothing better.
  if (is_length_bad_ && !is_known_at(position_) && fitting < limit && is_known_at(fitting)) {
    position_ = fitting;
  }
  return true;
}

void Walk::check_place(SegmentReader& reader, const MarkerRow& row, unsigned place) {
  const uint64_t offset = reader.offset();
  if (row.marker == kSot) return;  // the walk itself looks for it
  if (!(row.places & place)) {
    report(ProblemKind::kMisplaced, offset, row.marker, 0, row.marker);
    reader.ignore();
  } else if (row.is_once && !known_.scope->seen.insert(uint64_t{row.marker} << 32).second) {
    report(ProblemKind::kDuplicate, offset, row.marker, 0, row.marker);
    reader.ignore();
  }
  if (row.is_extension && !known_.is_extended()) {
    report(ProblemKind::kExtension, offset, row.marker, 0x8000, known_.summary.image.capabilities);
  }
}

// ---- Main header

// Leaves the position behind SOC; returns whether this is a codestream at all.
bool Walk::begin() {
  const uint16_t first = marker_at(0);
  if (first == kSoc) {
    take_marker(kSoc);
    return true;
  }
  report(ProblemKind::kNoSoc, 0, kSoc, kSoc, first);
  if (marker_at(kMarkerSize) == kSiz) position_ = kMarkerSize;
  return position_ > 0 || first == kSiz;
}

void Walk::read_main_header() {
  const uint64_t begin = position_;
  const uint16_t second = marker_at(begin);
  const bool is_whole = read_header(true, size_);
  if (second != kSiz && known_.main.seen.count(uint64_t{kSiz} << 32)) {
    report(ProblemKind::kSizNotFirst, begin, second, kSiz, second);
  }
  if (is_whole) {
    for (const uint16_t marker : {kSiz, kCod, kQcd}) {
      if (!known_.main.seen.count(uint64_t{marker} << 32)) {
        report(ProblemKind::kMissing, position_, marker, marker, 0);
      }
    }
  } else {
    resume(position_);
    has_told_cap_ = true;  // CAP may have been missed
  }
  known_.summary.main_header_size = position_;
  end_main_header();
}

void Walk::end_main_header() {
  step_check_.emplace(known_.main, known_.components(), observer_);
  for (const uint16_t marker : {kTlm, kPlm, kPpm}) check_series(marker);
  flatten_tlm();
  count_ppm();
  if (known_.has_cap && !(known_.summary.image.capabilities & kAnnouncesCap)) {
    report(ProblemKind::kCapNotAnnounced, position_, kCap, kAnnouncesCap,
           known_.summary.image.capabilities);
  }
  if (!known_.has_cap && (known_.summary.image.capabilities & kAnnouncesCap)) {
    report(ProblemKind::kCapMissing, position_, kCap, 1, 0);
    has_told_cap_ = true;
  }
  check_capabilities(position_);
}

void Walk::check_capabilities(uint64_t offset) {
  if (!known_.has_ht_blocks || known_.has_ht_cap || has_told_cap_) return;
  report(ProblemKind::kCapMissing, offset, kCap, kHighThroughput, 0);
  has_told_cap_ = true;
}

// The numbers of a series begin with 0 and have no gaps.
void Walk::check_series(uint16_t marker) {
  uint64_t expected = uint64_t{marker} << 32;
  const uint64_t end = expected + (uint64_t{1} << 32);
  const std::set<uint64_t>& seen = known_.main.seen;
  for (auto it = seen.lower_bound(expected); it != seen.end() && *it < end; ++it, ++expected) {
    if (*it == expected) continue;
    report(ProblemKind::kMissingIndex, position_, marker, expected & 0xFF, *it & 0xFF);
    return;
  }
}

void Walk::flatten_tlm() {
  for (const auto& [number, entries] : known_.tlm) {
    tlm_.insert(tlm_.end(), entries.begin(), entries.end());
  }
  known_.tlm.clear();
}

// The segments of the series are one string, cut anywhere: for each tile-part a length, then
// headers.
void Walk::count_ppm() {
  std::string headers;
  for (const auto& [number, part] : known_.ppm) headers += part;
  size_t at = 0;
  while (at < headers.size()) {
    const size_t rest = headers.size() - at;
    const uint64_t length = rest < 4 ? 0 : number_at(headers, at);
    if (rest < 4 || length > rest - 4) {
      report(ProblemKind::kPpmCut, position_, kPpm, rest < 4 ? 4 : length + 4, rest);
      is_ppm_whole_ = false;
      return;
    }
    at += 4 + length;
    ++ppm_parts_;
  }
}

// ---- Tile-parts

// Notes the SOT segment that was just read.
void Walk::note_tile_part(uint64_t offset) {
  const TilePart& part = known_.tile_part;
  TileState& tile = tiles_[part.tile];
  if (part.part != tile.next_part) {
    report(ProblemKind::kTilePartOrder, offset + 10, kSot, tile.next_part, part.part, part.tile);
  }
  const bool differs = tile.parts != 0 && part.parts != 0 && tile.parts != part.parts;
  if (tile.parts == 0) tile.parts = part.parts;
  if (differs || (tile.parts != 0 && part.part >= tile.parts)) {
    report(ProblemKind::kTilePartCount, offset + 11, kSot, differs ? tile.parts : part.part + 1,
           part.parts, part.tile);
  }
  tile.next_part = part.part + 1;
}

void Walk::read_tile_part() {
  const uint64_t offset = position_;
  ++tile_part_;
  ++known_.summary.tile_parts;
  known_.tile = Scope();
  known_.scope = &known_.tile;
  known_.tile_part = TilePart();
  if (!read_segment(kSot, kNowhere, size_)) {
    resume(position_ + kMarkerSize);
    return;
  }
  note_tile_part(offset);

  const uint64_t length = known_.tile_part.length;
  const bool is_plausible = length >= kSmallestTilePart && length <= size_ - offset &&
                            position_ <= offset + length && is_boundary(marker_at(offset + length));
  const bool is_whole = read_header(false, is_plausible ? offset + length : size_);
  step_check_->check_tile(known_.tile);
  check_capabilities(position_);
  if (is_whole) take_marker(kSod);
  end_tile_part(offset, is_whole);
}

// Finds the tile-part's end, with the position behind SOD or where the header broke.
void Walk::end_tile_part(uint64_t offset, bool is_whole) {
  const uint64_t data = position_;
  const uint64_t length = known_.tile_part.length;
  if (length == 0) {
    position_ = end_of_open_tile_part();
    if (marker_at(position_) == kSot) {
      report(ProblemKind::kPsotZero, offset + 6, kSot, position_ - offset, 0);
    }
    if (is_whole) check_packet_lengths(data, position_);
    compare_with_tlm(offset, position_ - offset);
    return;
  }
  const uint64_t end = offset + length;
  const bool ends_here = is_boundary(marker_at(end)) || (end == size_ && !ends_with_eoc());
  if (end >= data && end <= size_ && ends_here) {
    position_ = end;
    if (is_whole) check_packet_lengths(data, end);
    compare_with_tlm(offset, length);
    return;
  }
  const bool was_lost = is_lost_;
  resume(data);
  const uint64_t next = position_;
  const bool is_found = next < size_;
  compare_with_tlm(offset, length);
  if (is_cut_) return;
  if (end > size_) {
    report(ProblemKind::kPsotPastEnd, offset + 6, kSot, next - offset, length);
    is_cut_ = !is_found;
  } else if (end < data) {
    if (is_whole || length < kSmallestTilePart)
      report(ProblemKind::kPsotTooSmall, offset + 6, kSot, next - offset, length);
  } else if (is_found && next < end) {
    report(ProblemKind::kPsotTooLarge, offset + 6, kSot, next - offset, length);
  } else if (is_found || search_budget_ == 0) {
    report(ProblemKind::kStrayBytes, end, kSot, 0, next - end);
  } else {
    // All that is left stands where EOC should.
    position_ = end;
    is_lost_ = was_lost;
  }
}

// Where Psot is 0, for the data goes on up to EOC. In a large tile-part only the budget is looked
// through, and the end of the codestream believed.
uint64_t Walk::end_of_open_tile_part() {
  const bool was_lost = is_lost_;
  const uint64_t end = search(position_);
  is_lost_ = was_lost || is_unreadable_;
  return std::max(position_, end);
}

// Whether packets are told without the SOP segments that stand in front of them, as they may be.
bool Walk::is_without_sop(uint64_t told, uint64_t there) const {
  constexpr uint32_t kMayHaveSop = 2;
  constexpr uint64_t kSopSize = 6;
  return (known_.summary.coding.style & kMayHaveSop) && told < there &&
         (there - told) % kSopSize == 0;
}

void Walk::check_packet_lengths(uint64_t data, uint64_t end) {
  const bool has_plt = known_.tile.seen.lower_bound(uint64_t{kPlt} << 32) !=
                       known_.tile.seen.lower_bound(uint64_t{kPlt + 1} << 32);
  if (!has_plt || is_without_sop(known_.tile.packet_bytes, end - data)) return;
  if (known_.tile.packet_bytes != end - data) {
    report(ProblemKind::kPltLength, data, kPlt, end - data, known_.tile.packet_bytes, tile_part_);
  }
}

void Walk::compare_with_tlm(uint64_t offset, uint64_t length) {
  const auto number = static_cast<uint64_t>(tile_part_);
  if (number >= tlm_.size()) return;
  const TlmEntry& entry = tlm_[number];
  const uint64_t tile = entry.tile ? *entry.tile : number;
  if (tile != known_.tile_part.tile) {
    report(ProblemKind::kTlmTile, offset, kTlm, known_.tile_part.tile, tile, tile_part_);
  }
  if (entry.length != length) {
    report(ProblemKind::kTlmLength, offset, kTlm, length, entry.length, tile_part_);
  }
}

// ---- The end

void Walk::check_coverage() {
  const Summary& summary = known_.summary;
  if (is_lost_) return;
  const uint64_t tiles = summary.image.tiles();
  if (summary.tiles_present < tiles) {
    int64_t first = 0;
    for (const auto& [tile, state] : tiles_) {
      if (tile != first) break;
      ++first;
    }
    report(ProblemKind::kMissingTiles, position_, kSot, tiles, summary.tiles_present, first);
  }
  for (const auto& [tile, state] : tiles_) {
    if (state.next_part >= state.parts) continue;
    report(ProblemKind::kMissingTileParts, position_, kSot, state.parts, state.next_part, tile);
  }
  if (!tlm_.empty() && tlm_.size() != summary.tile_parts) {
    report(ProblemKind::kTlmCount, position_, kTlm, summary.tile_parts, tlm_.size());
  }
  if (!known_.ppm.empty() && is_ppm_whole_ && ppm_parts_ != summary.tile_parts) {
    report(ProblemKind::kPpmCount, position_, kPpm, summary.tile_parts, ppm_parts_);
  }
}

void Walk::read_end() {
  Summary& summary = known_.summary;
  tile_part_ = kNone;
  for (const auto& [tile, state] : tiles_) {
    if (tile < summary.image.tiles()) ++summary.tiles_present;
    if (state.parts > state.next_part) summary.missing_tile_parts += state.parts - state.next_part;
  }
  check_coverage();
  summary.has_eoc = marker_at(position_) == kEoc;
  if (!summary.has_eoc) {
    if (!is_cut_) report(ProblemKind::kNoEoc, position_, kEoc, kEoc, left());
    return;
  }
  take_marker(kEoc);
  if (left() > 0) report(ProblemKind::kBehindEoc, position_, kEoc, 0, left());
}

Summary Walk::run() {
  known_.summary.size = size_;
  if (!begin()) return std::move(known_.summary);
  read_main_header();
  while (marker_at(position_) == kSot) read_tile_part();
  read_end();
  return std::move(known_.summary);
}

class Collector final : public Observer {
 public:
  explicit Collector(Headers& headers) : headers_(headers) {}
  void segment(Segment&& segment) override { headers_.segments.push_back(std::move(segment)); }
  void problem(const Problem& problem) override { headers_.problems.push_back(problem); }

 private:
  Headers& headers_;
};

}  // namespace

bool MemorySource::read(uint64_t offset, size_t length, uint8_t* to) {
  if (offset > size_ || length > size_ - offset) return false;
  std::memcpy(to, data_ + offset, length);
  return true;
}

Summary walk(Source& source, Observer& observer) { return Walk(source, observer).run(); }

Headers read_headers(Source& source) {
  Headers headers;
  Collector collector(headers);
  headers.summary = walk(source, collector);
  return headers;
}

}  // namespace kvjpx_codestream
