// Fuzzer: loads a file from memory, from a file or through a mapping, walks and prints the tree,
// renders it, also over the file that it came from, and loads what was rendered. The input is
// described at Treatment. Then the same once more with everything kept.
#include "kept.h"
#include "target.h"

namespace kvjpx::fuzz {
namespace {

int32_t load(Session& session, const Bytes& file) {
  const int32_t code = session.load(file);
  require(session.allocator().peak_bytes() <= memory_bound(file.size()),
          "loading stays inside its memory bound");
  return code;
}

void check_from_memory(size_t failing_allocation, const Bytes& file) {
  Session session(failing_allocation);
  if (session.get() != nullptr && load(session, file) == JPX_OK) check_tree(session);
}

void check_from_disk(const Treatment& treatment, const Bytes& file) {
  const DiskFile on_disk(file);
  Session session(treatment.failing_allocation);
  if (session.get() == nullptr) return;
  const int32_t code = session.load(on_disk.path(), treatment.source);
  if (!session.allocator().has_failed()) {
    Session other;
    require(load(other, file) == code, "a file loads from everywhere or nowhere");
  }
  if (code != JPX_OK) return;
  check_tree(session);
  check_output_file(session, on_disk);
}

}  // namespace

void run(Input input) {
  const Treatment treatment = take_treatment(input);
  const Bytes file = input.bytes(input.size());
  if (treatment.source == Source::kMemory) {
    check_from_memory(treatment.failing_allocation, file);
  } else {
    check_from_disk(treatment, file);
  }
  check_kept_file(treatment, file);
}

}  // namespace kvjpx::fuzz
