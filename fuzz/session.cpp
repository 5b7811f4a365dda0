// Fuzzed contexts and the promises of a loaded file (see session.h).
#include "session.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>

#include "box/super.h"

namespace kvjpx::fuzz {
namespace {

// A descriptor that is left open moves this number.
int lowest_free_descriptor() {
  const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(descriptor);
  return descriptor;
}

struct Rendered {
  int32_t code;
  Bytes bytes;
};

Rendered render(const Session& session) {
  void* data = nullptr;
  uint64_t length = 0;
  Rendered result = {session.judged(kv_jpx_get_output_image(session.get(), &data, &length)), {}};
  if (result.code != JPX_OK || data == nullptr) return result;
  const auto* const bytes = static_cast<const uint8_t*>(data);
  result.bytes.assign(bytes, bytes + length);
  require(kv_jpx_free(session.get(), data) == JPX_OK, "an output block can be freed");
  return result;
}

// A palette's length and the size that it is written with differ on purpose: writers that place
// boxes by their length depend on it. Opaque boxes of that type (misplaced ones) are written as
// they are, and have no such field.
bool is_palette(const Session& session, const BoxInfo& box) {
  uint64_t value;
  return box.type == code("pclr") &&
         kv_jpx_get_box_field_int(session.get(), box.id, JPX_FIELD_PCLR_NE, 0, &value) == JPX_OK;
}

bool holds_palette(const Session& session, const std::vector<BoxInfo>& boxes) {
  return std::any_of(boxes.begin(), boxes.end(),
                     [&](const BoxInfo& box) { return is_palette(session, box); });
}

// Written forms that are not read back as the same tree, on purpose:
//  - palettes, see above
//  - cref and dtbl containers: one that was read is written without the field in front of its
//    boxes, so the start of the first box is taken for that field
//  - boxes whose type is the root's: the root is known by its type, and has no header to be written
bool is_written_as_read(const Session& session, const BoxInfo& box) {
  const bool loses_a_field =
      box.is_container && (box.type == code("cref") || box.type == code("dtbl"));
  return !loses_a_field && box.type != KV_JPX_ROOT && !is_palette(session, box);
}

void check_reload(const Rendered& rendered, const std::vector<BoxInfo>& boxes) {
  Session again;
  require(again.load(rendered.bytes) == JPX_OK, "a rendered tree loads again");
  require(have_same_shape(boxes, walk(again)), "a rendered tree loads as the same tree");
  require(render(again).bytes == rendered.bytes, "a rendered tree renders to the same bytes");
}

void check_rendering(const Session& session, const std::vector<BoxInfo>& boxes) {
  Box* const root = session.get()->root;
  const uint64_t length = root->box_length(root);
  const bool has_palette = holds_palette(session, boxes);
  const bool comes_back = std::all_of(boxes.begin(), boxes.end(), [&](const BoxInfo& box) {
    return is_written_as_read(session, box);
  });
  const Rendered rendered = render(session);
  if (rendered.code == JPX_ERR_MEMORY) return;
  if (has_palette && rendered.code == JPX_ERR_BUFFER_TOO_SMALL) return;
  require(rendered.code == JPX_OK, "a loaded tree renders");
  require(rendered.bytes.size() == length || has_palette, "a tree renders to its own box_length");
  if (comes_back) check_reload(rendered, boxes);
}

}  // namespace

Treatment take_treatment(Input& input) {
  if (input.is_empty() || *input.data() == 0) return {};
  constexpr Source kSources[] = {Source::kMemory, Source::kFile, Source::kMapped};
  Treatment result;
  result.source = kSources[input.byte() % 3];
  result.failing_allocation = input.number(2);
  return result;
}

DiskFile::DiskFile(const Bytes& contents) {
  const int descriptor = mkstemp(path_);
  const ssize_t written = write(descriptor, contents.data(), contents.size());
  require(written == static_cast<ssize_t>(contents.size()), "(the machine can hold the file)");
  close(descriptor);
}

DiskFile::~DiskFile() { unlink(path_); }

Bytes DiskFile::contents() const {
  std::ifstream stream(path_, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(stream), {});
}

Session::Session(size_t failing_allocation)
    : allocator_(failing_allocation), lowest_free_descriptor_(lowest_free_descriptor()) {
  const int32_t code = kv_jpx_create_with_memory_manager(&context_, &allocator_,
                                                         Allocator::allocate, Allocator::release);
  require((code == JPX_OK) == (context_ != nullptr), "a context comes with code 0");
  require(code == JPX_OK || (code == JPX_ERR_MEMORY && allocator_.has_failed()),
          "only memory keeps a context from being made");
}

Session::~Session() {
  if (context_ != nullptr) require(kv_jpx_destroy(context_) == JPX_OK, "a context can be ended");
  require(allocator_.live_blocks() == 0, "every block is released at destroy");
  require(lowest_free_descriptor() == lowest_free_descriptor_, "no descriptor is left open");
}

int32_t Session::load(const Bytes& file) {
  return judged(kv_jpx_set_input_image(context_, file.data(), file.size()));
}

int32_t Session::load(const char* path, Source source) {
  return judged(source == Source::kFile ? kv_jpx_set_input_image_file(context_, path)
                                        : kv_jpx_set_input_image_mapped(context_, path));
}

int32_t Session::judged(int32_t code) const {
  require(code != JPX_ERR_MEMORY || allocator_.has_failed(), "code 1 means that memory failed");
  // Searches by type go on without the memory that makes them fast.
  require(!allocator_.has_failed() || code == JPX_ERR_MEMORY || code == JPX_ERR_NO_INPUT ||
              !is_spent(&context_->environment),
          "memory that failed and was needed means code 1, and no input from then on");
  require(code != JPX_ERR_INTERNAL, "nothing here uses a stream wrongly");
  if (is_spent(&context_->environment)) {
    uint32_t count;
    require(code != JPX_OK, "a success does not end the input");
    require(kv_jpx_get_box_count_by_type(context_, 0, &count) == JPX_ERR_NO_INPUT,
            "a context that lost its input says so");
  }
  return code;
}

std::vector<BoxInfo> walk(const Session& session) {
  kv_jpx_context* const context = session.get();
  std::vector<BoxInfo> result;
  std::vector<BoxInfo> open = {{KV_JPX_ROOT, KV_JPX_ROOT, KV_JPX_ROOT, 0, true}};
  std::set<uint32_t> seen;
  uint32_t next = KV_JPX_ROOT;
  if (kv_jpx_get_first_child_box_id(context, KV_JPX_ROOT, &next) != JPX_OK) return result;
  while (!open.empty()) {
    if (next == KV_JPX_ROOT) {
      // The end of a container: on behind it.
      const uint32_t container = open.back().id;
      open.pop_back();
      if (open.empty()) break;
      require(kv_jpx_get_next_box_id(context, container, &next) == JPX_OK, "siblings are found");
      continue;
    }
    BoxInfo box = {next, 0, open.back().id, static_cast<uint32_t>(open.size() - 1), false};
    uint8_t is_container = 0;
    require(seen.insert(box.id).second, "identifiers are unique");
    require(kv_jpx_get_box_type_by_id(context, box.id, &box.type) == JPX_OK, "boxes are found");
    require(kv_jpx_is_box_super(context, box.id, &is_container) == JPX_OK, "boxes are found");
    box.is_container = is_container != 0;
    result.push_back(box);
    if (box.is_container && kv_jpx_get_first_child_box_id(context, box.id, &next) == JPX_OK) {
      require(open.size() <= kMaxDepth, "nesting is limited");
      open.push_back(box);
    } else {
      require(kv_jpx_get_next_box_id(context, box.id, &next) == JPX_OK, "siblings are found");
    }
  }
  return result;
}

bool have_same_shape(const std::vector<BoxInfo>& a, const std::vector<BoxInfo>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const BoxInfo& x, const BoxInfo& y) {
    return x.type == y.type && x.depth == y.depth && x.is_container == y.is_container;
  });
}

