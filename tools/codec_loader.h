// The codec, which is loaded only when a picture is decoded.
//
// The library and picture/ call the codec's functions by name. The program, and for picture/ the
// library kvjpx-tools, define them and pass each call on to the libkvj2k.so that they have loaded.
// The program sees thereby what came of every codestream, too: the library composes a picture from
// whatever was delivered and does not tell.
#ifndef KVJPX_TOOLS_CODEC_LOADER_H_
#define KVJPX_TOOLS_CODEC_LOADER_H_

#include <cstdint>
#include <string>

namespace kvjpx_tool {

// What a file may cost. Work is counted as kv_j2k_set_limits does, in samples.
struct DecodingLimit {
  uint64_t work = 0;  // of all codestreams together, and samples of the composed picture
  uint64_t free = 0;  // work of a codestream that its length need not justify
  // Samples in each plane of the composed picture. (The library makes as many planes as a
  // codestream has components.)
  uint64_t plane_size = 0;
};

// What the codec made of the codestreams given to it.
struct DecodingRecord {
  unsigned delivered = 0;
  unsigned failed = 0;
  // KV_J2K_ERR_LIMIT or KV_J2K_ERR_MEMORY when one of them ended the whole decoding.
  int32_t stopped_by = 0;
  // The codec's words for the last failure, also one of the final conversion; may be empty.
  std::string error;
};

// Loads the codec from beside the program or from where the system keeps libraries. Throws a
// Failure with kNothingDecoded when there is none.
void load_codec(const DecodingLimit& limit);

// The same for the codec's own interface (kv_j2k_samples.h), which is then called without a limit
// or record of the program's, by any number of threads.
void load_sample_codec();

const DecodingRecord& decoding_record();

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_CODEC_LOADER_H_
