// Memory manager, allocation tracker and error exit: where every block of a context comes from, and
// how a failure deep inside gets back to the public function that is running.
//
// Internal code never returns errors upward. It calls JPX_ErrorExit, which closes what the context
// holds of the operating system, releases every tracked block and jumps to the entry guard
// (guard.h). So no frame between a guard and the code below it may own anything with a destructor.
#ifndef KVJPX_FRAME_MEMORY_H_
#define KVJPX_FRAME_MEMORY_H_

#include <setjmp.h>
#include <stddef.h>
#include <stdint.h>

#include "kvjpx_errors.h"

#define KVJPX_EXPORT __attribute__((visibility("default")))

namespace kvjpx {

// The caller's allocator. It serves only if both functions are given; the test is made afresh at
// every allocation and release.
struct MemoryManager {
  void* user_data;
  void* callbacks[5];  // kept for the caller; never called
  void* (*allocate)(void* user_data, size_t size);
  void (*release)(void* user_data, void* block);
};

struct Resource;

// What stands in front of every tracked block. The list's two sentinels are bare headers; the head
// also holds what the environment keeps besides blocks.
struct BlockHeader {
  BlockHeader* next;
  BlockHeader* previous;
  union {
    uint64_t size;        // as the caller asked for, without this header
    Resource* resources;  // head sentinel: what an error exit must give back
  };
  uint32_t marker;   // kLiveBlock or kReleasedBlock
  uint32_t content;  // a BlockContent
};
static_assert(sizeof(BlockHeader) == 32, "outside users lay out adopted blocks by this size");

// What others remember of a block, and what must be done before it goes without their knowledge.
enum BlockContent : uint32_t {
  kPlain = 0,
  kBoxInTree = 1,      // look-ups may remember it: freeing it is an outside change
  kOwnsResources = 2,  // its resources go with it
  kTreeIsEnding = 3,   // head sentinel: what look-ups remember goes as well, so nobody need know
};

constexpr uint32_t kLiveBlock = 0x2FF8FD44;
constexpr uint32_t kReleasedBlock = 0x0AE631FF;

// Something of the operating system or of another library that an error exit must give back. It is
// embedded in the tracked record that owns it and hangs on the environment's list meanwhile.
struct Resource {
  Resource* next;
  Resource* previous;
  void (*release)(Resource*);  // null while it hangs on no list
};

// First argument of every internal function.
struct Environment {
  jmp_buf jump;
  BlockHeader* head;  // sentinels of the tracker; null once an error exit has spent the environment
  BlockHeader* tail;
  uint64_t stream_view_limit;  // see bs_writer_grow
  MemoryManager* manager;
};

inline bool is_spent(const Environment* env) { return env->head == nullptr; }

// Counts what outside callers do to box trees through functions that know no context: unlinking,
// inserting and freeing boxes. Whoever remembers boxes looks at it before following a pointer. One
// count serves the whole process; a change in one context only makes others look again.
void note_outside_change();
uint64_t outside_changes();

inline void mark_block(void* block, BlockContent content) {
  (static_cast<BlockHeader*>(block) - 1)->content = content;
}

// In between, freeing boxes is no outside change.
inline void begin_tree_end(Environment* env) { env->head->content = kTreeIsEnding; }
inline void finish_tree_end(Environment* env) { env->head->content = kPlain; }

// Detaching a resource that hangs nowhere does nothing.
void attach_resource(Environment* env, Resource* resource, void (*release)(Resource*));
void detach_resource(Environment* env, Resource* resource);

extern "C" {

// Untracked blocks: for the context record and its copy of the memory manager only. A null manager
// means malloc and free. Failure is a null result.
KVJPX_EXPORT void* JPX_KovraMalloc(const MemoryManager* manager, size_t size);
KVJPX_EXPORT void JPX_KovraFree(const MemoryManager* manager, void* block);

// Starts an empty tracker. When memory is short the environment stays without one, that is, spent.
KVJPX_EXPORT void JPX_Kv_StartupCompressionSystem(Environment* env);
KVJPX_EXPORT void JPX_Kv_ShutdownCompressionSystem(Environment* env);

// Tracked blocks. Size 0 gives null. The two reserved arguments go to the caller's allocator as its
// third and fourth; this library passes null.
KVJPX_EXPORT void* JPX_SafeMallocInternal(Environment* env, size_t size, void* reserved1,
                                          void* reserved2);
KVJPX_EXPORT void* JPX_SafeMallocFunc(Environment* env, size_t size, void* reserved1,
                                      void* reserved2);
KVJPX_EXPORT void* JPX_SafeCallocInternal(Environment* env, size_t size, void* reserved1,
                                          void* reserved2);
KVJPX_EXPORT void* JPX_SafeReallocInternal(Environment* env, void* block, size_t size,
                                           void* reserved1, void* reserved2);

// Raises 1 for a null or released block: freeing null is an error here, not a no-op, so that a
// caller of kv_jpx_free learns that it holds nothing.
KVJPX_EXPORT void JPX_SafeFreeInternal(Environment* env, void* block);

// For outside users: adopts a block with 32 spare bytes in front; hands one back without freeing
// it; turns one into an ordinary block whose data starts where the header stood.
KVJPX_EXPORT void JPX_TrackerAdd(Environment* env, void* block, void* ignored1, void* ignored2,
                                 size_t size);
KVJPX_EXPORT void JPX_TrackeRemove(Environment* env, void* block);
KVJPX_EXPORT void* JPX_TrackeRelease(Environment* env, void* block);

// Releases everything and jumps to the guard with the code. Never returns.
[[noreturn]] KVJPX_EXPORT void JPX_ErrorExit(Environment* env, uint32_t code);

// A table of row pointers over one block of rows x columns elements; null if any of the three is 0.
KVJPX_EXPORT void** jpx_internal_Alloc2D(Environment* env, uint32_t rows, uint32_t columns,
                                         uint32_t element_size, uint8_t zero_fill);
KVJPX_EXPORT void jpx_internal_Free2D(Environment* env, void** table);

}  // extern "C"

inline void* allocate(Environment* env, size_t size) {
  return JPX_SafeMallocInternal(env, size, nullptr, nullptr);
}

inline void* allocate_zeroed(Environment* env, size_t size) {
  return JPX_SafeCallocInternal(env, size, nullptr, nullptr);
}

// For what can be done without: null when memory is short.
void* try_allocate_zeroed(Environment* env, size_t size);

inline void* reallocate(Environment* env, void* block, size_t size) {
  return JPX_SafeReallocInternal(env, block, size, nullptr, nullptr);
}

// Frees a block that may be absent and forgets it.
template <class T>
void release(Environment* env, T*& block) {
  if (block != nullptr) JPX_SafeFreeInternal(env, block);
  block = nullptr;
}

}  // namespace kvjpx

#endif  // KVJPX_FRAME_MEMORY_H_
