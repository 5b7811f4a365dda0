// What the library's work costs as a multiple of what it cannot do without, measured in turns in
// one run, the least of each (see README.md here). Times by themselves tell of the machine; these
// ratios tell of the library.
#include <fcntl.h>
#include <malloc.h>
#include <sys/sendfile.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "kvjpx.h"
#include "measure.h"
#include "shapes.h"

namespace {

using Work = std::function<void()>;

int missed = 0;

// Of this process, so that others on the machine count less.
double seconds_of(const Work& work) {
  const double begin = processor_seconds();
  work();
  return processor_seconds() - begin;
}

// The least time of each, taken in turns, so that what disturbs one disturbs all.
std::vector<double> least_times(const std::vector<Work>& works, int rounds = 25) {
  std::vector<double> least(works.size(), 1e9);
  for (int round = 0; round < rounds; ++round) {
    for (size_t i = 0; i < works.size(); ++i) {
      least[i] = std::min(least[i], seconds_of(works[i]));
    }
  }
  return least;
}

void show_ratio(const char* what, double ratio, double most) {
  const bool is_met = ratio <= most;
  missed += is_met ? 0 : 1;
  printf("  %s x%.2f%s", what, ratio, is_met ? "" : " <--");
}

uint32_t word_at(const std::string& file, size_t place) {
  uint32_t word = 0;
  for (size_t i = 0; i < 4; ++i) word = word << 8 | static_cast<unsigned char>(file[place + i]);
  return word;
}

bool is_container(uint32_t type) {
  constexpr uint32_t kTypes[] = {KV_JPX_TYPE('a', 's', 'o', 'c'), KV_JPX_TYPE('j', 'p', '2', 'h'),
                                 KV_JPX_TYPE('r', 'e', 's', ' '), KV_JPX_TYPE('c', 'o', 'm', 'p')};
  return std::find(std::begin(kTypes), std::end(kTypes), type) != std::end(kTypes);
}

// Calls visit for every box between two places of a file.
template <class Visit>
void walk_headers(const std::string& file, size_t place, size_t end, const Visit& visit) {
  while (place < end) {
    const uint32_t length = word_at(file, place);
    const uint32_t type = word_at(file, place + 4);
    visit(type);
    if (type == KV_JPX_TYPE('c', 'r', 'e', 'f')) {
      walk_headers(file, place + 12, place + length, visit);
    } else if (is_container(type)) {
      walk_headers(file, place + 8, place + length, visit);
    }
    place += length;
  }
}

// What a load has to do at the least: go from header to header, and for each box have two blocks
// (one of an opaque box's record, one of half a hundred bytes) and give them back. Here at once,
// where they come from the allocator's hand and no cache is missed.
void load_floor(const std::string& file) {
  constexpr size_t kRecord = 216;
  constexpr size_t kEntry = 48;
  walk_headers(file, 0, file.size(), [&](uint32_t type) {
    auto* const record = static_cast<uint32_t*>(calloc(1, kRecord));
    void* volatile entry = calloc(1, kEntry);
    *static_cast<volatile uint32_t*>(record) = type;
    free(entry);
    free(record);
  });
}

class Loaded {
 public:
  explicit Loaded(const std::string& file, bool keeps = false) {
    kv_jpx_create(&context_);
    kv_jpx_set_keep_everything(context_, keeps);
    kv_jpx_set_input_image(context_, file.data(), file.size());
  }
  Loaded(const Loaded&) = delete;
  Loaded& operator=(const Loaded&) = delete;
  ~Loaded() { kv_jpx_destroy(context_); }
  kv_jpx_context* get() const { return context_; }

