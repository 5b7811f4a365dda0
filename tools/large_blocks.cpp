// Large blocks of the program's own: tables of boxes, texts that are printed. The system can
// provide them as large pages, which takes it a fraction of the time that as many small ones take.
#include <sys/mman.h>

#include <cstdlib>
#include <new>

#include "address_sanitizer.h"

#ifndef KVJPX_ADDRESS_SANITIZER

namespace {

constexpr size_t kLargePage = size_t{2} << 20;

void* allocate(size_t size) {
  if (size < kLargePage / 2) return std::malloc(size);
  void* const block = std::aligned_alloc(kLargePage, size);
  if (block != nullptr) madvise(block, size, MADV_HUGEPAGE);  // as good without, only slower
  return block;
}

}  // namespace

void* operator new(size_t size) {
  for (;;) {
    if (void* const block = allocate(size != 0 ? size : 1)) return block;
    const std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) throw std::bad_alloc();
    handler();
  }
}

void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }

#endif
