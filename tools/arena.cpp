// Blocks cut from large pieces (see arena.h).
#include "arena.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <utility>

#include "address_sanitizer.h"

namespace kvjpx_tool {
namespace {

// Sanitizers see the end of blocks that are made one by one only.
#ifdef KVJPX_ADDRESS_SANITIZER
constexpr size_t kLargestCut = 0;
#else
constexpr size_t kLargestCut = size_t{16} << 10;
#endif
constexpr size_t kSmallPiece = size_t{64} << 10;  // the first, and where memory is short
constexpr size_t kLargePage = size_t{2} << 20;
constexpr size_t kLargestPiece = 16 * kLargePage;

}  // namespace

Arena::~Arena() {
  while (last_piece_ != nullptr) std::free(std::exchange(last_piece_, last_piece_->before));
}

bool Arena::add_piece() {
  size_t size = std::min(kLargestPiece, kLargePage << std::min<size_t>(pieces_, 8));
  void* piece = last_piece_ != nullptr ? std::aligned_alloc(kLargePage, size) : nullptr;
  if (piece != nullptr) {
    madvise(piece, size, MADV_HUGEPAGE);  // as good without, only slower
  } else {
    size = kSmallPiece;
    piece = std::malloc(size);
  }
  if (piece == nullptr) return false;
  last_piece_ = new (piece) Piece{last_piece_};
  ++pieces_;
  next_ = reinterpret_cast<char*>(last_piece_ + 1);
  left_ = size - sizeof(Piece);
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
