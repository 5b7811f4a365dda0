// A codestream, decoded a strip at a time through the codec's own interface.
#ifndef KVJPX_PICTURE_CODESTREAM_H_
#define KVJPX_PICTURE_CODESTREAM_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kv_j2k_samples.h"

namespace kvjpx_picture {

// How thoroughly to decode.
struct Effort {
  uint32_t reduction = 0;     // halvings
  uint32_t layers = 0;        // quality layers, 0: all
  bool is_strict = false;     // damage is a failure, instead of a note
  uint32_t threads = 0;       // 0: as many as there are processors
  uint64_t work_limit = 0;    // samples, as kv_j2k_set_limits; 0: the codec's own
  uint64_t sample_limit = 0;  // of a picture or layer; 0: none
  // What all decoding together may still cost, in the unit of kv_j2k_get_work; null: no limit.
  double* budget = nullptr;
};

// A part of the reference grid, right and bottom exclusive.
struct GridRectangle {
  uint64_t left, top, right, bottom;
};

class Codestream {
 public:
  // The bytes must outlive it. Throws an Error.
  Codestream(std::string_view bytes, const Effort& effort);

  const kv_j2k_codestream& header() const { return header_; }
  const kv_j2k_component& component(uint32_t index);
  uint32_t width() const { return header_.right - header_.left; }
  uint32_t height() const { return header_.bottom - header_.top; }

  struct Free {
    void operator()(kv_j2k_samples* samples) const { kv_j2k_free_samples(samples); }
  };
  using Samples = std::unique_ptr<kv_j2k_samples, Free>;
  // `reduction` must be one that the codestream has. Null, with a reason in `damage`, for what is
  // too damaged; in strict mode that is an Error.
  Samples decode(const GridRectangle& part, uint32_t reduction,
                 const std::vector<uint32_t>& components, std::string& damage);

 private:
  struct Destroy {
    void operator()(void* codec) const { kv_j2k_destroy(codec); }
  };
  [[noreturn]] void fail(int32_t code) const;

  Effort effort_;
  std::unique_ptr<void, Destroy> codec_;
  kv_j2k_codestream header_ = {};
  std::vector<kv_j2k_component> components_;  // size 0: not asked for so far
};

}  // namespace kvjpx_picture

#endif  // KVJPX_PICTURE_CODESTREAM_H_
