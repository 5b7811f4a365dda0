// OpenJPEG's objects as owned handles, and the settings that decoding and encoding share.
#ifndef KVJ2K_OPJ_H_
#define KVJ2K_OPJ_H_

#include <openjpeg.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>

#include "failure.h"
#include "image.h"

namespace kvj2k {

template <auto destroy>
struct Destroyer {
  template <typename Object>
  void operator()(Object* object) const {
    destroy(object);
  }
};
using OpjCodec = std::unique_ptr<opj_codec_t, Destroyer<&opj_destroy_codec>>;
using OpjStream = std::unique_ptr<opj_stream_t, Destroyer<&opj_stream_destroy>>;
using OpjImage = std::unique_ptr<opj_image_t, Destroyer<&opj_image_destroy>>;

// Throws std::bad_alloc when OpenJPEG could not make an object.
template <typename Owner, typename Object>
Owner owned(Object* object) {
  if (object == nullptr) throw std::bad_alloc();
  return Owner(object);
}

// Collects OpenJPEG's error messages, which would go nowhere otherwise.
class OpjMessages {
 public:
  // The collector must outlive the codec.
  void listen_to(opj_codec_t* codec);
  // `code` unless OpenJPEG complained of short memory.
  Failure failure(kv_j2k_error code, const std::string& what) const;

 private:
  static void add(const char* message, void* messages);
  std::string text_;
};

void use_all_cores(opj_codec_t* codec);

// The source's and the target's memory must outlive the stream.
struct MemorySource {
  const uint8_t* data;
  size_t length;
  size_t position;
};
OpjStream open_source(MemorySource& source);

struct MemoryTarget {
  Bytes bytes;
  size_t position;
};
OpjStream open_target(MemoryTarget& target);

}  // namespace kvj2k

#endif  // KVJ2K_OPJ_H_
