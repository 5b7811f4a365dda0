// Takes inputs and makes outputs; what happens in between is decode.cpp's and encode.cpp's.
#include "session.h"

#include <limits>
#include <utility>

#include "encode.h"
#include "failure.h"

namespace kvj2k {
namespace {

GridAxis single_tile(uint32_t size) { return {0, size, 0, size}; }

// Product of three sizes; a picture that can't be in memory can't have been given either.
size_t checked_product(uint32_t a, uint32_t b, uint32_t c) {
  const uint64_t ab = uint64_t{a} * b;
  if (ab != 0 && c > std::numeric_limits<size_t>::max() / ab) {
    throw Failure(KV_J2K_ERR_INVALID_ARGUMENT, "the picture is larger than memory");
  }
  return static_cast<size_t>(ab * c);
}

}  // namespace

void Session::set_codestream(const uint8_t* data, size_t length) {
  drop_output();
  input_ = std::monostate();
  if (data == nullptr) throw Failure(KV_J2K_ERR_INVALID_ARGUMENT, "no codestream was given");
  CodestreamHeader header = read_codestream_header(data, length);
  settings_.limits.check(header.tile_cost + header.base_cost, length);
  input_ = Codestream{std::move(header), Bytes(data, data + length)};
}

void Session::set_raw(const uint8_t* samples, uint32_t height, uint32_t width,
                      uint32_t components) {
  drop_output();
  input_ = std::monostate();
  const size_t size = checked_product(height, width, components);
  if (samples == nullptr && size > 0) {
    throw Failure(KV_J2K_ERR_INVALID_ARGUMENT, "no samples were given");
  }
  Image image{width, height, components, Bytes()};
  if (size > 0) image.samples.assign(samples, samples + size);
  input_ = std::move(image);
}

Session::Geometry Session::geometry() const {
  if (const auto* codestream = std::get_if<Codestream>(&input_)) {
    const CodestreamHeader& header = codestream->header;
    return {header.x, header.y, static_cast<uint32_t>(header.components.size())};
  }
  if (const auto* image = std::get_if<Image>(&input_)) {
    return {single_tile(image->width), single_tile(image->height), image->components};
  }
  throw Failure(KV_J2K_ERR_NO_INPUT, "no input is set");
}

const Bytes& Session::output() {
  // Raw samples may be large, and as planes they are the output already.
  const auto* image = std::get_if<Image>(&input_);
  if (image != nullptr && output_type_ == KV_J2K_OUTPUT_PLANES) return image->samples;
  if (!has_output_) {
    output_ = make_output();
    has_output_ = true;
  }
  return output_;
}

Bytes Session::make_output() {
  if (const auto* codestream = std::get_if<Codestream>(&input_)) {
    Image picture = decode(codestream->bytes, codestream->header, settings_, &work_);
    if (output_type_ == KV_J2K_OUTPUT_PLANES) return std::move(picture.samples);
    return encode(picture, output_type_);
  }
  if (const auto* image = std::get_if<Image>(&input_)) return encode(*image, output_type_);
  throw Failure(KV_J2K_ERR_NO_INPUT, "no input is set");
}

}  // namespace kvj2k
