// Frames that the instructions of a file compose of its layers (ISO/IEC 15444-2, M.11.10).
#ifndef KVJPX_PICTURE_COMPOSITION_H_
#define KVJPX_PICTURE_COMPOSITION_H_

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "file.h"
#include "layer.h"
#include "rows.h"

namespace kvjpx_picture {

// A layer, placed: a part of it fills a rectangle of the result.
struct Draw {
  uint64_t layer;
  uint64_t x, y, width, height;  // in the result
  Instruction::Crop crop;        // in the layer
  bool is_opaque;
  uint32_t levels;  // that the layer can be reduced by
};

struct FramePlan {
  uint32_t milliseconds = 0;
  std::vector<Draw> draws;  // in their order
};

class CompositionPlan {
 public:
  // Throws an Error for a composition that shows nothing.
  CompositionPlan(const File& file, const CompositionBox& box, const Effort& effort, Notes& notes);

  const std::vector<FramePlan>& frames() const { return frames_; }
  uint32_t repetitions() const { return repetitions_; }  // 0: for ever
  // Of all frames, in full resolution; layers are brought to its colours and depth.
  const Format& format() const { return format_; }

 private:
  struct LayerFacts {
    uint64_t width = 0;
    uint64_t height = 0;
    uint32_t levels = 0;
    Format format;
  };
  // Null for a layer that can't be had.
  const LayerFacts* facts_of(uint64_t layer);
  void execute(const CompositionBox& box);
  // False when there are no layers left.
  bool execute(const Instruction& instruction, uint64_t number);
  std::optional<Draw> place(const Instruction& instruction, uint64_t layer);
  void end_frame(uint32_t life);
  void choose_format();
  bool is_covered(const FramePlan& frame) const;

  const File& file_;
  Effort effort_;
  Notes& notes_;
  uint32_t repetitions_ = 1;
  std::vector<FramePlan> frames_;
  std::vector<Draw> lasting_;  // what stays from frame to frame
  std::vector<Draw> current_;  // what is shown now
  bool has_drawn_ = false;     // since the last frame ended
  size_t draws_ = 0;           // of all frames
  uint64_t next_layer_ = 0;
  std::map<uint64_t, uint64_t> again_;  // layers that instructions use again
  std::map<uint64_t, std::optional<LayerFacts>> facts_;
  Format format_;
};

// One direction of a placed layer.
class Placement {
 public:
  struct Direction {
    uint64_t region_begin, region_end;  // of the result
    uint64_t begin, extent;             // of the layer in the result
    uint64_t crop_begin, crop_extent;   // of the part of the layer
  };
  // A sample of the result is the mean of the layer's from `first` on.
  struct Mean {
    uint32_t first = 0;
    std::vector<float> weights;
  };
  Placement(const Direction& direction, uint32_t reduction);

  // Samples of the result, as delivered, that the layer covers.
  uint32_t first() const { return first_; }
  uint32_t count() const { return count_; }
  // How far the layer can be reduced.
  uint32_t layer_reduction() const;
  // What is needed of the layer at a reduction: in its full resolution.
  uint64_t needed_begin(uint32_t layer_reduction) const;
  uint64_t needed_end() const;
  // With the needed part of the layer, `available` samples.
  std::vector<Mean> means(uint32_t layer_reduction, uint32_t available) const;

 private:
  double layer_position(uint64_t of_result) const;
  uint64_t begin_of(uint32_t sample) const;
  uint64_t end_of(uint32_t sample) const;

  Direction direction_;
  uint32_t reduction_;
  uint32_t first_ = 0;
  uint32_t count_ = 0;
};

class FrameRows final : public Rows {
 public:
  // The file and the notes must outlive it.
  FrameRows(const File& file, const CompositionPlan& plan, size_t frame, const Rectangle& region,
            const Effort& effort, Notes& notes);

  bool is_anything_there() const;
  void read(uint32_t first, uint32_t count, uint16_t* out) override;
  uint32_t good_count(uint32_t first) const override;

 private:
  struct Placed {
    Placement x, y;
    LayerRows::Part part;
    Effort effort;
    uint64_t bytes_a_row = 0;  // that reading takes while a row of the result is made
    // While it is open:
    std::vector<Placement::Mean> columns = {}, rows = {};
    bool is_plain = true;  // no sample is a mean of several
    std::unique_ptr<Rows> source = nullptr;
    const LayerRows* layer = nullptr;
  };
  void place(const Draw& draw, const Rectangle& region, const Effort& effort);
  void open(Placed& placed);
  void close(Placed& placed);
  void draw(Placed& placed, uint32_t first, uint32_t count, uint16_t* out);
  void blend_row(const Placed& placed, const uint16_t* from, uint16_t* to) const;

  const File& file_;
  Notes& notes_;
  bool was_anything_there_ = false;  // in layers that are closed again
  std::vector<Placed> placed_;
  std::vector<uint16_t> strip_;
  std::vector<uint16_t> row_;
};

}  // namespace kvjpx_picture

#endif  // KVJPX_PICTURE_COMPOSITION_H_