void check_lookup(const Session& session, const std::vector<BoxInfo>& boxes) {
  std::set<uint32_t> types;
  for (const BoxInfo& box : boxes) types.insert(box.type);
  types.erase(KV_JPX_ROOT);  // the root itself counts among those
  for (const uint32_t type : types) {
    std::vector<uint32_t> expected;
    uint32_t count = 0;
    for (const BoxInfo& box : boxes) {
      if (box.type != type) continue;
      ++count;
      if (box.id != 0) expected.push_back(box.id);  // identifier 0 is reached by walking only
    }
    std::sort(expected.begin(), expected.end());
    std::vector<uint32_t> found;
    uint32_t id = 0;
    while (kv_jpx_get_next_box_id_by_type(session.get(), type, id, &id) == JPX_OK) {
      found.push_back(id);
    }
    require(found == expected, "finding by type finds every box once");
    uint32_t counted = 0;
    require(
        kv_jpx_get_box_count_by_type(session.get(), type, &counted) == JPX_OK && counted == count,
        "counting by type counts every box");
  }
}

size_t memory_bound(size_t n) { return 49 * n + 12288; }

void check_tree(const Session& session) {
  const std::vector<BoxInfo> boxes = walk(session);
  check_lookup(session, boxes);
  require(kv_jpx_print_box(session.get(), KV_JPX_ROOT) == JPX_OK, "a tree can be printed");
  check_rendering(session, boxes);
}

void check_output_file(const Session& session, const DiskFile& file) {
  if (session.get()->root == nullptr || holds_palette(session, walk(session))) return;
  const Bytes before = file.contents();
  const Rendered rendered = render(session);
  if (rendered.code != JPX_OK) return;
  const bool is_written =
      session.judged(kv_jpx_get_output_image_file(session.get(), file.path())) == JPX_OK;
  require(file.contents() == (is_written ? rendered.bytes : before),
          "a file is written as a whole or stays as it was");
}

void check_file(const Bytes& file) {
  Session session;
  if (session.load(file) == JPX_OK) check_tree(session);
}

}  // namespace kvjpx::fuzz
