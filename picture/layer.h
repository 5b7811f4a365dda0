// A compositing layer, or a codestream alone: components become channels, channels colours.
#ifndef KVJPX_PICTURE_LAYER_H_
#define KVJPX_PICTURE_LAYER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "codestream.h"
#include "colour.h"
#include "file.h"
#include "rows.h"

namespace kvjpx_picture {

// Samples of a picture; right and bottom are exclusive.
struct Rectangle {
  uint64_t left = 0;
  uint64_t top = 0;
  uint64_t right = UINT64_MAX;  // beyond the picture: its edge
  uint64_t bottom = UINT64_MAX;
};

// One direction of a registered codestream: where on the reference grid a pixel of the layer is.
class GridAxis {
 public:
  struct Placement {
    uint32_t unit = 1, step = 1, offset = 0;
  };
  GridAxis(uint32_t begin, uint32_t end, Placement placement)
      : begin_(begin), end_(end), placement_(placement) {}

  // The extent of the codestream on the layer.
  uint64_t extent() const;
  // Pixels of `from` to `to` of the layer, each standing for 2^reduction of them.
  uint32_t set_part(uint64_t from, uint64_t to, uint32_t reduction);
  uint64_t grid_position(uint32_t pixel) const;

  uint32_t begin() const { return begin_; }
  uint32_t end() const { return end_; }

 private:
  bool is_plain() const { return placement_.unit == placement_.step && placement_.offset == 0; }

  uint32_t begin_;  // of the image area
  uint32_t end_;
  Placement placement_;
  uint64_t from_ = 0;  // of the layer, or, when plain, the first multiple of the scale
  uint32_t reduction_ = 0;
};

class LayerRows final : public Rows {
 public:
  // What of the layer, or codestream, at which reduction (of the effort).
  struct Part {
    uint64_t number = 0;
    bool is_codestream_alone = false;
    Rectangle region;
  };
  // The file and the notes must outlive it. Throws an Error.
  LayerRows(const File& file, const Part& part, const Effort& effort, Notes& notes);

  // Of the whole layer, in full resolution.
  uint64_t whole_width() const { return whole_width_; }
  uint64_t whole_height() const { return whole_height_; }
  // The greatest reduction that all its codestreams have.
  uint32_t levels() const;
  // Its samples mean nothing without a conversion through format().icc.
  bool needs_conversion() const { return space_.needs_conversion; }
  // Whether the rows that were read had at least one sample in them, as far as is known.
  bool is_anything_there() const { return is_anything_there_; }

  void read(uint32_t first, uint32_t count, uint16_t* out) override;
  uint32_t good_count(uint32_t first) const override;

 private:
  // A codestream with the components of it that are used.
  struct Used {
    uint32_t number;
    SampleDepth depth;
    uint32_t dx, dy;
    // Which sample each pixel of a row has, counted from that of the first; empty: each its own.
    std::vector<uint32_t> columns;
    uint64_t first_column = 0, last_column = 0;  // on the component's own grid
    uint64_t first_row = 0, last_row = 0;        // of the whole image area
    bool has_samples = true;
  };
  struct Source {
    CodestreamBytes bytes;
    std::unique_ptr<Codestream> codestream;
    uint32_t reduction = 0;  // that the codec makes
    GridAxis x, y;
    CodestreamHeader header;
    std::vector<Used> components;
  };
  struct Channel {
    size_t source;
    size_t component;              // of the codestream; once components are in use, among those
    std::vector<int32_t> palette;  // empty: none
    SampleDepth depth;
  };
  // What was decoded of a source for some rows.
  struct Strip {
    Codestream::Samples samples;  // null: nothing
  };

  void add_source(const File& file, const Registration& registration, const Effort& effort,
                  bool uses_boxes);
  void compare_with_header(const Source& source);
  void add_channels(size_t index);
  void use_components();
  void define_channels(const LayerHeader& header, bool is_bare);
  void define_by_boxes(const std::vector<ChannelDefinition>& definitions);
  void define_by_order(const LayerHeader& header, bool is_bare);
  void set_colours(const LayerHeader& header, bool is_bare);
  void set_region(const Rectangle& region, const Effort& effort);
  void place_component(Source& source, Used& used);
  void set_format(const File& file, const LayerHeader& header, uint32_t reduction);
  void tell_damage(const std::string& damage);

  uint64_t row_of(const Source& source, const Used& used, uint32_t row) const;
  Strip decode(Source& source, uint32_t first, uint32_t count);
  const int32_t* channel_row(const Channel& channel, const Strip& strip, uint32_t row,
                             std::vector<int32_t>& scratch) const;
  void write_opacity(const std::vector<const int32_t*>& rows, uint16_t* out) const;

  Notes& notes_;
  bool is_strict_;
  uint64_t whole_width_ = 0;
  uint64_t whole_height_ = 0;
  std::vector<Source> sources_;
  std::vector<Channel> channels_;
  std::vector<size_t> colours_;  // numbers of channels, in the order of the colour space
  std::vector<size_t> opacity_;  // none or one
  bool is_premultiplied_ = false;
  std::vector<uint64_t> key_;  // chroma key, by channel; empty: none
  ColourSpace space_;
  std::unique_ptr<ColourKernel> kernel_;
  std::unique_ptr<DepthMap> opacity_map_;
  bool is_anything_there_ = false;
};

}  // namespace kvjpx_picture

#endif  // KVJPX_PICTURE_LAYER_H_
