// Reads the headers of a JPEG 2000 codestream (ISO/IEC 15444-1, Annex A), and nothing but them.
//
// A codestream is a row of markers, two bytes each, most of them the beginning of a marker segment:
// marker, length, fields. First stands the main header, from SOC to the first SOT; then come the
// tile-parts, each a header (SOT to SOD) and packet data; EOC ends it. SOT tells how long its
// tile-part is, so that a walk from header to header never touches the data between, and a file of
// gigabytes takes no longer than one of kilobytes.
//
// `walk` hands each marker segment and each breach of the standard to an observer as it meets them,
// and returns a summary; `read_headers` collects it all. Any bytes will do: where the chain breaks,
// the walk says so and goes on at the next place it can be sure of. Time and memory are in
// proportion to the headers.
//
// Field names are the standard's (Xsiz, SPcod...). Besides 15444-1 the high-throughput capability
// of 15444-15 is read; marker segments of other Parts are told by name only.
//
// Adding a marker: a row in the table of markers.cpp and the function that reads its fields.
// Adding a problem: a row in the list below and the line that reports it.
#ifndef KVJPX_CODESTREAM_CODESTREAM_H_
#define KVJPX_CODESTREAM_CODESTREAM_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kvjpx_codestream {

// The bytes of one codestream, from SOC on.
class Source {
 public:
  virtual ~Source() = default;
  virtual uint64_t size() const = 0;
  // Copies `length` bytes from `offset` on; the walk stays within size(). False: they can't be
  // read.
  virtual bool read(uint64_t offset, size_t length, uint8_t* to) = 0;
};

// A codestream in memory or in a mapped file, which must outlive it.
class MemorySource final : public Source {
 public:
  MemorySource(const void* data, uint64_t size)
      : data_(static_cast<const uint8_t*>(data)), size_(size) {}
  uint64_t size() const override { return size_; }
  bool read(uint64_t offset, size_t length, uint8_t* to) override;

 private:
  const uint8_t* data_;
  uint64_t size_;
};

struct Field {
  enum class Kind {
    kNumber,  // one value
    kList,    // as many values as the segment has entries, components, steps...
    kText     // `text`: UTF-8 without control characters but tab and line feed; or hexadecimal
  };
  const char* name = "";
  Kind kind = Kind::kNumber;
  std::vector<uint64_t> values;
  std::vector<std::string> words;  // what each value means, in the same order; or empty
  std::string text;
};

constexpr int64_t kNone = -1;

struct Segment {
  uint64_t offset = 0;        // of the marker in the codestream
  uint16_t marker = 0;        // 0xFF4F for SOC
  const char* name = "";      // "SOC"; "" for an unknown marker
  bool has_length = false;    // whether it is a segment, not a lonely marker
  uint32_t length = 0;        // as the segment tells: without the marker, with the length itself
  int64_t tile_part = kNone;  // counted in the codestream's order; kNone in the main header
  std::vector<Field> fields;
};

