// The allocator that keeps books (see test_context.h).
#include "support/test_context.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace kvjpx::test {

CheckingAllocator::~CheckingAllocator() {
  EXPECT_EQ(live_.size(), 0u) << "blocks were never released";
  for (const auto& [block, size] : live_) free(block);
  for (void* block : kept_) free(block);
}

void* CheckingAllocator::allocate(void* user_data, size_t size) {
  auto& self = *static_cast<CheckingAllocator*>(user_data);
  if (self.allocations_until_failure_ != 0 && --self.allocations_until_failure_ == 0) {
    self.has_failed_ = true;
    return nullptr;
  }
  if (size > self.largest_block_) return nullptr;
  void* const block = malloc(size);
  if (block == nullptr) return nullptr;
  memset(block, 0xA5, size);
  self.live_[block] = size;
  ++self.allocations_;
  self.traffic_ += size;
  self.live_bytes_ += size;
  self.peak_ = std::max(self.peak_, self.live_bytes_);
  return block;
}

void CheckingAllocator::release(void* user_data, void* block) {
  auto& self = *static_cast<CheckingAllocator*>(user_data);
  const auto found = self.live_.find(block);
  if (found == self.live_.end()) {
    ADD_FAILURE() << "a block was released that is not live";
    return;
  }
  self.live_bytes_ -= found->second;
  self.live_.erase(found);
  if (self.keeps_released_) {
    self.kept_.insert(block);
  } else {
    free(block);
  }
}

}  // namespace kvjpx::test