 private:
  kv_jpx_context* context_ = nullptr;
};

uint32_t count_boxes(const std::string& file) {
  uint32_t count = 0;
  walk_headers(file, 0, file.size(), [&](uint32_t) { ++count; });
  return count;
}

// Shapes that are many boxes rather than long lists.
bool has_many_boxes(const Shape& shape) {
  const std::string name = shape.name;
  return name.rfind("long", 0) != 0 && name.rfind("many", 0) != 0;
}

// The least of several times, in a process of its own: what one work leaves of the heap must not
// make another's blocks cheaper or dearer.
double least_apart(const Work& work) {
  return measure_work(
             [&] {
               Cost cost;
               cost.seconds = least_times({work}, 8)[0];
               return cost;
             },
             kNoLimit)
      .seconds;
}

void show_loads(uint32_t count) {
  puts("Loading from memory, against a walk over the headers and two blocks a box:");
  for (const Shape& shape : all_shapes()) {
    if (!has_many_boxes(shape)) continue;
    const std::string file = shape.make(count);
    const Work works[] = {[&] { load_floor(file); }, [&] { Loaded(file, false); },
                          [&] { Loaded(file, true); }};
    double least[] = {1e9, 1e9, 1e9};
    for (int round = 0; round < 8; ++round) {
      for (size_t i = 0; i < 3; ++i) least[i] = std::min(least[i], least_apart(works[i]));
    }
    printf("  %-16s %5.0f ns a box", shape.name, least[1] / count_boxes(file) * 1e9);
    show_ratio("load", least[1] / least[0], 2);
    show_ratio("kept", least[2] / least[0], 2.5);
    puts("");
  }
}

int open_spare(const char* name) {
  const int descriptor = open(name, O_RDWR | O_CREAT | O_TRUNC, 0600);
  unlink(name);
  return descriptor;
}

void copy_by_kernel(int from, int to, size_t length) {
  off_t place = 0;
  lseek(to, 0, SEEK_SET);
  while (static_cast<size_t>(place) < length && sendfile(to, from, &place, length) > 0) continue;
}

// Sets the first field of the box in the middle that has one and takes another value for it.
bool change_one(kv_jpx_context* context, uint32_t boxes) {
  for (uint32_t id = boxes / 2; id < boxes; ++id) {
    uint64_t length = 0;
    if (kv_jpx_get_box_field_count(context, id, JPX_FIELD_JP2C_DATA, &length, nullptr) == JPX_OK) {
      return kv_jpx_set_box_field_buffer(context, id, JPX_FIELD_JP2C_DATA, 5, 1, "fresh") == JPX_OK;
    }
  }
  return false;
}

void show_copies(uint32_t count) {
  // Memory that was given back stays with the process: where small blocks happen to be at the end
  // of the heap, getting it anew would be most of what is measured.
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  puts("Writing what is kept, against one memcpy and one copy by the kernel:");
  for (const Shape& shape : all_shapes()) {
    if (!has_many_boxes(shape)) continue;
    const std::string file = shape.make(count);
    const Loaded plain(file, true);
    const Loaded changed(file, true);
    if (!change_one(changed.get(), count_boxes(file))) continue;
    std::vector<char> buffer(file.size() + 64);
    const auto to_memory = [&](const Loaded& loaded) {
      void* data = buffer.data();
      uint64_t length = buffer.size();
      kv_jpx_get_output_image(loaded.get(), &data, &length);
    };
    const std::vector<double> least =
        least_times({[&] { memcpy(buffer.data(), file.data(), file.size()); },
                     [&] { to_memory(plain); }, [&] { to_memory(changed); }},
                    200);
    printf("  %-16s %5.1f us", shape.name, least[0] * 1e6);
    show_ratio("unchanged", least[1] / least[0], 1.2);
    show_ratio("changed", least[2] / least[1], 1.2);

    const std::string path = "kvjpx_ratios.tmp";
    FILE* const out = fopen(path.c_str(), "wb");
    fwrite(file.data(), 1, file.size(), out);
    fclose(out);
    kv_jpx_context* mapped = nullptr;
    kv_jpx_create(&mapped);
    kv_jpx_set_keep_everything(mapped, 1);
    kv_jpx_set_input_image_mapped(mapped, path.c_str());
    const int from = open(path.c_str(), O_RDONLY);
    const int to = open_spare("kvjpx_ratios.out");
    const auto to_file = [&] {
      lseek(to, 0, SEEK_SET);
      kv_jpx_write_jpx(mapped, to);
    };
    std::vector<double> files =
        least_times({[&] { copy_by_kernel(from, to, file.size()); }, to_file}, 60);
    show_ratio("file", files[1] / files[0], 1.2);
    change_one(mapped, count_boxes(file));
    files = least_times({[&] { copy_by_kernel(from, to, file.size()); }, to_file}, 60);
    show_ratio("changed file", files[1] / files[0], 1.2);
    puts("");
    kv_jpx_destroy(mapped);
    close(from);
    close(to);
    unlink(path.c_str());
  }
}

// Pre-order, without a stack.
void walk_tree(kv_jpx_context* context) {
  uint32_t id = KV_JPX_ROOT;
  uint32_t next = 0;
  kv_jpx_get_first_child_box_id(context, KV_JPX_ROOT, &id);
  while (id != KV_JPX_ROOT) {
    kv_jpx_get_next_box_id(context, id, &next);
    id = next;
  }
}

void walk_by_type(kv_jpx_context* context, uint32_t type) {
  uint32_t id = 0;
  while (kv_jpx_get_next_box_id_by_type(context, type, id, &id) == JPX_OK) continue;
}

void read_fields(kv_jpx_context* context, uint32_t boxes, uint32_t key) {
  uint64_t value = 0;
  for (uint32_t id = 1; id < boxes; ++id) {
    kv_jpx_get_box_field_int(context, id, key, 0, &value);
  }
}

void show_walks() {
  puts("Going through all boxes, ns each, and the largest against the smallest:");
  constexpr uint32_t kSizes[] = {3000, 30000, 300000, 3000000};
  const char* const names[] = {"from box to box", "by type", "a field of each"};
  std::vector<double> costs[3];
  for (const uint32_t size : kSizes) {
    std::string regions("\0\0\0\014jP  \r\n\x87\n", 12);
    const std::string region("\0\0\0\034roid\1\0\0\5\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 28);
    for (uint32_t i = 0; i < size; ++i) regions += region;
    const Loaded loaded(regions);
    const std::vector<double> least =
        least_times({[&] { walk_tree(loaded.get()); },
                     [&] { walk_by_type(loaded.get(), KV_JPX_TYPE('r', 'o', 'i', 'd')); },
                     [&] { read_fields(loaded.get(), size + 1, JPX_FIELD_ROID_RI); }},
                    static_cast<int>(std::max(5u, std::min(200u, 3000000 / size))));
    for (size_t i = 0; i < 3; ++i) costs[i].push_back(least[i] / size * 1e9);
  }
  for (size_t i = 0; i < 3; ++i) {
    printf("  %-16s", names[i]);
    for (const double cost : costs[i]) printf(" %5.1f", cost);
    show_ratio("grows", costs[i].back() / costs[i].front(), 3);
    puts("");
  }
}

struct Tally {
  size_t bytes = 0;
};
void* count_block(void* user_data, size_t size) {
  static_cast<Tally*>(user_data)->bytes += size;
  return malloc(size);
}
void release_block(void*, void* block) { free(block); }

void show_memory() {
  puts("Memory of an empty box, against its record:");
  constexpr struct {
    const char* type;
    size_t record;
  } kKinds[] = {{"asoc", 160}, {"free", 184}};
  for (const auto& kind : kKinds) {
    double bytes[2];
    for (uint32_t i = 0; i < 2; ++i) {
      const uint32_t count = 60000 * (i + 1);
      std::string file;
      for (uint32_t k = 0; k < count; ++k) file += std::string("\0\0\0\010", 4) + kind.type;
      Tally tally;
      kv_jpx_context* context = nullptr;
      kv_jpx_create_with_memory_manager(&context, &tally, count_block, release_block);
      kv_jpx_set_input_image(context, file.data(), file.size());
      bytes[i] = static_cast<double>(tally.bytes - file.size());
      kv_jpx_destroy(context);
    }
    const double cost = (bytes[1] - bytes[0]) / 60000;
    printf("  %-16s %5.1f bytes", kind.type, cost);
    show_ratio("record", cost / static_cast<double>(kind.record), 1.5);
    puts("");
  }
}

}  // namespace

int main(int argc, char** argv) {
  const uint32_t count = argc > 1 ? static_cast<uint32_t>(strtoul(argv[1], nullptr, 10)) : 60000;
  show_loads(count);
  if (argc > 2) return 0;
  show_copies(count);
  show_walks();
  show_memory();
  printf("%d ratios are missed\n", missed);
  return missed == 0 ? 0 : 1;
}
