// The counting allocator (see allocator.h).
#include "allocator.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "input.h"

namespace kvjpx::fuzz {
namespace {

// Stands in front of every block; as large as the strictest alignment.
struct alignas(std::max_align_t) Prefix {
  size_t size;
  bool is_live;
};

Prefix* prefix_of(const void* block) { return static_cast<Prefix*>(const_cast<void*>(block)) - 1; }

}  // namespace

Allocator::~Allocator() {
  for (void* kept : kept_) free(kept);
}

bool Allocator::is_live(const void* block) { return prefix_of(block)->is_live; }

void* Allocator::allocate(void* user_data, size_t size) {
  auto& self = *static_cast<Allocator*>(user_data);
  const bool is_the_one = self.until_failure_ != 0 && --self.until_failure_ == 0;
  if (is_the_one || size > self.largest_block_) {
    self.has_failed_ = true;
    return nullptr;
  }
  auto* const prefix = static_cast<Prefix*>(malloc(sizeof(Prefix) + size));
  if (prefix == nullptr) abort();
  *prefix = {size, true};
  ++self.allocations_;
  self.traffic_ += size;
  ++self.live_blocks_;
  self.live_bytes_ += size;
  self.peak_bytes_ = std::max(self.peak_bytes_, self.live_bytes_);
  return memset(prefix + 1, 0xA5, size);
}

void Allocator::release(void* user_data, void* block) {
  auto& self = *static_cast<Allocator*>(user_data);
  Prefix* const prefix = prefix_of(block);
  require(prefix->is_live, "only live blocks are released");
  prefix->is_live = false;
  --self.live_blocks_;
  self.live_bytes_ -= prefix->size;
  if (self.keeps_released_) return self.kept_.push_back(prefix);
  free(prefix);
}

}  // namespace kvjpx::fuzz
