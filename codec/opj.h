// OpenJPEG's objects as owned handles, and the settings that decoding and encoding share.
#ifndef KVJ2K_OPJ_H_
#define KVJ2K_OPJ_H_

#include <openjpeg.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

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
  // From then on a warning is noted, too.
  void note_warnings_of(opj_codec_t* codec);
  bool has_warning() const { return has_warning_; }
  // `code` unless OpenJPEG complained of short memory.
  Failure failure(kv_j2k_error code, const std::string& what) const;

 private:
  static void add(const char* message, void* messages);
  static void note_warning(const char* message, void* messages);
  std::string text_;
  bool has_warning_ = false;
};

// A packet whose body needs more data than there are.
struct BrokenPacket {
  int64_t needed = 0;      // by a part of the body
  int64_t there = 0;       // of the body
  std::string code_block;  // whose part it is
};
// Nothing when OpenJPEG failed for another reason.
std::optional<BrokenPacket> broken_packet(const Failure& failure);

// 0: as many as there are processors.
uint32_t thread_count(uint32_t asked);
void use_threads(opj_codec_t* codec, uint32_t count);

// A codestream put together of pieces.
class Source {
 public:
  void append(ByteView piece);  // whose bytes must outlive it
  void append(Bytes piece);

  size_t length() const { return length_; }
  // Returns how many bytes there were, up to `size`.
  size_t read(uint8_t* to, size_t size);
  size_t skip(size_t distance);
  bool seek(size_t position);

 private:
  struct Piece {
    size_t begin;
    ByteView bytes;
  };
  std::vector<Piece> pieces_;
  std::vector<Bytes> owned_;
  size_t length_ = 0;
  size_t position_ = 0;
};

// The source's and the target's memory must outlive the stream.
OpjStream open_source(Source& source);

struct MemoryTarget {
  Bytes bytes;
  size_t position;
};
OpjStream open_target(MemoryTarget& target);

}  // namespace kvj2k

#endif  // KVJ2K_OPJ_H_
