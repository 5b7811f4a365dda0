// The counting allocator (see allocator.h).
#include "allocator.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace kvjpx::fuzz {
namespace {

// Stands in front of every block; as large as the strictest alignment.
struct alignas(std::max_align_t) Prefix {
  size_t size;
};

}  // namespace

void* Allocator::allocate(void* user_data, size_t size) {
  auto& self = *static_cast<Allocator*>(user_data);
  const bool is_the_one = self.until_failure_ != 0 && --self.until_failure_ == 0;
  if (is_the_one || size > self.largest_block_) {
    self.has_failed_ = true;
    return nullptr;
  }
  auto* const prefix = static_cast<Prefix*>(malloc(sizeof(Prefix) + size));
  if (prefix == nullptr) abort();
  prefix->size = size;
  ++self.live_blocks_;
  self.live_bytes_ += size;
  self.peak_bytes_ = std::max(self.peak_bytes_, self.live_bytes_);
  return memset(prefix + 1, 0xA5, size);
}

void Allocator::release(void* user_data, void* block) {
  auto& self = *static_cast<Allocator*>(user_data);
  auto* const prefix = static_cast<Prefix*>(block) - 1;
  --self.live_blocks_;
  self.live_bytes_ -= prefix->size;
  free(prefix);
}

}  // namespace kvjpx::fuzz
