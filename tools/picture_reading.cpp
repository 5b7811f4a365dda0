#include "picture_reading.h"

#include <vector>

namespace kvjpx_tool {

using kvjpx_picture::Picture;

void set_region(kvjpx_picture::Request& request, kvjpx_picture::Rectangle region) {
  request.region.left = region.left;
  request.region.top = region.top;
  if (region.right != 0) request.region.right = region.right;
  if (region.bottom != 0) request.region.bottom = region.bottom;
}

void set_limit(kvjpx_picture::Request& request, uint64_t limit) {
  request.effort.work_limit = limit * kMillion;
  request.sample_limit = (limit != 0 ? limit : kDefaultDecodeLimit) * kMillion;
}

Failure decoding_failure(const std::string& label, const kvjpx_picture::Error& error,
                         const std::string& remedy) {
  using Kind = kvjpx_picture::Error::Kind;
  const std::string reason = error.what();
  const std::string nothing = label + ": nothing could be decoded: " + reason;
  switch (error.kind()) {
    case Kind::kMemory:
      return Failure(kInputOutput, label + ": " + reason);
    case Kind::kNoSuchPart:
      return Failure(kNoSuchPlace, label + ": " + reason);
    case Kind::kTooLarge:
      return Failure(kNothingDecoded, nothing + remedy);
    default:
      return Failure(kNothingDecoded, nothing);
  }
}

void read_all_rows(const OpenedFile& file, Picture& picture, const TakeRows& take) {
  const kvjpx_picture::Format& format = picture.format();
  std::vector<uint16_t> rows;
  for (uint32_t row = 0; row < format.height;) {
    const uint32_t count = picture.good_count(row);
    rows.resize(format.row_samples() * count);
    picture.read_rows(row, count, rows.data());
    file.release_memory();
    take(rows.data(), row, count);
    row += count;
  }
  if (picture.is_anything_there()) return;
  const std::string reason = picture.notes().empty() ? "" : ": " + picture.notes().back();
  throw Failure(kNothingDecoded, file.label() + ": nothing could be decoded" + reason);
}

}  // namespace kvjpx_tool
