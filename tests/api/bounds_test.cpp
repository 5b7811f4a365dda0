// What loading may cost, whatever the file: memory of at most a multiple of the file's length plus
// a constant, and work in proportion to the length. docs/memory.md works the multiple out.
//
// The work is counted, not timed: in allocations, and in the bytes of them all together, since
// every byte that the parser keeps is written once into a block that it asked for.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <vector>

#include "kvjpx.h"
#include "support/bytes.h"

namespace kvjpx::test {
namespace {

constexpr size_t kPeakPerByte = 67;
constexpr size_t kTrafficPerByte = 73;
constexpr size_t kConstant = 24576;
constexpr size_t kDeepest = 256;
constexpr size_t kIndexEntry = 56;

struct Cost {
  int32_t code = 0;
  size_t live = 0;
  size_t peak = 0;
  size_t allocations = 0;
  size_t traffic = 0;  // bytes of all allocations
};

// A size stands in front of every block.
void* allocate(void* user_data, size_t size) {
  auto& cost = *static_cast<Cost*>(user_data);
  auto* const block = static_cast<std::max_align_t*>(malloc(sizeof(std::max_align_t) + size));
  *reinterpret_cast<size_t*>(block) = size;
  cost.live += size;
  cost.peak = std::max(cost.peak, cost.live);
  ++cost.allocations;
  cost.traffic += size;
  return block + 1;
}

void release(void* user_data, void* block) {
  auto* const start = static_cast<std::max_align_t*>(block) - 1;
  static_cast<Cost*>(user_data)->live -= *reinterpret_cast<size_t*>(start);
  free(start);
}

Cost cost_of_loading(const std::string& file) {
  Cost cost;
  kv_jpx_context* context = nullptr;
  EXPECT_EQ(kv_jpx_create_with_memory_manager(&context, &cost, allocate, release), JPX_OK);
  cost.code = kv_jpx_set_input_image(context, file.data(), file.size());
  const Cost result = cost;
  kv_jpx_destroy(context);
  return result;
}

void expect_bounded(const std::string& file, int32_t code = JPX_OK) {
  SCOPED_TRACE(file.substr(0, 40));
  const Cost cost = cost_of_loading(file);
  EXPECT_EQ(cost.code, code);
  EXPECT_LE(cost.peak, kPeakPerByte * file.size() + kConstant);
  EXPECT_LE(cost.traffic, kTrafficPerByte * file.size() + kConstant);
  EXPECT_LE(cost.allocations, file.size() / 2 + 2 * kDeepest);
}

std::string repeated(size_t count, const std::string& part) {
  std::string result;
  while (count-- > 0) result += part;
  return result;
}

// Content inside a box of each type, the first outermost; none for the top level.
std::string inside(const std::vector<std::string>& types, std::string content) {
  for (auto type = types.rbegin(); type != types.rend(); ++type) content = box(*type, content);
  return content;
}

struct EmptyBox {
  const char* type;
  std::vector<std::string> parents;
  size_t cost;  // the record with its block header of 32 bytes
};

// The table of docs/memory.md.
const EmptyBox kEmptyBoxes[] = {
    {"ftyp", {}, 224},       {"rreq", {}, 256},       {"ihdr", {"jp2h"}, 200},
    {"bpcc", {"jp2h"}, 208}, {"colr", {"jp2h"}, 240}, {"pclr", {"jp2h"}, 472},
    {"cmap", {"jp2h"}, 208}, {"cdef", {"jp2h"}, 208}, {"resc", {"jp2h", "res "}, 200},
    {"opct", {"jplh"}, 216}, {"creg", {"jplh"}, 216}, {"copt", {"comp"}, 200},
    {"inst", {"comp"}, 216}, {"flst", {"comp"}, 208}, {"url ", {"uinf"}, 216},
    {"nlst", {"asoc"}, 208}, {"roid", {}, 208},       {"ulst", {"uinf"}, 216},
    {"uuid", {}, 232},       {"xml ", {}, 216},       {"asoc", {}, 192},
    {"dtbl", {}, 192},
};

TEST(Bounds, AnEmptyBoxCostsWhatTheDocumentSays) {
  for (const EmptyBox& each : kEmptyBoxes) {
    constexpr size_t kFew = 2560;  // full parts of the index
    const std::string few = inside(each.parents, repeated(kFew, box(each.type)));
    const std::string many = inside(each.parents, repeated(2 * kFew, box(each.type)));
    expect_bounded(many);
    if (sizeof(void*) != 8) continue;  // the sizes are those of 64-bit processors
    const size_t copy = many.size() - few.size();
    const size_t records = cost_of_loading(many).peak - cost_of_loading(few).peak - copy;
    EXPECT_NEAR(records, kFew * (each.cost + kIndexEntry), kFew) << each.type;
  }
}

// 255 columns of a byte each, and a full palette.
std::string palette(uint64_t entries, uint64_t columns, size_t values) {
  return box("pclr",
             be16(entries) + be8(columns) + std::string(columns, '\7') + std::string(values, 'v'));
}

TEST(Bounds, LongLists) {
  const std::string numbers(60000, 'n');
  const std::string files[] = {
      box("ftyp", numbers),
      box("rreq", be8(0) + be16(30000) + numbers + be16(0)),  // features without masks
      inside({"comp"}, box("inst", be16(1) + be16(0) + numbers)),
      inside({"comp"}, box("inst", be16(0x2B) + be16(0) + numbers)),
      inside({"jp2h"}, box("colr", bytes({2, 0, 0}) + numbers)),
      inside({"jp2h"}, palette(1024, 255, size_t{1024} * 255)),
      inside({"jp2h"}, box("cmap", numbers)),
      inside({"jp2h"}, box("cdef", be16(10000) + numbers)),
      inside({"jplh"}, repeated(200, box("opct", bytes({2, 255}) + std::string(255, 'c')))),
      inside({"asoc"}, box("nlst", numbers)),
      repeated(100, box("roid", bytes({255}) + std::string(size_t{255} * 19, 'r'))),
  };
  for (const std::string& file : files) expect_bounded(file);
}

TEST(Bounds, CountsThatTheContentCannotHold) {
  constexpr uint64_t kMost = 0xFFFF;
  const std::string lies[] = {
      box("rreq", be8(0) + be16(kMost)),
      box("rreq", be8(1) + be16(0) + be16(0) + be16(kMost) + std::string(64, 'v')),
      inside({"jp2h"}, palette(kMost, 255, 0)),
      inside({"jp2h"}, box("cdef", be16(kMost) + be32(0))),
      inside({"jplh"}, box("opct", bytes({2, 255, 0}))),
      inside({"comp"}, box("flst", be16(kMost) + be64(0))),
      box("roid", be8(255) + be64(0)),
      inside({"uinf"}, box("ulst", be16(kMost) + be64(0))),
  };
  for (const std::string& lie : lies) expect_bounded(lie, JPX_ERR_READ_PAST_END);
  // What a mask length alone promises counts as zeros: there is no list to be made for it.
  expect_bounded(box("rreq", be8(255)));
  // Entries of a palette without columns hold nothing, however many are announced.
  expect_bounded(inside({"jp2h"}, repeated(1000, palette(0xFFFF, 0, 0))));
}

TEST(Bounds, LengthsThatReachPastTheEnd) {
  const std::string padding(1000, 'p');
  const std::string long_form = be32(1) + "xml ";
  const std::string lies[] = {
      be32(0xFFFFFFFF) + "xml " + padding,
      long_form + be64(uint64_t{1} << 63) + padding,
      long_form + be64(~uint64_t{0}) + padding,
      inside({"asoc"}, be32(2000) + "xml " + padding) + padding,
      inside({"jp2h"}, be32(2000) + "colr" + padding) + padding,
  };
  for (const std::string& lie : lies) expect_bounded(lie, JPX_ERR_READ_PAST_END);
  // Lengths smaller than a header mean empty boxes, and do not stop the parse from moving on.
  expect_bounded(repeated(5000, be32(2) + "xml "));
}

std::string tower(size_t height) {
  return inside(std::vector<std::string>(height, "asoc"), std::string());
}

TEST(Bounds, DeepNesting) {
  expect_bounded(repeated(50, tower(kDeepest)));
  expect_bounded(tower(kDeepest) + tower(kDeepest + 1), JPX_ERR_INVALID_ARGUMENT);
  // Containers that all reach to the end of the file.
  expect_bounded(repeated(kDeepest, be32(0) + "asoc"));
  expect_bounded(repeated(100000, be32(0) + "asoc"), JPX_ERR_INVALID_ARGUMENT);
}

// A refused box ends its container early, and its parent reads on in the middle of it: no byte may
// be read twice for that.
TEST(Bounds, RefusedBoxes) {
  const std::string refused = box("ihdr");
  expect_bounded(inside({"jpch"}, repeated(5000, inside({"jpch"}, refused + box("xml ")))));
  expect_bounded(
      inside(std::vector<std::string>(kDeepest, "asoc"), repeated(2000, refused + box("xml "))));
}

}  // namespace
}  // namespace kvjpx::test
