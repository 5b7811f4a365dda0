// The table of markers, and what their readers work with.
#ifndef KVJPX_CODESTREAM_MARKERS_H_
#define KVJPX_CODESTREAM_MARKERS_H_

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "codestream.h"

namespace kvjpx_codestream {

enum Marker : uint16_t {
  kSoc = 0xFF4F,
  kCap = 0xFF50,
  kSiz = 0xFF51,
  kCod = 0xFF52,
  kCoc = 0xFF53,
  kTlm = 0xFF55,
  kPlm = 0xFF57,
  kPlt = 0xFF58,
  kQcd = 0xFF5C,
  kQcc = 0xFF5D,
  kRgn = 0xFF5E,
  kPpm = 0xFF60,
  kPpt = 0xFF61,
  kSot = 0xFF90,
  kSod = 0xFF93,
  kEoc = 0xFFD9
};

// What is known of a component's (or of all components') coding, and the segment that says it.
struct Coding {
  uint32_t levels;
  uint64_t offset;
  uint16_t marker;
};
struct Quantizer {
  uint32_t steps;
  uint64_t offset;
  uint16_t marker;
};

// What one header says of the coding. The maps are of those components that have a segment of their
// own.
struct Scope {
  std::optional<Coding> coding;
  std::optional<Quantizer> quantizer;
  std::map<uint32_t, Coding> codings;
  std::map<uint32_t, Quantizer> quantizers;
  std::set<uint64_t> seen;    // marker << 32 | component or number in a series
  uint64_t packet_bytes = 0;  // sum of PLT
};

struct TilePart {
  uint32_t tile = 0;
  uint64_t length = 0;  // Psot
  uint32_t part = 0;    // TPsot
  uint32_t parts = 0;   // TNsot
};

struct TlmEntry {
  std::optional<uint32_t> tile;  // none: the tiles have one tile-part each, in their order
  uint64_t length;
};

// All that is known when a segment is read.
struct Knowledge {
  Summary summary;
  bool has_cap = false;
  bool has_ht_cap = false;
  bool has_part_2_cap = false;
  bool has_ht_blocks = false;
  std::map<uint32_t, std::vector<TlmEntry>> tlm;  // by Ztlm
  std::map<uint32_t, std::string> ppm;            // by Zppm
  Scope main;
  Scope tile;            // of the tile-part that is being read
  Scope* scope = &main;  // of the header that is being read
  TilePart tile_part;

  size_t components() const { return summary.image.components.size(); }
  // By ISO/IEC 15444-2.
  bool is_extended() const { return (summary.image.capabilities & 0x8000) != 0 || has_part_2_cap; }
};

// What a number means.
using Words = std::string (*)(uint64_t);

// Takes a segment's fields one after the other, notes them in the segment and checks them. Behind
// the segment's end all numbers are 0 and no problems are told but that.
class SegmentReader {
 public:
  SegmentReader(const uint8_t* payload, size_t length, Segment& segment, Observer& observer)
      : begin_(payload),
        position_(payload),
        end_(payload + length),
        segment_(segment),
        observer_(observer),
        wants_fields_(observer.wants_fields()) {}

  size_t left() const { return static_cast<size_t>(end_ - position_); }
  bool is_short() const { return missing_ != 0; }
  uint64_t offset() const { return segment_.offset; }
  uint16_t marker() const { return segment_.marker; }

  // A segment that may not stand here is read, but has no effect.
  bool is_ignored() const { return is_ignored_; }
  void ignore() { is_ignored_ = true; }

  uint32_t number(const char* name, size_t width, Words words = nullptr);
  // The next value of a list.
  uint32_t element(const char* name, size_t width, Words words = nullptr);
  void add_element(const char* name, uint64_t value, Words words = nullptr);
  void add_text(const char* name, const std::string& text);
  // All that is left.
  std::string rest();

  // These speak of the number that was read last.
  void problem(ProblemKind kind, uint64_t expected, uint64_t found, int64_t index = kNone);
  void require(bool holds, ProblemKind kind, uint64_t expected, int64_t index = kNone) {
    if (!holds) problem(kind, expected, value_, index);
  }
  void require_at_most(uint64_t limit, ProblemKind kind, int64_t index = kNone) {
    require(value_ <= limit, kind, limit, index);
  }
  // That only these bits are set.
  void require_bits(uint64_t bits, ProblemKind kind) {
    require((value_ & ~bits) == 0, kind, value_ & bits);
  }

  // The length that the fields ask for, as the length field would tell it.
  uint32_t fitting_length() const {
    return static_cast<uint32_t>(static_cast<size_t>(position_ - begin_) + missing_ + 2);
  }
  // Tells whether the segment was too short or too long for its fields.
  void finish();

 private:
  Field& field(const char* name, Field::Kind kind);
  uint32_t take(size_t width);
  void report(ProblemKind kind, uint64_t offset, uint64_t expected, uint64_t found, int64_t index);

  const uint8_t* begin_;
  const uint8_t* position_;
  const uint8_t* end_;
  Segment& segment_;
  Observer& observer_;
  bool wants_fields_;
  bool is_ignored_ = false;
  size_t missing_ = 0;  // bytes that the fields lack
  uint64_t value_ = 0;
  uint64_t value_offset_ = 0;
};

// Where a marker may stand.
enum Place : unsigned {
  kNowhere = 0,  // only where the walk itself looks for it, or in packet data
  kMain = 1,
  kFirstPart = 2,  // the header of a tile's first tile-part
  kLaterPart = 4,
  kAnyPart = kFirstPart | kLaterPart,
  kAnyHeader = kMain | kAnyPart
};

struct MarkerRow {
  uint16_t marker;
  const char* name;
  bool has_length;
  unsigned places;
  bool is_once;                              // at most once in a header, whatever it holds
  bool is_extension;                         // of ISO/IEC 15444-2
  void (*read)(SegmentReader&, Knowledge&);  // null: known by name only
};

// Null for an unknown marker.
const MarkerRow* find_marker(uint16_t marker);

}  // namespace kvjpx_codestream

#endif  // KVJPX_CODESTREAM_MARKERS_H_