// What can be wrong: kind, stable identifier, meaning. `expected` and `found` are the values that
// the meaning speaks of, `index` what is in parentheses; the offset is that of the number in
// question.
#define KVJPX_CODESTREAM_PROBLEMS(X)                                                            \
  /* The sequence of markers */                                                                 \
  X(kNoSoc, "soc", "the codestream does not begin with SOC")                                    \
  X(kSizNotFirst, "siz-order", "another marker than SIZ follows SOC")                           \
  X(kNotAMarker, "not-a-marker", "there is no marker where a header goes on")                   \
  X(kUnknownMarker, "unknown-marker", "no part of the standard defines this marker")            \
  X(kMisplaced, "misplaced", "the marker may not stand in this header")                         \
  X(kDuplicate, "duplicate", "the header has such a segment already (component)")               \
  X(kDuplicateIndex, "duplicate-index", "segments of a series have the same number")            \
  X(kMissingIndex, "missing-index", "a series of segments lacks the expected number")           \
  X(kMissing, "missing", "the header lacks this marker")                                        \
  X(kExtension, "extension", "Rsiz does not announce the extensions this marker belongs to")    \
  X(kLengthTooShort, "length-short", "the segment is shorter than its fields need")             \
  X(kLengthTooLong, "length-long", "the segment is longer than its fields")                     \
  X(kSegmentPastEnd, "segment-past-end", "the segment is longer than the bytes left for it")    \
  X(kUnreadable, "unreadable", "the source can't be read here")                                 \
  /* Image and tiles */                                                                         \
  X(kProfile, "profile", "Rsiz has a reserved value")                                           \
  X(kImageArea, "image-area", "the image area is empty")                                        \
  X(kTileSize, "tile-size", "tiles are empty")                                                  \
  X(kTileOffset, "tile-offset", "the first tile does not hold the image area's corner")         \
  X(kTooManyTiles, "tile-count", "there are more tiles than can be numbered")                   \
  X(kComponentCount, "component-count", "there are no components or more than 16384")           \
  X(kDepth, "depth", "samples have more than 38 bits (component)")                              \
  X(kSubsampling, "subsampling", "samples have no distance (component)")                        \
  /* Coding style */                                                                            \
  X(kCodingStyle, "coding-style", "Scod or Scoc has reserved bits set")                         \
  X(kProgression, "progression", "the progression order is reserved")                           \
  X(kLayers, "layers", "there are no layers")                                                   \
  X(kColourTransform, "colour-transform", "the multiple component transformation is reserved")  \
  X(kTransformComponents, "colour-transform-components",                                        \
    "the colour transformation lacks three components of one size (component)")                 \
  X(kLevels, "levels", "there are more than 32 decomposition levels")                           \
  X(kCodeBlockSize, "code-block-size", "code-blocks are too wide, too high or too large")       \
  X(kCodeBlockStyle, "code-block-style", "the code-block style has reserved bits set")          \
  X(kTransformation, "transformation", "the wavelet transformation is reserved")                \
  X(kPrecinctSize, "precinct-size", "precincts are 1 wide or high above the lowest resolution") \
  X(kComponentIndex, "component-index", "there is no such component")                           \
  X(kQuantization, "quantization-style", "the quantization style is reserved")                  \
  X(kStepCount, "step-count", "there are fewer step sizes than sub-bands (component)")          \
  X(kRegionStyle, "region-style", "the style of the region of interest is reserved")            \
  X(kPocResolution, "poc-resolution", "a progression holds no resolution (entry)")              \
  X(kPocComponent, "poc-component", "a progression holds no component (entry)")                 \
  X(kPocLayer, "poc-layer", "a progression holds no layer (entry)")                             \
  X(kCommentUse, "comment-use", "the registration value of a comment is reserved")              \
  /* Capabilities */                                                                            \
  X(kCapMissing, "cap-missing", "a capability is used that no CAP segment announces")           \
  X(kCapNotAnnounced, "cap-not-announced", "there is CAP, but Rsiz does not say so")            \
  X(kHtCapability, "ht-capability", "the capability of 15444-15 has reserved bits set")         \
  /* Tile-parts */                                                                              \
  X(kTileIndex, "tile-index", "there is no such tile")                                          \
  X(kTilePartOrder, "tile-part-order", "another tile-part of the tile should come here (tile)") \
  X(kTilePartCount, "tile-part-count", "TNsot does not fit the tile's other tile-parts (tile)") \
  X(kPsotTooSmall, "psot-small", "the tile-part is shorter than its header")                    \
  X(kPsotTooLarge, "psot-large", "the next tile-part begins before this one's end")             \
  X(kPsotPastEnd, "psot-past-end", "the tile-part is longer than the bytes that are left")      \
  X(kPsotZero, "psot-zero", "the length of a tile-part that is not the last is left open")      \
  X(kStrayBytes, "stray-bytes", "bytes stand between two tile-parts, or Psot is too small")     \
  X(kMissingTiles, "missing-tiles", "tiles have no tile-part (first of them)")                  \
  X(kMissingTileParts, "missing-tile-parts", "a tile has fewer tile-parts than TNsot (tile)")   \
  X(kNoEoc, "no-eoc", "the codestream does not end with EOC")                                   \
  X(kBehindEoc, "behind-eoc", "bytes follow EOC")                                               \
  /* Lengths and packet headers told elsewhere */                                               \
  X(kTlmStyle, "tlm-style", "Stlm is reserved")                                                 \
  X(kTlmTile, "tlm-tile", "TLM tells another tile than the tile-part has (tile-part)")          \
  X(kTlmLength, "tlm-length", "TLM tells another length than the tile-part has (tile-part)")    \
  X(kTlmCount, "tlm-count", "TLM tells another number of tile-parts than there are")            \
  X(kPacketLengthCut, "packet-length", "a packet length goes on behind the segment")            \
  X(kPltLength, "plt-length", "PLT tells another length than the tile-part's data (tile-part)") \
  X(kPpmCut, "ppm-cut", "packed packet headers end inside a tile-part's")                       \
  X(kPpmCount, "ppm-count", "PPM serves another number of tile-parts than there are")           \
  X(kPpmAndPpt, "ppm-and-ppt", "packet headers are packed in the main and in a tile-part header")

