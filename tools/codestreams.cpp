// Finds codestreams: contents of boxes, and those that fragments make up (ISO/IEC 15444-2, M.11).
#include "codestreams.h"

#include <algorithm>
#include <cstring>

namespace kvjpx_tool {
namespace {

Codestream fragments_of(const OpenedFile& file, kvjpx::box table) {
  Codestream codestream{table, {}, true};
  const kvjpx::box list = table.child("flst");
  if (!list) codestream.is_whole = false;
  const uint64_t count = list ? list.count<kvjpx::flst::off>().value_or(0) : 0;
  for (uint64_t i = 0; i < count; ++i) {
    const auto offset = list.get<kvjpx::flst::off>(i);
    const auto length = list.get<kvjpx::flst::len>(i);
    const auto reference = list.get<kvjpx::flst::dr>(i);
    const uint64_t size = file.bytes().size();
    if (!offset || !length || !reference || *reference != KV_JPX_DR_THIS_FILE || *offset > size) {
      codestream.is_whole = false;
      return codestream;
    }
    codestream.source.add(file.bytes().substr(*offset, *length));
    if (*length > size - *offset) codestream.is_whole = false;
  }
  return codestream;
}

}  // namespace

void PiecesSource::add(std::string_view piece) {
  pieces_.push_back({size_, piece});
  size_ += piece.size();
}

bool PiecesSource::read(uint64_t offset, size_t length, uint8_t* to) {
  auto piece = std::upper_bound(pieces_.begin(), pieces_.end(), offset,
                                [](uint64_t wanted, const Piece& p) { return wanted < p.begin; });
  if (piece == pieces_.begin()) return length == 0;
  for (--piece; length > 0; ++piece) {
    if (piece == pieces_.end()) return false;
    const std::string_view part = piece->bytes.substr(offset - piece->begin, length);
    std::memcpy(to, part.data(), part.size());
    to += part.size();
    offset += part.size();
    length -= part.size();
  }
  return true;
}

std::vector<Codestream> codestreams_of(const OpenedFile& file) {
  std::vector<Codestream> codestreams;
  if (file.is_codestream()) {
    codestreams.emplace_back();
    codestreams.back().source.add(file.bytes());
  }
  for (const kvjpx::box box : file.document().root().children()) {
    if (box.type() == kvjpx::type("ftbl")) {
      codestreams.push_back(fragments_of(file, box));
    } else if (box.type() == kvjpx::type("jp2c")) {
      codestreams.push_back({box, {}, true});
      const auto content = box.source_content();
      if (content) codestreams.back().source.add(content->text());
    }
  }
  return codestreams;
}

}  // namespace kvjpx_tool
