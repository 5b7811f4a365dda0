// The loops (see loops.h).
#include "loops.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <random>

namespace {

constexpr uint32_t kAsoc = KV_JPX_TYPE('a', 's', 'o', 'c');
constexpr uint32_t kFree = KV_JPX_TYPE('f', 'r', 'e', 'e');
constexpr uint32_t kAbsent = KV_JPX_TYPE('a', 'b', 's', 't');
constexpr uint32_t kDeepest = 250;
enum Placement : int32_t { kBefore = 0, kAfter = 1, kFirstChild = 2 };

// An allocator that knows its highest sum.
struct Tally {
  size_t now = 0;
  size_t most = 0;
};

constexpr size_t kPrefix = 16;
constexpr double kShortTime = 0.1;  // seconds

void* counted_allocate(void* user_data, size_t size) {
  auto* const tally = static_cast<Tally*>(user_data);
  char* const block = static_cast<char*>(malloc(size + kPrefix));
  if (block == nullptr) return nullptr;
  *reinterpret_cast<size_t*>(block) = size;
  tally->now += size + kPrefix;
  tally->most = std::max(tally->most, tally->now);
  return block + kPrefix;
}

void counted_release(void* user_data, void* block) {
  char* const begin = static_cast<char*>(block) - kPrefix;
  static_cast<Tally*>(user_data)->now -= *reinterpret_cast<size_t*>(begin) + kPrefix;
  free(begin);
}

// Pre-order with a stack, as hosts walk that do not want to recurse.
template <class Visit>
void walk(kv_jpx_context* context, const Visit& visit) {
  std::vector<uint32_t> stack;
  uint32_t id = KV_JPX_ROOT;
  if (kv_jpx_get_first_child_box_id(context, KV_JPX_ROOT, &id) != JPX_OK) return;
  stack.push_back(id);
  while (!stack.empty()) {
    id = stack.back();
    stack.pop_back();
    visit(id);
    uint32_t next = KV_JPX_ROOT;
    kv_jpx_get_next_box_id(context, id, &next);
    if (next != KV_JPX_ROOT) stack.push_back(next);
    uint32_t child = KV_JPX_ROOT;
    if (kv_jpx_get_first_child_box_id(context, id, &child) == JPX_OK) stack.push_back(child);
  }
}

uint32_t type_of(const Subject& subject, uint32_t id) {
  uint32_t type = KV_JPX_ROOT;
  kv_jpx_get_box_type_by_id(subject.context, id, &type);
  return type;
}

// A type that the file has many of, if it has many of any.
uint32_t common_type(const Subject& subject) {
  return subject.ids.empty() ? kAbsent : type_of(subject, subject.ids.back());
}

void walk_tree(Subject& subject) {
  walk(subject.context, [&](uint32_t id) {
    uint8_t is_super = 0;
    kv_jpx_is_box_super(subject.context, id, &is_super);
    type_of(subject, id);
  });
}

void look_up(Subject& subject, const std::vector<uint32_t>& ids) {
  for (const uint32_t id : ids) type_of(subject, id);
}

void search_from_each(Subject& subject, uint32_t type, const std::vector<uint32_t>& ids) {
  uint32_t found = 0;
  for (const uint32_t id : ids) {
    kv_jpx_get_next_box_id_by_type(subject.context, type, id, &found);
  }
}

// Two searches under way at once.
void search_in_turns(Subject& subject) {
  const uint32_t type = common_type(subject);
  const size_t half = subject.ids.size() / 2;
  uint32_t found = 0;
  for (size_t i = 0; i < half; ++i) {
    kv_jpx_get_next_box_id_by_type(subject.context, type, subject.ids[i], &found);
    kv_jpx_get_next_box_id_by_type(subject.context, type, subject.ids[half + i], &found);
  }
}

void search_own_type(Subject& subject) {
  uint32_t found = 0;
  for (const uint32_t id : subject.ids) {
    kv_jpx_get_next_box_id_by_type(subject.context, type_of(subject, id), 0, &found);
  }
}

void count_each(Subject& subject) {
  uint32_t count = 0;
  for (const uint32_t id : subject.ids) {
    kv_jpx_get_box_count_by_type(subject.context, type_of(subject, id), &count);
  }
}

using Fields = std::multimap<uint32_t, kv_jpx_field_info>;

const Fields& fields_by_type() {
  static const Fields fields = [] {
    Fields all;
    kv_jpx_field_info info = {};
    for (uint32_t i = 0; kv_jpx_get_field_info(i, &info) == JPX_OK; ++i) {
      all.emplace(info.box_type, info);
    }
    return all;
  }();
  return fields;
}

void use_field(Subject& subject, uint32_t id, const kv_jpx_field_info& field, bool is_set) {
  uint64_t count = 1;
  uint32_t size = 0;
  if (kv_jpx_get_box_field_count(subject.context, id, field.key, &count, &size) != JPX_OK) return;
  if ((field.access & KV_JPX_FIELD_INTEGER) != 0) {
    for (uint64_t i = 0; i < count; ++i) {
      uint64_t value = 0;
      kv_jpx_get_box_field_int(subject.context, id, field.key, i, &value);
      if (is_set) kv_jpx_set_box_field_int(subject.context, id, field.key, i, value);
    }
  }
  if ((field.access & KV_JPX_FIELD_BYTES) != 0) {
    void* data = nullptr;
    kv_jpx_get_box_field_buffer(subject.context, id, field.key, &count, &size, &data);
    if (is_set) kv_jpx_set_box_field_buffer(subject.context, id, field.key, count, size, data);
    if (data != nullptr) kv_jpx_free(subject.context, data);
  }
}

void use_fields(Subject& subject, bool is_set) {
  for (const uint32_t id : subject.ids) {
    auto [field, end] = fields_by_type().equal_range(type_of(subject, id));
    if (field == end) std::tie(field, end) = fields_by_type().equal_range(0);
    for (; field != end; ++field) use_field(subject, id, field->second, is_set);
  }
}

uint32_t add(Subject& subject, uint32_t type, uint32_t reference, Placement placement) {
  uint32_t id = KV_JPX_ROOT;
  kv_jpx_add_box(subject.context, type, reference, placement, &id);
  return id;
}

void add_first(Subject& subject) {
  for (uint32_t i = 0; i < subject.count; ++i) add(subject, kFree, KV_JPX_ROOT, kFirstChild);
}

void add_behind(Subject& subject) {
  uint32_t id = 0;
  for (uint32_t i = 0; i < subject.count; ++i) id = add(subject, kFree, id, kAfter);
}

void add_before(Subject& subject) {
  const uint32_t reference = add(subject, kFree, 0, kAfter);
  for (uint32_t i = 0; i < subject.count; ++i) add(subject, kFree, reference, kBefore);
}

void add_nested(Subject& subject) {
  uint32_t id = KV_JPX_ROOT;
  for (uint32_t i = 0; i < subject.count; ++i) {
    id = add(subject, kAsoc, i % kDeepest == 0 ? KV_JPX_ROOT : id, kFirstChild);
  }
}

void add_and_delete(Subject& subject) {
  for (uint32_t i = 0; i < subject.count; ++i) {
    kv_jpx_delete_box(subject.context, add(subject, kFree, KV_JPX_ROOT, kFirstChild));
  }
}

// A search after every change.
void add_and_search(Subject& subject) {
  uint32_t found = 0;
  for (uint32_t i = 0; i < subject.count; ++i) {
    const uint32_t id = add(subject, kFree, KV_JPX_ROOT, kFirstChild);
    kv_jpx_get_next_box_id_by_type(subject.context, kFree, 0, &found);
    kv_jpx_get_next_box_id_by_type(subject.context, kFree, id - 1, &found);
  }
}

void delete_each(Subject& subject, const std::vector<uint32_t>& ids) {
  for (const uint32_t id : ids) kv_jpx_delete_box(subject.context, id);
}

void delete_backwards(Subject& subject) {
  std::reverse(subject.ids.begin(), subject.ids.end());
  delete_each(subject, subject.ids);
}

void delete_first(Subject& subject) {
  uint32_t id = 0;
  while (kv_jpx_get_first_child_box_id(subject.context, KV_JPX_ROOT, &id) == JPX_OK) {
    kv_jpx_delete_box(subject.context, id);
  }
}

void delete_by_type(Subject& subject) {
  const uint32_t type = common_type(subject);
  uint32_t id = 0;
  while (kv_jpx_get_next_box_id_by_type(subject.context, type, 0, &id) == JPX_OK) {
    kv_jpx_delete_box(subject.context, id);
  }
}

void delete_and_search(Subject& subject) {
  const uint32_t type = common_type(subject);
  uint32_t found = 0;
  for (const uint32_t id : subject.shuffled) {
    kv_jpx_delete_box(subject.context, id);
    kv_jpx_get_next_box_id_by_type(subject.context, type, id, &found);
  }
}

void print(Subject& subject) { kv_jpx_print_box(subject.context, KV_JPX_ROOT); }

void write_memory(Subject& subject) {
  void* data = nullptr;
  uint64_t length = 0;
  kv_jpx_get_output_image(subject.context, &data, &length);
}

void write_file(Subject& subject) {
  kv_jpx_get_output_image_file(subject.context, subject.spare_path.c_str());
}

void decode(Subject& subject) {
  constexpr int32_t kPlanes = 64;
  kv_jpx_set_output_type(subject.context, kPlanes);
  write_memory(subject);
}

void load_memory(Subject& subject) {
  kv_jpx_set_input_image(subject.context, subject.file.data(), subject.file.size());
}
void load_kept(Subject& subject) {
  kv_jpx_set_keep_everything(subject.context, 1);
  load_memory(subject);
}
void load_file(Subject& subject) {
  kv_jpx_set_input_image_file(subject.context, subject.path.c_str());
}
void load_mapped(Subject& subject) {
  kv_jpx_set_input_image_mapped(subject.context, subject.path.c_str());
}

// The first box of a type that the library makes, in whichever container takes it.
uint32_t add_anywhere(Subject& subject, uint32_t type) {
  const uint32_t containers[] = {KV_JPX_TYPE('j', 'p', '2', 'h'), KV_JPX_TYPE('j', 'p', 'l', 'h'),
                                 KV_JPX_TYPE('c', 'o', 'm', 'p'), KV_JPX_TYPE('u', 'i', 'n', 'f'),
                                 kAsoc};
  uint32_t id = add(subject, type, KV_JPX_ROOT, kFirstChild);
  for (const uint32_t container : containers) {
    if (id != KV_JPX_ROOT) break;
    id = add(subject, type, add(subject, container, KV_JPX_ROOT, kFirstChild), kFirstChild);
  }
  return id;
}

void append(Subject& subject, const kv_jpx_field_info& field) {
  const uint32_t id = add_anywhere(subject, field.box_type);
  for (uint32_t i = 0; i < subject.count; ++i) {
    if (kv_jpx_set_box_field_int(subject.context, id, field.key, UINT64_MAX, 1) != JPX_OK) break;
  }
}

std::vector<Loop> make_loops() {
  const auto each = [](uint32_t type, bool is_shuffled) {
    return [=](Subject& subject) {
      search_from_each(subject, type != 0 ? type : common_type(subject),
                       is_shuffled ? subject.shuffled : subject.ids);
    };
  };
  std::vector<Loop> loops = {
      {"load from memory", load_memory, false},
      {"load from memory, kept", load_kept, false},
      {"load a file", load_file, false},
      {"load a mapping", load_mapped, false},
      {"walk", walk_tree, false},
      {"look up shuffled", [](Subject& s) { look_up(s, s.shuffled); }, false},
      {"search a type", each(0, false), false},
      {"search a type shuffled", each(0, true), false},
      {"search a type in turns", search_in_turns, false},
      {"search each one's type", search_own_type, false},
      {"search an absent type", each(kAbsent, false), false},
      {"count each one's type", count_each, false},
      {"get fields", [](Subject& s) { use_fields(s, false); }, false},
      {"set fields", [](Subject& s) { use_fields(s, true); }, false},
      {"delete forwards", [](Subject& s) { delete_each(s, s.ids); }, false},
      {"delete backwards", delete_backwards, false},
      {"delete shuffled", [](Subject& s) { delete_each(s, s.shuffled); }, false},
      {"delete the first", delete_first, false},
      {"delete by type", delete_by_type, false},
      {"delete and search", delete_and_search, false},
      {"print", print, false},
      {"write to memory", write_memory, false},
      {"write to a file", write_file, false},
      {"decode", decode, false},
      {"add first", add_first, true},
      {"add behind", add_behind, true},
      {"add before", add_before, true},
      {"add nested", add_nested, true},
      {"add and delete", add_and_delete, true},
      {"add and search", add_and_search, true},
  };
  for (const auto& [type, field] : fields_by_type()) {
    constexpr uint32_t kEntry = KV_JPX_FIELD_INTEGER | KV_JPX_FIELD_REPEATS;
    if ((field.access & kEntry) != kEntry) continue;
    const kv_jpx_field_info info = field;
    const char letters[] = {static_cast<char>(type >> 24),
                            static_cast<char>(type >> 16),
                            static_cast<char>(type >> 8),
                            static_cast<char>(type),
                            '.',
                            '\0'};
    loops.push_back({std::string("append ") + letters + field.name,
                     [info](Subject& subject) { append(subject, info); }, true});
  }
  return loops;
}

// Once, from a fresh context; null when the file cannot be loaded.
Cost run_once(const Loop& loop, Subject& subject) {
  Tally tally;
  kv_jpx_create_with_memory_manager(&subject.context, &tally, counted_allocate, counted_release);
  subject.ids.clear();
  const bool is_load = loop.name.rfind("load", 0) == 0;
  if (!is_load) {
    load_memory(subject);
    walk(subject.context, [&](uint32_t id) { subject.ids.push_back(id); });
    subject.shuffled = subject.ids;
    std::shuffle(subject.shuffled.begin(), subject.shuffled.end(), std::mt19937(1));
  }
  Cost cost;
  const double begin = processor_seconds();
  const auto clock_begin = std::chrono::steady_clock::now();
  loop.run(subject);
  // Destroying belongs to what a load costs.
  if (is_load) kv_jpx_destroy(subject.context);
  const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - clock_begin;
  cost.seconds = processor_seconds() - begin;
  // Systems count processor time in large steps.
  if (passed.count() < kShortTime) cost.seconds = passed.count();
  cost.bytes = static_cast<double>(tally.most);
  if (!is_load) kv_jpx_destroy(subject.context);
  return cost;
}

}  // namespace

