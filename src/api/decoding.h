// Decoding the image: every codestream through the codec library, composed into one image, which
// the codec turns into the chosen output type.
#ifndef KVJPX_API_DECODING_H_
#define KVJPX_API_DECODING_H_

#include "frame/context.h"

namespace kvjpx {

int32_t decode_to_memory(Context& context, void** data, uint64_t* length);
int32_t decode_to_file(Context& context, const char* path);

}  // namespace kvjpx

#endif  // KVJPX_API_DECODING_H_