enum class ProblemKind {
#define KVJPX_CODESTREAM_KIND(kind, id, meaning) kind,
  KVJPX_CODESTREAM_PROBLEMS(KVJPX_CODESTREAM_KIND)
#undef KVJPX_CODESTREAM_KIND
};

struct Problem {
  ProblemKind kind;
  uint64_t offset;
  uint16_t marker;  // of the segment it is in; of the one that is missing
  uint64_t expected;
  uint64_t found;
  int64_t index;  // kNone, or what the kind's meaning has in parentheses
};

const char* identifier(ProblemKind kind);
const char* meaning(ProblemKind kind);

struct Component {
  uint32_t depth = 0;  // bits of a sample
  bool is_signed = false;
  uint32_t dx = 0;  // distance of samples on the reference grid
  uint32_t dy = 0;
};

// One direction of the reference grid.
struct Axis {
  uint32_t begin = 0;  // the image area
  uint32_t end = 0;
  uint32_t tile_begin = 0;
  uint32_t tile_size = 0;

  uint32_t size() const { return end > begin ? end - begin : 0; }
  // 0 if the tiles are not as the standard wants them.
  uint32_t tiles() const;
};

struct Image {
  uint16_t capabilities = 0;  // Rsiz; see profile_name
  Axis x;
  Axis y;
  std::vector<Component> components;

  uint64_t tiles() const { return uint64_t{x.tiles()} * y.tiles(); }
};

// What the main header's COD says.
struct CodingStyle {
  uint32_t style = 0;  // Scod
  uint32_t progression = 0;
  uint32_t layers = 0;
  bool has_colour_transform = false;
  uint32_t levels = 0;
  uint32_t block_width = 0;
  uint32_t block_height = 0;
  uint32_t block_style = 0;
  uint32_t transformation = 0;
};

struct Comment {
  bool is_text = false;
  std::string text;  // as in Field; of binary comments in hexadecimal
};

struct Summary {
  bool has_image = false;  // whether SIZ could be read
  Image image;
  bool has_coding = false;  // whether COD could be read
  CodingStyle coding;
  bool has_quantization = false;
  uint32_t quantization = 0;  // style: 0 none, 1 derived, 2 expounded
  uint32_t guard_bits = 0;
  bool is_high_throughput = false;  // CAP or a code-block style says so
  std::vector<Comment> comments;    // of all headers
  uint64_t main_header_size = 0;    // up to the first SOT
  uint64_t tile_parts = 0;
  uint64_t tiles_present = 0;
  uint64_t missing_tile_parts = 0;  // of those that TNsot promises
  uint64_t size = 0;                // all bytes, also those behind EOC
  bool has_eoc = false;
};

std::string profile_name(uint16_t capabilities);        // "2K digital cinema"
const char* progression_name(uint32_t progression);     // "LRCP"
const char* transformation_name(uint32_t);              // "5-3 reversible"
const char* quantization_name(uint32_t style);          // "scalar derived"
const char* colour_transform_name(const CodingStyle&);  // "none", "reversible", "irreversible"
std::string code_block_style_names(uint32_t bits);      // "none", "vertically causal context"
const char* marker_name(uint16_t marker);               // "SIZ"; "" for an unknown one

class Observer {
 public:
  virtual ~Observer() = default;
  // Marker segments in their order. Without fields a walk is quicker.
  virtual bool wants_fields() const { return true; }
  virtual void segment(Segment&&) {}
  // A segment's problems come before it, others where they turn out.
  virtual void problem(const Problem&) {}
};

Summary walk(Source& source, Observer& observer);

struct Headers {
  Summary summary;
  std::vector<Segment> segments;
  std::vector<Problem> problems;
};

// For codestreams that can be trusted to be of reasonable size: each header byte may cost some 100
// bytes of memory.
Headers read_headers(Source& source);

}  // namespace kvjpx_codestream

#endif  // KVJPX_CODESTREAM_CODESTREAM_H_