const std::vector<Loop>& all_loops() {
  static const std::vector<Loop> loops = make_loops();
  return loops;
}

double boxes_of(const std::string& file, const Loop& load) {
  Subject subject = {};
  subject.file = file;
  kv_jpx_create(&subject.context);
  load.run(subject);
  double count = 0;
  walk(subject.context, [&](uint32_t) { ++count; });
  kv_jpx_destroy(subject.context);
  return count;
}

std::pair<Cost, Cost> compare_loads(const std::string& file) {
  constexpr int kRounds = 15;
  const Loop loads[] = {{"load", load_memory, false}, {"load, kept", load_kept, false}};
  Subject subject = {};
  subject.file = file;
  Cost best[2];
  for (int i = 0; i < 2 * kRounds; ++i) {
    const Cost cost = run_once(loads[i % 2], subject);
    if (i < 2 || cost.seconds < best[i % 2].seconds) best[i % 2] = cost;
  }
  for (int i = 0; i < 2; ++i) {
    const double boxes = boxes_of(file, loads[i]);
    best[i].seconds /= boxes;
    best[i].bytes /= boxes;
  }
  return {best[0], best[1]};
}

Cost run_loop(const Loop& loop, const std::string& path, uint32_t count) {
  std::ifstream stream(path, std::ios::binary);
  Subject subject = {};
  subject.file.assign(std::istreambuf_iterator<char>(stream), {});
  subject.path = path;
  subject.spare_path = path + ".out";
  subject.count = count;
  Cost best = run_once(loop, subject);
  // What takes little time is disturbed most.
  for (double spent = best.seconds; spent < kShortTime; spent += 0.01) {
    const Cost again = run_once(loop, subject);
    best.seconds = std::min(best.seconds, again.seconds);
    spent += again.seconds;
  }
  return best;
}
