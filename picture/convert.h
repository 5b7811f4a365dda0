// A picture in another format of samples.
#ifndef KVJPX_PICTURE_CONVERT_H_
#define KVJPX_PICTURE_CONVERT_H_

#include <memory>
#include <vector>

#include "colour.h"
#include "rows.h"

namespace kvjpx_picture {

// What `format` is with its colours made sRGB: red, green and blue, or grey for grey.
Format srgb_of(Format format);

// `to` may have another depth; colours of sRGB (is_srgb) for any of `from`, or of one channel more
// or less between grey and RGB; no opacity or opacity of the other kind.
class ConvertedRows final : public Rows {
 public:
  ConvertedRows(std::unique_ptr<Rows> from, const Format& to);

  void read(uint32_t first, uint32_t count, uint16_t* out) override;
  uint32_t good_count(uint32_t first) const override { return from_->good_count(first); }

 private:
  void convert_row(const uint16_t* in, uint16_t* out);
  void scale_in(const uint16_t* in);
  void convert_colours();

  std::unique_ptr<Rows> from_;
  bool converts_colours_;
  bool is_deep_;  // works with 16 bits a sample
  DepthMap in_;   // from the depth of `from` to that of the work
  DepthMap out_;
  DepthMap straight_;  // from the depth of `from` to that of `to`
  std::unique_ptr<ToSrgb> to_srgb_;
  std::vector<uint16_t> strip_;
  std::vector<uint16_t> colours_;  // of a row, 16 bits
  std::vector<uint16_t> rgb_;
};

}  // namespace kvjpx_picture

#endif  // KVJPX_PICTURE_CONVERT_H_
