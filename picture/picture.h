// The picture that a JP2 or JPX file, or a bare codestream, means (ISO/IEC 15444-1, Annex I;
// 15444-2, Annex M), read strip by strip.
//
// The codec is called by the names of kv_j2k.h and kv_j2k_samples.h: whoever links this brings
// libkvj2k, or functions that pass the calls on.
#ifndef KVJPX_PICTURE_PICTURE_H_
#define KVJPX_PICTURE_PICTURE_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "codestream.h"
#include "error.h"
#include "format.h"
#include "kvjpx.hpp"
#include "layer.h"

namespace kvjpx_picture {

// What to show: at most one of layer, codestream and frame. Without any, the first frame of a file
// that composes its layers, or else layer 0.
struct Request {
  std::optional<uint64_t> layer;
  std::optional<uint64_t> codestream;  // its components as they are, without the file's boxes
  std::optional<uint64_t> frame;
  Rectangle region;  // in the picture at full resolution
  Effort effort;
  bool to_srgb = false;
  bool all_frames = false;  // they are to be read one after another (select_frame)
  // Samples of all that is to be read; decoding may cost some times as much work. 0: no limit.
  uint64_t sample_limit = 0;
};

class Picture {
 public:
  // Both must outlive the picture; `bytes` are the whole file, and the document's source
  // (kvjpx::document::set_source). Throws an Error.
  Picture(const kvjpx::document& document, std::string_view bytes, const Request& request);
  ~Picture();
  Picture(Picture&&) noexcept;

  const Format& format() const;
  // Brings the samples to what a file format can hold: `wanted` as fit() of writer.h gave it for
  // this picture's format. Throws an Error for what can't be done.
  void convert(const Format& wanted);

  // Rows `first` to `first + count` - 1, in any order; those from top to bottom in steps of
  // good_count are quickest. Throws an Error.
  void read_rows(uint32_t first, uint32_t count, uint16_t* out);
  uint32_t good_count(uint32_t first) const;
  // Whether something could be decoded of the rows that have been read. Where it could not, they
  // are grey.
  bool is_anything_there() const;

  // What must be said to whoever looks at it; reading may add to it.
  const std::vector<std::string>& notes() const;

  // The frames that the file composes, with the time that each is shown; one of 0 for a still
  // picture.
  const std::vector<uint32_t>& frame_milliseconds() const;
  uint32_t repetitions() const;  // 0: for ever
  // Goes to another frame, in the same format.
  void select_frame(size_t frame);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kvjpx_picture

#endif  // KVJPX_PICTURE_PICTURE_H_
