#include "broken_tile.h"

#include <algorithm>

namespace kvj2k {
namespace {

// What is filled up refines code-blocks by what is most likely, which may be wrong. So a packet
// that would is left out when there is less of it than this part of the data.
constexpr size_t kSmallPart = 16;
// Nothing is filled up with more than so many times what is there, and a little.
constexpr size_t kMostFilling = 256;
constexpr size_t kLittle = 4096;

[[noreturn]] void give_up() {
  throw Failure(KV_J2K_ERR_BROKEN_CODESTREAM, "a packet of the tile is broken");
}

// Leaves out what there is of the packet's body and then, as its length is not known, of its
// header: as long as there is some of that, a packet without a body is found.
TileEnd without_packet(const BrokenPacket& first, size_t length, const FindShortage& shortage) {
  auto too_little = static_cast<size_t>(first.there);
  size_t too_much = length;
  for (size_t step = 1;; step *= 2) {
    const size_t half = too_little + (too_much - too_little) / 2;
    const size_t middle = too_much < length ? half : std::min(too_little + step, half);
    if (middle == too_little) break;
    const auto found = shortage({middle, 0});
    if (!found) return {middle, 0};
    (found->there == 0 ? too_little : too_much) = middle;
  }
  give_up();
}

// How much there is of the part of the body that lacks data.
size_t broken_part(const BrokenPacket& first, const FindShortage& shortage) {
  size_t same = 0;
  size_t other = static_cast<size_t>(std::min(first.needed, first.there)) + 1;
  while (other - same > 1) {
    const size_t middle = same + (other - same) / 2;
    const auto found = shortage({middle, 0});
    const bool is_same =
        found && found->code_block == first.code_block && found->needed == first.needed;
    (is_same ? same : other) = middle;
  }
  return same;
}

TileEnd with_filled_body(const BrokenPacket& first, size_t length, const FindShortage& shortage) {
  const size_t trimmed = broken_part(first, shortage);
  const auto lacks_still = [&](size_t padding) {
    const auto found = shortage({trimmed, padding});
    return found && found->there ==
                        first.there - static_cast<int64_t>(trimmed) + static_cast<int64_t>(padding);
  };
  size_t too_little = 0;
  size_t enough = static_cast<size_t>(first.needed);
  for (; lacks_still(enough); enough *= 2) {
    if (enough > kMostFilling * length + kLittle) give_up();
    too_little = enough;
  }
  while (enough - too_little > 1) {
    const size_t middle = too_little + (enough - too_little) / 2;
    (lacks_still(middle) ? too_little : enough) = middle;
  }
  return {trimmed, enough};
}

}  // namespace

TileEnd mended_end(const CutData& data, const FindShortage& shortage) {
  const auto there = static_cast<size_t>(data.packet.there);
  const bool is_left_out = there == 0 || (data.has_layers && there < data.length / kSmallPart);
  return is_left_out ? without_packet(data.packet, data.length, shortage)
                     : with_filled_body(data.packet, data.length, shortage);
}

}  // namespace kvj2k
