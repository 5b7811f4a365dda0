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

Session::Codestream Session::read_codestream(const uint8_t* data, size_t length) {
  drop_output();
  input_ = std::monostate();
  if (data == nullptr) throw Failure(KV_J2K_ERR_INVALID_ARGUMENT, "no codestream was given");
  Codestream codestream;
  codestream.bytes = {data, length};
  codestream.header = read_codestream_header(codestream.bytes);
  return codestream;
}

void Session::set_codestream(const uint8_t* data, size_t length) {
  drop_output();
  input_ = std::monostate();
  Bytes owned;
  if (data != nullptr) owned.assign(data, data + length);
  Codestream codestream = read_codestream(data != nullptr ? owned.data() : nullptr, length);
  const CodestreamHeader& header = codestream.header;
  if (!header.chain_failure.empty()) {
    throw Failure(KV_J2K_ERR_BROKEN_CODESTREAM, header.chain_failure);
  }
  settings_.limits.check(header.tile_cost + header.base_cost, length);
  codestream.owned = std::move(owned);
  input_ = std::move(codestream);
}

void Session::borrow_codestream(const uint8_t* data, size_t length) {
  Codestream codestream = read_codestream(data, length);
  settings_.limits.check(codestream.header.tile_cost + codestream.header.base_cost, length);
  input_ = std::move(codestream);
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

Session::Codestream& Session::codestream() {
  if (auto* codestream = std::get_if<Codestream>(&input_)) return *codestream;
  throw Failure(KV_J2K_ERR_NO_INPUT, "no codestream is set");
}

SampleSetPointer Session::decode_samples(const SampleRequest& request) {
  Codestream& input = codestream();
  const CodestreamHeader* header = &input.header;
  if (request.is_partial && !header->is_chain_whole) {
    if (!input.recovered) {
      input.recovered = read_codestream_header(input.bytes, Chain::kRecovered);
    }
    header = &*input.recovered;
  }
  return kvj2k::decode_samples({input.bytes, *header, settings_.limits}, request, input.decoders,
                               &work_);
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
    if (!codestream->header.chain_failure.empty()) {
      throw Failure(KV_J2K_ERR_BROKEN_CODESTREAM, codestream->header.chain_failure);
    }
    Image picture = decode(codestream->bytes, codestream->header, settings_, &work_);
    if (output_type_ == KV_J2K_OUTPUT_PLANES) return std::move(picture.samples);
    return encode(picture, output_type_);
  }
  if (const auto* image = std::get_if<Image>(&input_)) return encode(*image, output_type_);
  throw Failure(KV_J2K_ERR_NO_INPUT, "no input is set");
}

}  // namespace kvj2k
