// What the boxes of a file say of its pictures, read once and without judging it.
#ifndef KVJPX_PICTURE_FILE_H_
#define KVJPX_PICTURE_FILE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kvjpx.hpp"

namespace kvjpx_picture {

// ihdr and bpcc (ISO/IEC 15444-1, I.5.3.1 and I.5.3.2).
struct ImageHeader {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t components = 0;
  std::vector<uint8_t> depths;  // of each component, as BPC has them; one for all; or none
};

// pclr (I.5.3.4). Depths are at most 16: of larger values the upper bits are kept.
struct Palette {
  struct Column {
    uint32_t depth;
    bool is_signed;
    std::vector<int32_t> values;
  };
  std::vector<Column> columns;
};

// cmap (I.5.3.5).
struct Mapping {
  uint32_t component;
  bool is_palette;
  uint32_t column;
};

// cdef (I.5.3.6).
struct ChannelDefinition {
  uint32_t channel;
  uint32_t type;
  uint32_t association;
};

// colr (I.5.3.3; ISO/IEC 15444-2, M.11.7.3).
struct ColourBox {
  uint32_t method = 0;
  int8_t precedence = 0;
  uint32_t approximation = 0;
  uint32_t space = 0;
  std::vector<uint32_t> parameters;  // EP in their order; empty: defaults
  std::string profile;
};

// opct (15444-2, M.11.7.6).
struct OpacityBox {
  uint32_t type = 0;
  std::vector<uint64_t> key;
};

// creg (15444-2, M.11.7.7), for one codestream: with position g on its reference grid, counted from
// its image area, it lies at (g * step + offset) / unit of the layer.
struct Registration {
  uint64_t codestream = 0;
  uint32_t unit_x = 1, unit_y = 1;
  uint32_t step_x = 1, step_y = 1;
  uint32_t offset_x = 0, offset_y = 0;
};

struct Resolution {
  double x = 0;  // samples a metre; 0: not known
  double y = 0;
};

// What jp2h, jpch and jplh may say; empty where they don't.
struct CodestreamHeader {
  std::optional<ImageHeader> image;
  std::optional<Palette> palette;
  std::vector<Mapping> mapping;
};
struct LayerHeader {
  std::vector<ColourBox> colours;
  std::vector<ChannelDefinition> definitions;
  std::optional<OpacityBox> opacity;
  std::vector<Registration> registrations;
  Resolution resolution;
};

// One instruction of the instruction sets (15444-2, M.11.10.2), with what a group that is not there
// stands for.
struct Instruction {
  uint32_t x = 0, y = 0;
  std::optional<uint32_t> width, height;  // that the layer is scaled to
  struct Crop {
    uint32_t x, y, width, height;
  };
  std::optional<Crop> crop;
  bool persists = true;
  uint32_t life = 0;  // milliseconds
  uint32_t next_use = 0;
};
struct InstructionSet {
  uint32_t repeat = 0;
  std::vector<Instruction> instructions;
};
struct CompositionBox {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t loop = 0;
  std::vector<InstructionSet> sets;
};

struct CodestreamBytes {
  std::string_view of_file;
  std::string joined;  // from several fragments; then nothing is in of_file
  bool is_whole = true;

  std::string_view all() const { return joined.empty() ? of_file : joined; }
};

class File {
 public:
  // `bytes` are the whole file, and the document's source; both must outlive it.
  File(const kvjpx::document& document, std::string_view bytes);

  bool is_bare() const { return is_bare_; }
  uint64_t codestreams() const { return codestreams_.size(); }
  uint64_t layers() const { return layer_headers_.empty() ? codestreams() : layer_headers_.size(); }

  // The bytes of a codestream; of one in fragments as far as they are in this file.
  CodestreamBytes codestream(uint64_t number) const;
  // With the defaults of jp2h.
  CodestreamHeader codestream_header(uint64_t number) const;
  LayerHeader layer_header(uint64_t number) const;

  // Nothing without comp, and for one that shows nothing.
  std::optional<CompositionBox> composition() const;

  std::string xmp() const;
  std::string exif() const;

 private:
  std::string uuid_payload(std::string_view id) const;

  const kvjpx::document& document_;
  std::string_view bytes_;
  bool is_bare_ = false;
  kvjpx::box default_header_;                   // jp2h
  std::vector<kvjpx::box> codestreams_;         // jp2c and ftbl
  std::vector<kvjpx::box> codestream_headers_;  // jpch
  std::vector<kvjpx::box> layer_headers_;       // jplh
};

}  // namespace kvjpx_picture

#endif  // KVJPX_PICTURE_FILE_H_
