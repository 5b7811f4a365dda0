// The codestreams of a file, wherever their bytes are.
#ifndef KVJPX_TOOLS_CODESTREAMS_H_
#define KVJPX_TOOLS_CODESTREAMS_H_

#include <cstdint>
#include <string_view>
#include <vector>

#include "codestream/codestream.h"
#include "opened_file.h"

namespace kvjpx_tool {

// A codestream in one or several pieces of a file, which must outlive it.
class PiecesSource final : public kvjpx_codestream::Source {
 public:
  void add(std::string_view piece);
  uint64_t size() const override { return size_; }
  bool read(uint64_t offset, size_t length, uint8_t* to) override;

 private:
  struct Piece {
    uint64_t begin;  // in the codestream
    std::string_view bytes;
  };
  std::vector<Piece> pieces_;
  uint64_t size_ = 0;
};

struct Codestream {
  kvjpx::box box;  // jp2c or ftbl; no box for a bare codestream
  PiecesSource source;
  bool is_whole = true;  // false: fragments are elsewhere, or are not there
};

// In the order by which a file numbers them.
std::vector<Codestream> codestreams_of(const OpenedFile& file);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_CODESTREAMS_H_
