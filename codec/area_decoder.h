// OpenJPEG with a codestream in it, ready to decode parts of it.
#ifndef KVJ2K_AREA_DECODER_H_
#define KVJ2K_AREA_DECODER_H_

#include <cstdint>
#include <vector>

#include "opj.h"
#include "sampling.h"

namespace kvj2k {

// A rectangle of the reference grid.
struct Area {
  Span x;
  Span y;

  bool operator==(const Area& other) const { return x == other.x && y == other.y; }
  bool is_empty() const { return x.is_empty() || y.is_empty(); }
};

struct DecoderSettings {
  uint32_t reduction = 0;            // halvings
  uint32_t layers = 0;               // 0: all
  uint32_t threads = 0;              // 0: as many as there are processors
  bool is_single_tile = false;       // the codestream has one tile
  bool notes_damage = false;         // OpenJPEG's warnings count
  std::vector<uint32_t> components;  // wanted; empty: all

  // Whether they make the same samples of the same codestream.
  bool is_like(const DecoderSettings& other) const {
    return reduction == other.reduction && layers == other.layers &&
           notes_damage == other.notes_damage && components == other.components;
  }
};

class AreaDecoder {
 public:
  // What the source refers to must outlive the decoder. Throws Failure (18, 1).
  AreaDecoder(Source source, const DecoderSettings& settings);
  AreaDecoder(const AreaDecoder&) = delete;
  AreaDecoder& operator=(const AreaDecoder&) = delete;

  // The components wanted, the samples that stand in the area; there must be one of each. Throws
  // Failure (18, 1).
  OpjImage decode(const Area& area);

  // Whether another area can be decoded. OpenJPEG keeps what it knows of a single tile, until all
  // of it has been decoded; and it keeps more with each time.
  bool is_reusable() const { return reuses_left_ > 0; }

  const DecoderSettings& settings() const { return settings_; }

  // Whether OpenJPEG met with something that it can't follow, where that is to be noted.
  bool has_met_damage() const { return messages_.has_warning(); }

 private:
  OpjImage make_image() const;

  DecoderSettings settings_;
  OpjMessages messages_;
  Source source_;
  OpjStream stream_;
  OpjCodec codec_;
  OpjImage header_;
  int reuses_left_;
};

}  // namespace kvj2k

#endif  // KVJ2K_AREA_DECODER_H_
