// Decodes samples as they were coded, tile by tile.
#ifndef KVJ2K_DECODE_SAMPLES_H_
#define KVJ2K_DECODE_SAMPLES_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "area_decoder.h"
#include "codestream_header.h"
#include "kv_j2k_samples.h"
#include "work_limits.h"

namespace kvj2k {

// OpenJPEG's memory, so that what it decodes need not be copied.
using SampleBuffer = std::unique_ptr<int32_t[], Destroyer<&opj_image_data_free>>;

// What kv_j2k_decode_samples delivers, with everything that its pointers point to.
struct SampleSet : kv_j2k_samples {
  std::vector<kv_j2k_plane> all_planes;
  std::vector<SampleBuffer> buffers;  // one for each plane
  std::vector<uint32_t> missing_numbers;
  std::string missing_words;
};
using SampleSetPointer = std::unique_ptr<SampleSet>;

struct SampleRequest {
  Area area;  // not empty and within the image area
  uint32_t reduction = 0;
  uint32_t layers = 0;
  uint32_t threads = 0;
  bool is_partial = false;
  std::vector<uint32_t> components;  // ascending; not empty
};

struct SampleInput {
  ByteView codestream;
  const CodestreamHeader& header;
  Limits limits;
};

// Decoders of tiles that a request left unfinished, for the next one. They belong to one header.
using TileDecoders = std::map<uint32_t, std::unique_ptr<AreaDecoder>>;

// `work` receives what was spent on it, before it is spent. Throws Failure.
SampleSetPointer decode_samples(const SampleInput& input, const SampleRequest& request,
                                TileDecoders& decoders, Cost* work);

}  // namespace kvj2k

#endif  // KVJ2K_DECODE_SAMPLES_H_
