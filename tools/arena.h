// Memory for what the library keeps of one file: records of boxes, which come by the hundred
// thousand and go together. They are cut from large pieces, which the system may provide as large
// pages: providing 20,000 small ones takes it longer than the library takes to read the boxes.
#ifndef KVJPX_TOOLS_ARENA_H_
#define KVJPX_TOOLS_ARENA_H_

#include <cstddef>
#include <cstdint>

namespace kvjpx_tool {

// A block that is released gives its memory back at once only if it is large or the one that was
// cut last; the rest waits for the arena's end.
class Arena {
 public:
  Arena() = default;
  ~Arena();
  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;

  // For kv_jpx_create_with_memory_manager, with the arena as user data; it must outlive the
  // context.
  static void* allocate(void* arena, size_t size);
  static void release(void* arena, void* block);

 private:
  struct alignas(std::max_align_t) Head {
    size_t size;  // of the block behind it; 0: it was not cut from a piece
  };
  struct alignas(std::max_align_t) Piece {
    Piece* before;
  };

  void* cut(size_t size);
  bool add_piece();

  Piece* last_piece_ = nullptr;
  size_t pieces_ = 0;
  char* next_ = nullptr;
  size_t left_ = 0;
};

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_ARENA_H_
