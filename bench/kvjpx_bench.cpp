// Benchmarks. Their use is in the ratios within one run (see README.md here), never in the times.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "kvjpx.h"

namespace {

std::string big_endian(uint32_t value) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
  return bytes;
}

std::string box(const std::string& type, const std::string& payload) {
  return big_endian(static_cast<uint32_t>(8 + payload.size())) + type + payload;
}

// `count` associations of a label, a number list and a region, as annotated files have them.
std::string annotated_file(int64_t count) {
  std::string file = box("jP  ", big_endian(0x0D0A870A));
  const std::string region = std::string("\1\0\0\5", 4) + std::string(16, '\0');
  const std::string association =
      box("asoc", box("lbl ", "annotation") + box("nlst", big_endian(1) + big_endian(2)) +
                      box("roid", region));
  for (int64_t i = 0; i < count; ++i) file += association;
  return file;
}

// One codestream of `size` bytes.
std::string image_file(int64_t size) {
  return box("jP  ", big_endian(0x0D0A870A)) +
         box("jp2c", std::string(static_cast<size_t>(size), 'c'));
}

class Loaded {
 public:
  explicit Loaded(const std::string& file) {
    kv_jpx_create(&context_);
    kv_jpx_set_input_image(context_, file.data(), file.size());
  }
  ~Loaded() { kv_jpx_destroy(context_); }
  kv_jpx_context* get() const { return context_; }

 private:
  kv_jpx_context* context_ = nullptr;
};

// What loading cannot be faster than: copying the file once.
void copy_file(benchmark::State& state) {
  const std::string file = annotated_file(state.range(0));
  std::vector<char> copy(file.size());
  for (auto _ : state) {
    memcpy(copy.data(), file.data(), file.size());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(copy_file)->Arg(1000)->Arg(100000);

void load_file(benchmark::State& state) {
  const std::string file = annotated_file(state.range(0));
  for (auto _ : state) Loaded loaded(file);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(load_file)->Arg(1000)->Arg(100000);

// From box to box by identifier, as programs walk a tree.
void walk_tree(benchmark::State& state) {
  const Loaded loaded(annotated_file(state.range(0)));
  for (auto _ : state) {
    uint32_t id = 0;
    uint32_t type = 0;
    while (id != KV_JPX_ROOT) {
      kv_jpx_get_box_type_by_id(loaded.get(), id, &type);
      kv_jpx_get_next_box_id(loaded.get(), id, &id);
    }
    benchmark::DoNotOptimize(type);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(walk_tree)->Arg(1000)->Arg(100000);

void write_file(benchmark::State& state) {
  const Loaded loaded(annotated_file(state.range(0)));
  for (auto _ : state) {
    void* data = nullptr;
    uint64_t length = 0;
    kv_jpx_get_output_image(loaded.get(), &data, &length);
    kv_jpx_free(loaded.get(), data);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(write_file)->Arg(1000)->Arg(100000);

// A list grows in steps: an entry costs the same in a long list.
void append_entries(benchmark::State& state) {
  const Loaded loaded(box("jP  ", big_endian(0x0D0A870A)) + box("jp2h", ""));
  for (auto _ : state) {
    uint32_t id = 0;
    kv_jpx_add_box(loaded.get(), KV_JPX_TYPE('c', 'm', 'a', 'p'), 1, 2, &id);
    for (int64_t i = 0; i < state.range(0); ++i) {
      kv_jpx_set_box_field_int(loaded.get(), id, JPX_FIELD_CMAP_CMP, UINT64_MAX, 1);
    }
    kv_jpx_delete_box(loaded.get(), id);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(append_entries)->Arg(1000)->Arg(100000);

// Opening an image costs its headers when mapped, and a copy of everything from memory.
void open_image(benchmark::State& state) {
  const char* const path = "kvjpx_bench.tmp";
  const std::string file = image_file(state.range(1));
  FILE* const out = fopen(path, "wb");
  if (out == nullptr || fwrite(file.data(), 1, file.size(), out) != file.size()) {
    state.SkipWithError("cannot write the file");
  }
  if (out != nullptr) fclose(out);
  kv_jpx_context* context = nullptr;
  kv_jpx_create(&context);
  for (auto _ : state) {
    if (state.range(0) != 0) {
      kv_jpx_set_input_image_mapped(context, path);
    } else {
      kv_jpx_set_input_image(context, file.data(), file.size());
    }
  }
  kv_jpx_destroy(context);
  remove(path);
}
BENCHMARK(open_image)->ArgNames({"mapped", "bytes"})->ArgsProduct({{0, 1}, {1 << 16, 1 << 26}});

}  // namespace
