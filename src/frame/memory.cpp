// Memory manager, allocation tracker and error exit (see memory.h).
#include "frame/memory.h"

#include <stdlib.h>
#include <string.h>

namespace kvjpx {
namespace {

bool has_callbacks(const MemoryManager* manager) {
  return manager != nullptr && manager->allocate != nullptr && manager->release != nullptr;
}

// The caller's allocator is declared with two parameters and gets four: by the platform's calling
// conventions the two behind are ignored by a function that does not ask for them, and allocators
// that do ask (for a file name and line, say) find the reserved arguments there.
#if defined(__clang__)
__attribute__((no_sanitize("function")))
#endif
void* raw_allocate(const MemoryManager* manager, size_t size, void* reserved1, void* reserved2) {
  if (!has_callbacks(manager)) return malloc(size);
  using FourArguments = void* (*)(void*, size_t, void*, void*);
  const auto function =
      reinterpret_cast<FourArguments>(reinterpret_cast<void (*)()>(manager->allocate));
  return function(manager->user_data, size, reserved1, reserved2);
}

uint64_t changes_count;

BlockHeader* header_of(void* block) { return static_cast<BlockHeader*>(block) - 1; }

void link_before_tail(Environment* env, BlockHeader* header) {
  header->next = env->tail;
  header->previous = env->tail->previous;
  header->previous->next = header;
  env->tail->previous = header;
}

void unlink_block(BlockHeader* header) {
  header->previous->next = header->next;
  header->next->previous = header->previous;
  header->marker = kReleasedBlock;
}

// Gives back what the owner did not, as the list must not lead into a block that is gone.
void release_resources_in(Environment* env, const BlockHeader* header) {
  const auto* const begin = reinterpret_cast<const char*>(header + 1);
  for (Resource* resource = env->head->resources; resource != nullptr;) {
    Resource* const next = resource->next;
    const auto* const place = reinterpret_cast<const char*>(resource);
    if (place >= begin && place < begin + header->size) {
      const auto release = resource->release;
      detach_resource(env, resource);
      release(resource);
    }
    resource = next;
  }
}

// The header of a live block; raises 1 for anything else. A spent environment has no live blocks,
// so the pointer is not followed there.
BlockHeader* require_live(Environment* env, void* block) {
  if (is_spent(env) || block == nullptr || header_of(block)->marker != kLiveBlock) {
    JPX_ErrorExit(env, JPX_ERR_MEMORY);
  }
  // Every block that goes comes by here.
  BlockHeader* const header = header_of(block);
  if (header->content == kBoxInTree && env->head->content != kTreeIsEnding) note_outside_change();
  if (header->content == kOwnsResources) release_resources_in(env, header);
  return header;
}

void adopt(Environment* env, BlockHeader* header, size_t size) {
  header->size = size;
  header->content = kPlain;
  header->marker = kLiveBlock;
  link_before_tail(env, header);
}

// A tracked block of a non-zero size, or null.
void* try_block(Environment* env, size_t size, void* reserved1, void* reserved2) {
  const size_t whole = size + sizeof(BlockHeader);
  if (is_spent(env) || whole < size) return nullptr;
  auto* header = static_cast<BlockHeader*>(raw_allocate(env->manager, whole, reserved1, reserved2));
  if (header == nullptr) return nullptr;
  adopt(env, header, size);
  return header + 1;
}

void* tracked_block(Environment* env, size_t size, void* reserved1, void* reserved2) {
  void* const block = try_block(env, size, reserved1, reserved2);
  if (block == nullptr) JPX_ErrorExit(env, JPX_ERR_MEMORY);
  return block;
}

void release_resources(Environment* env) {
  while (env->head->resources != nullptr) {
    Resource* const resource = env->head->resources;
    const auto release = resource->release;
    detach_resource(env, resource);
    release(resource);
  }
}

// Frees every tracked block and both sentinels and leaves the environment spent. A block that is
// not live means a damaged list: what lies behind it cannot be trusted and is left alone.
void JPX_TrackerReleaseAll(Environment* env) {
  if (is_spent(env)) return;
  release_resources(env);
  BlockHeader* const head = env->head;
  BlockHeader* const tail = env->tail;
  env->head = nullptr;
  env->tail = nullptr;
  for (BlockHeader* header = head; header != nullptr;) {
    BlockHeader* const next = header->next;
    if (header != head && header != tail && header->marker != kLiveBlock) {
      JPX_ErrorExit(env, JPX_ERR_MEMORY);
    }
    JPX_KovraFree(env->manager, header);
    header = next;
  }
}

}  // namespace

void note_outside_change() { __atomic_fetch_add(&changes_count, 1, __ATOMIC_RELAXED); }

uint64_t outside_changes() { return __atomic_load_n(&changes_count, __ATOMIC_RELAXED); }

void attach_resource(Environment* env, Resource* resource, void (*release)(Resource*)) {
  resource->release = release;
  resource->previous = nullptr;
  resource->next = env->head->resources;
  if (resource->next != nullptr) resource->next->previous = resource;
  env->head->resources = resource;
}

void detach_resource(Environment* env, Resource* resource) {
  if (resource->release == nullptr) return;
  if (resource->next != nullptr) resource->next->previous = resource->previous;
  if (resource->previous != nullptr) {
    resource->previous->next = resource->next;
  } else {
    env->head->resources = resource->next;
  }
  resource->release = nullptr;
}

void* try_allocate_zeroed(Environment* env, size_t size) {
  void* const block = try_block(env, size, nullptr, nullptr);
  return block == nullptr ? nullptr : memset(block, 0, size);
}

extern "C" {

void* JPX_KovraMalloc(const MemoryManager* manager, size_t size) {
  return raw_allocate(manager, size, nullptr, nullptr);
}

void JPX_KovraFree(const MemoryManager* manager, void* block) {
  if (block == nullptr) return;
  if (has_callbacks(manager)) {
    manager->release(manager->user_data, block);
  } else {
    free(block);
  }
}

void JPX_Kv_StartupCompressionSystem(Environment* env) {
  auto* head = static_cast<BlockHeader*>(JPX_KovraMalloc(env->manager, sizeof(BlockHeader)));
  auto* tail = static_cast<BlockHeader*>(JPX_KovraMalloc(env->manager, sizeof(BlockHeader)));
  if (head == nullptr || tail == nullptr) {
    JPX_KovraFree(env->manager, head);
    JPX_KovraFree(env->manager, tail);
    head = tail = nullptr;
  } else {
    *head = {tail, nullptr, {0}, 0, 0};
    *tail = {nullptr, head, {0}, 0, 0};
  }
  env->head = head;
  env->tail = tail;
}

void JPX_Kv_ShutdownCompressionSystem(Environment* env) { JPX_TrackerReleaseAll(env); }

void* JPX_SafeMallocInternal(Environment* env, size_t size, void* reserved1, void* reserved2) {
  return size == 0 ? nullptr : tracked_block(env, size, reserved1, reserved2);
}

void* JPX_SafeMallocFunc(Environment* env, size_t size, void* reserved1, void* reserved2) {
  return JPX_SafeMallocInternal(env, size, reserved1, reserved2);
}

void* JPX_SafeCallocInternal(Environment* env, size_t size, void* reserved1, void* reserved2) {
  void* block = JPX_SafeMallocInternal(env, size, reserved1, reserved2);
  return block == nullptr ? nullptr : memset(block, 0, size);
}

void* JPX_SafeReallocInternal(Environment* env, void* block, size_t size, void* reserved1,
                              void* reserved2) {
  if (block == nullptr) return JPX_SafeMallocInternal(env, size, reserved1, reserved2);
  const uint64_t old_size = require_live(env, block)->size;
  void* const moved = JPX_SafeMallocInternal(env, size, reserved1, reserved2);
  if (moved != nullptr) memcpy(moved, block, old_size < size ? old_size : size);
  JPX_SafeFreeInternal(env, block);
  return moved;
}

void JPX_SafeFreeInternal(Environment* env, void* block) {
  BlockHeader* const header = require_live(env, block);
  unlink_block(header);
  JPX_KovraFree(env->manager, header);
}

void JPX_TrackerAdd(Environment* env, void* block, void*, void*, size_t size) {
  if (is_spent(env)) JPX_ErrorExit(env, JPX_ERR_MEMORY);
  adopt(env, header_of(block), size);
}

void JPX_TrackeRemove(Environment* env, void* block) { unlink_block(require_live(env, block)); }

void* JPX_TrackeRelease(Environment* env, void* block) {
  BlockHeader* const header = require_live(env, block);
  unlink_block(header);
  return memmove(header, block, header->size);
}

void JPX_ErrorExit(Environment* env, uint32_t code) {
  JPX_TrackerReleaseAll(env);
  longjmp(env->jump, static_cast<int>(code));
}

void** jpx_internal_Alloc2D(Environment* env, uint32_t rows, uint32_t columns,
                            uint32_t element_size, uint8_t zero_fill) {
  if (rows == 0 || columns == 0 || element_size == 0) return nullptr;
  auto** table = static_cast<void**>(allocate(env, rows * sizeof(void*)));
  // Kept for compatibility: the element count wraps at 32 bits while the stride does not. Without
  // the wrap, larger tables would need the memory that they name. In them, rows point past the
  // block, so these are numbers until a caller follows them.
  const uint32_t count = rows * columns;
  const size_t size = size_t{count} * element_size;
  void* const data = zero_fill != 0 ? allocate_zeroed(env, size) : allocate(env, size);
  const size_t stride = size_t{columns} * element_size;
  for (uint32_t row = 0; row < rows; ++row) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    table[row] = reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(data) + row * stride);
  }
  return table;
}

void jpx_internal_Free2D(Environment* env, void** table) {
  if (table == nullptr) return;
  if (table[0] != nullptr) JPX_SafeFreeInternal(env, table[0]);
  JPX_SafeFreeInternal(env, table);
}

}  // extern "C"
}  // namespace kvjpx
