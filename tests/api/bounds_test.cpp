// What loading may cost, whatever the file: memory of at most a multiple of the file's length plus
// a constant, and work in proportion to the length. docs/memory.md works the multiple out.
//
// The work is counted, not timed: in allocations, and in the bytes of them all together, since
// every byte that the parser keeps is written once into a block that it asked for.

#include "box/test_document.h"

namespace kvjpx::test {
namespace {

constexpr size_t kDeepest = 256;
constexpr size_t kIndexEntry = 40;

// Loads a file, which must give the code within the bounds; the most memory that was in use.
size_t bounded_peak(const std::string& file, int32_t code = JPX_OK) {
  SCOPED_TRACE(file.substr(0, 40));
  TestContext context;
  EXPECT_EQ(context.load(file), code);
  EXPECT_LE(context.allocator().peak_bytes(), 49 * file.size() + 12288);
  EXPECT_LE(context.allocator().traffic(), 50 * file.size() + 12288);
  EXPECT_LE(context.allocator().allocations(), file.size() / 4 + 2 * kDeepest);
  return context.allocator().peak_bytes();
}

std::string repeated(size_t count, const std::string& part) {
  std::string result;
  while (count-- > 0) result += part;
  return result;
}

// The table of docs/memory.md; opaque boxes and containers stand for all of their kind.
TEST(Bounds, AnEmptyBoxCostsWhatTheDocumentSays) {
  const std::pair<const char*, size_t> costs[] = {
      {"pclr", 296}, {"rreq", 336}, {"colr", 304}, {"uuid", 232}, {"ftyp", 264}, {"inst", 256},
      {"creg", 256}, {"ulst", 256}, {"opct", 320}, {"url ", 216}, {"xml ", 216}, {"roid", 248},
      {"flst", 248}, {"cdef", 248}, {"cmap", 248}, {"nlst", 248}, {"bpcc", 248}, {"ihdr", 200},
      {"copt", 200}, {"resc", 200}, {"asoc", 192}, {"dtbl", 192}};
  for (const auto& [type, cost] : costs) {
    constexpr size_t kFew = 2560;  // full parts of the index
    const std::string few = in_parents(type, repeated(kFew, box(type)));
    const std::string many = in_parents(type, repeated(2 * kFew, box(type)));
    const size_t difference = bounded_peak(many) - bounded_peak(few) - (many.size() - few.size());
    if (sizeof(void*) != 8) continue;  // the sizes are those of 64-bit processors
    EXPECT_NEAR(difference, kFew * (cost + kIndexEntry), kFew) << type;
  }
}

// Long lists, counts and lengths that the content cannot hold, and boxes in boxes.
TEST(Bounds, HoldForFilesMadeToBeBad) {
  const auto palette = [](uint64_t entries, uint64_t columns, size_t values) {
    return be16(entries) + be8(columns) + std::string(columns, '\7') + std::string(values, 'v');
  };
  const std::string numbers(60000, 'n');
  const std::pair<std::string, std::string> lists[] = {
      {"ftyp", numbers},
      {"rreq", be8(0) + be16(30000) + numbers + be16(0)},  // features without masks
      {"inst", be16(1) + be16(0) + numbers},
      {"inst", be16(0x2B) + be16(0) + numbers},
      {"colr", bytes({2, 0, 0}) + numbers},
      {"pclr", palette(1024, 255, size_t{1024} * 255)},
      {"cmap", numbers},
      {"cdef", be16(10000) + numbers},
      {"opct", bytes({2, 255}) + std::string(255, 'c')},
      {"nlst", numbers},
      {"roid", bytes({255}) + std::string(size_t{255} * 19, 'r')},
      {"rreq", be8(255)},               // the masks count as zeros: there is no list to be made
      {"pclr", palette(0xFFFF, 0, 0)},  // entries without columns hold nothing
  };
  for (const auto& [type, payload] : lists) {
    bounded_peak(in_parents(type, repeated(payload.size() < 1000 ? 1000 : 1, box(type, payload))));
  }
  const std::pair<std::string, std::string> lies[] = {
      {"rreq", be8(0) + be16(0xFFFF)},
      {"rreq", be8(1) + be16(0) + be16(0) + be16(0xFFFF) + std::string(64, 'v')},
      {"pclr", palette(0xFFFF, 255, 0)},
      {"cdef", be16(0xFFFF) + be32(0)},
      {"flst", be16(0xFFFF) + be64(0)},
      {"ulst", be16(0xFFFF) + be64(0)},
  };
  for (const auto& [type, payload] : lies) {
    bounded_peak(in_parents(type, box(type, payload)), JPX_ERR_READ_PAST_END);
  }
  bounded_peak(be32(1) + "xml " + be64(uint64_t{1} << 63) + numbers, JPX_ERR_READ_PAST_END);
  // Lengths smaller than a header mean empty boxes, and do not stop the parse from moving on.
  bounded_peak(repeated(5000, be32(2) + "xml "));
  bounded_peak(repeated(50, nested("asoc", kDeepest)));
  bounded_peak(nested("asoc", kDeepest) + nested("asoc", kDeepest + 1), JPX_ERR_INVALID_ARGUMENT);
  // Containers that all reach to the end of the file.
  bounded_peak(repeated(kDeepest, be32(0) + "asoc"));
  bounded_peak(repeated(100000, be32(0) + "asoc"), JPX_ERR_INVALID_ARGUMENT);
  // A refused box ends its container early, and its parent reads on in the middle of it: no byte
  // may be read twice for that.
  const std::string refused = box("ihdr") + box("xml ");
  bounded_peak(box("jpch", repeated(5000, box("jpch", refused))));
  bounded_peak(nested("asoc", kDeepest, repeated(2000, refused)));
}

}  // namespace
}  // namespace kvjpx::test
