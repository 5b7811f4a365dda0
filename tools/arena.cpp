// Blocks cut from large pieces (see arena.h).
#include "arena.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace kvjpx_tool {
namespace {

// Sanitizers see the end of blocks that are made one by one only.
#ifdef __SANITIZE_ADDRESS__
constexpr size_t kLargestCut = 0;
#else
constexpr size_t kLargestCut = size_t{16} << 10;
#endif
constexpr size_t kFirstPiece = size_t{64} << 10;
constexpr size_t kLargePage = size_t{2} << 20;
constexpr size_t kLargestPiece = 16 * kLargePage;

}  // namespace

void Arena::Free::operator()(char* piece) const { std::free(piece); }

bool Arena::add_piece() {
  const size_t size =
      pieces_.empty() ? kFirstPiece : std::min(kLargestPiece, kLargePage << (pieces_.size() - 1));
  const bool is_large = size >= kLargePage;
  auto* const piece =
      static_cast<char*>(is_large ? std::aligned_alloc(kLargePage, size) : std::malloc(size));
  if (piece == nullptr) return false;
  if (is_large) madvise(piece, size, MADV_HUGEPAGE);  // as good without, only slower
  pieces_.emplace_back(piece);
  next_ = piece;
  left_ = size;
  return true;
}

void* Arena::cut(size_t size) {
  const size_t whole = sizeof(Head) + (size + sizeof(Head) - 1) / sizeof(Head) * sizeof(Head);
  if (left_ < whole && !add_piece()) return nullptr;
  auto* const head = new (next_) Head{whole};
  next_ += whole;
  left_ -= whole;
  return head + 1;
}

void* Arena::allocate(void* arena, size_t size) {
  if (size <= kLargestCut) return static_cast<Arena*>(arena)->cut(size);
  if (size > SIZE_MAX - sizeof(Head)) return nullptr;
  void* const place = std::malloc(sizeof(Head) + size);
  return place != nullptr ? new (place) Head{0} + 1 : nullptr;
}

void Arena::release(void* arena, void* block) {
  auto* const self = static_cast<Arena*>(arena);
  Head* const head = static_cast<Head*>(block) - 1;
  if (head->size == 0) {
    std::free(head);
  } else if (reinterpret_cast<char*>(head) + head->size == self->next_) {
    self->next_ -= head->size;
    self->left_ += head->size;
  }
}

}  // namespace kvjpx_tool
