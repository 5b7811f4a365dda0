// What one handle holds: an input, the settings, and the output once it was asked for.
#ifndef KVJ2K_SESSION_H_
#define KVJ2K_SESSION_H_

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "codestream_header.h"
#include "decode.h"
#include "decode_samples.h"
#include "image.h"

namespace kvj2k {

class Session {
 public:
  struct Codestream {
    ByteView bytes;
    Bytes owned;  // empty when they are the caller's
    CodestreamHeader header;
    std::optional<CodestreamHeader> recovered;  // made when parts of it are asked for
    TileDecoders decoders;
  };

  // After a throw there is no input.
  void set_codestream(const uint8_t* data, size_t length);
  // Broken headers of tile-parts are no failure yet; they may not be needed.
  void borrow_codestream(const uint8_t* data, size_t length);
  void set_raw(const uint8_t* samples, uint32_t height, uint32_t width, uint32_t components);

  // The input's grid and number of components, those of raw samples included.
  struct Geometry {
    GridAxis x;
    GridAxis y;
    uint32_t components;
  };
  Geometry geometry() const;

  // Throws Failure (8).
  Codestream& codestream();
  SampleSetPointer decode_samples(const SampleRequest& request);

  // Changing a setting drops the output made with the old one.
  DecodeSettings& change_settings() {
    drop_output();
    return settings_;
  }
  void set_output_type(int32_t type) {
    drop_output();
    output_type_ = type;
  }

  // The finished output; made at the first call. Empty when there is nothing to deliver.
  const Bytes& output();

  // Of the last decoding.
  Cost work() const { return work_; }

  std::string error_text;

 private:
  void drop_output() {
    output_ = Bytes();
    has_output_ = false;
  }
  Bytes make_output();
  Codestream read_codestream(const uint8_t* data, size_t length);

  std::variant<std::monostate, Codestream, Image> input_;
  DecodeSettings settings_;
  int32_t output_type_ = KV_J2K_OUTPUT_PLANES;
  Bytes output_;
  bool has_output_ = false;
  Cost work_ = 0;
};

}  // namespace kvj2k

#endif  // KVJ2K_SESSION_H_
