// The codec, which is loaded only when a picture is decoded.
//
// The library calls the codec's functions by name. The program defines them itself and passes each
// call on to the libkvj2k.so that it has loaded, which also lets it see what came of every
// codestream: the library composes a picture from whatever was delivered and does not tell.
#ifndef KVJPX_TOOLS_CODEC_LOADER_H_
#define KVJPX_TOOLS_CODEC_LOADER_H_

#include <string>

namespace kvjpx_tool {

// What the codec made of the codestreams given to it.
struct DecodingRecord {
  unsigned delivered = 0;
  unsigned failed = 0;
  // The codec's words for the last failure, also one of the final conversion; may be empty.
  std::string error;
};

// Loads the codec from beside the program or from where the system keeps libraries. Throws a
// Failure with kNothingDecoded when there is none.
void load_codec();

const DecodingRecord& decoding_record();

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_CODEC_LOADER_H_
