// Tracked blocks, the caller's allocator and the error exit; the life of a context and the
// version.

#include <cstdlib>
#include <cstring>

#include "frame/context.h"
#include "support/bytes.h"
#include "support/test_context.h"

namespace kvjpx::test {
namespace {

BlockHeader* header_of(void* block) { return static_cast<BlockHeader*>(block) - 1; }

class Tracker : public ::testing::Test {
 protected:
  void* take(size_t size) { return allocate(env, size); }

  // What the list holds between its sentinels, checking the links on the way.
  std::vector<void*> blocks() const {
    std::vector<void*> result;
    EXPECT_EQ(env->head->previous, nullptr);
    EXPECT_EQ(env->tail->next, nullptr);
    for (BlockHeader* header = env->head; header->next != nullptr; header = header->next) {
      EXPECT_EQ(header->next->previous, header);
      if (header != env->head) result.push_back(header + 1);
    }
    return result;
  }

  TestContext context;
  Environment* const env = context.env();
};

TEST_F(Tracker, ListsLiveBlocksInTheOrderOfTheirAllocation) {
  const std::string data = pattern(200);
  EXPECT_EQ(JPX_SafeCallocInternal(env, 0, nullptr, nullptr), nullptr);
  EXPECT_EQ(reallocate(env, nullptr, 0), nullptr);
  void* a = memcpy(reallocate(env, nullptr, 6), data.data(), 6);
  void* const b = memcpy(JPX_SafeMallocFunc(env, 200, nullptr, nullptr), data.data(), 200);
  void* const c = JPX_SafeCallocInternal(env, 3, nullptr, nullptr);
  EXPECT_EQ(memcmp(c, "\0\0", 3), 0);
  EXPECT_EQ(header_of(b)->size, 200u);
  EXPECT_EQ(header_of(b)->marker, 0x2FF8FD44u);
  EXPECT_EQ(blocks(), (std::vector<void*>{a, b, c}));
  for (const size_t size : {4000, 6}) {
    a = reallocate(env, a, size);
    EXPECT_EQ(memcmp(a, data.data(), 6), 0);
  }
  JPX_SafeFreeInternal(env, c);
  EXPECT_EQ(blocks(), (std::vector<void*>{b, a}));
  EXPECT_EQ(reallocate(env, a, 0), nullptr);

  // Its own are handed out, with and without the header's place, and foreign ones taken in.
  JPX_TrackeRemove(env, b);
  EXPECT_EQ(header_of(b)->marker, 0x0AE631FFu);
  EXPECT_TRUE(blocks().empty());
  JPX_TrackerAdd(env, b, nullptr, nullptr, 200);
  EXPECT_EQ(blocks(), std::vector<void*>{b});
  void* const moved = JPX_TrackeRelease(env, b);
  EXPECT_EQ(moved, header_of(b));
  EXPECT_EQ(memcmp(moved, data.data(), 200), 0);
  EXPECT_TRUE(blocks().empty());
  CheckingAllocator::release(&context.allocator(), moved);
}

TEST_F(Tracker, RefusesBlocksThatAreNotLive) {
  using Operation = void (*)(Environment*, void*);
  const Operation operations[] = {
      [](Environment* e, void* block) { reallocate(e, block, 8); },
      JPX_SafeFreeInternal,
      JPX_TrackeRemove,
      [](Environment* e, void* block) { JPX_TrackeRelease(e, block); },
  };
  for (const Operation operation : operations) {
    TestContext fresh;
    fresh.allocator().keep_released();
    void* const stale = allocate(fresh.env(), 8);
    JPX_SafeFreeInternal(fresh.env(), stale);
    EXPECT_EQ(raised(fresh.env(), [&] { operation(fresh.env(), stale); }), JPX_ERR_MEMORY);
    EXPECT_EQ(fresh.allocator().live_blocks(), 2u) << "the context and its memory manager";
    if (operation == operations[0]) continue;  // with null, that is an allocation
    TestContext other;
    EXPECT_EQ(raised(other.env(), [&] { operation(other.env(), nullptr); }), JPX_ERR_MEMORY);
  }
}

TEST_F(Tracker, IsSpentByAnErrorExit) {
  take(10);
  // More than there is, with and without wrapping.
  for (const size_t too_much : {size_t{0} - 1, size_t{0} - 32, size_t{0} - 33}) {
    TestContext fresh;
    fresh.allocator().set_largest_block(1 << 20);
    EXPECT_EQ(raised(fresh.env(), [&] { allocate_zeroed(fresh.env(), too_much); }), JPX_ERR_MEMORY);
  }
  EXPECT_EQ(raised(env, [&] { JPX_ErrorExit(env, 77); }), 77);
  EXPECT_EQ(env->head, nullptr);
  EXPECT_EQ(env->tail, nullptr);
  EXPECT_EQ(context.allocator().live_blocks(), 2u);

  void* const unreadable = reinterpret_cast<void*>(0x1000);
  EXPECT_EQ(raised(env, [&] { JPX_SafeFreeInternal(env, unreadable); }), JPX_ERR_MEMORY);
  EXPECT_EQ(raised(env, [&] { JPX_TrackerAdd(env, unreadable, nullptr, nullptr, 1); }),
            JPX_ERR_MEMORY);
  EXPECT_EQ(raised(env, [&] { take(1); }), JPX_ERR_MEMORY);
  EXPECT_EQ(take(0), nullptr);
  EXPECT_EQ(raised(env, [&] { JPX_ErrorExit(env, 78); }), 78);
  JPX_Kv_ShutdownCompressionSystem(env);
}

TEST_F(Tracker, StopsReleasingAtADamagedHeader) {
  auto& allocator = context.allocator();
  allocator.keep_released();
  BlockHeader* const before = header_of(take(1));
  BlockHeader* const damaged = header_of(take(1));
  BlockHeader* const tail = env->tail;
  damaged->marker ^= 1;
  EXPECT_EQ(raised(env, [&] { JPX_ErrorExit(env, 77); }), JPX_ERR_MEMORY);
  EXPECT_EQ(env->head, nullptr);
  EXPECT_FALSE(allocator.is_live(before));
  CheckingAllocator::release(&allocator, damaged);
  CheckingAllocator::release(&allocator, tail);
}

TEST_F(Tracker, TablesOfRowsCountElementsIn32Bits) {
  EXPECT_EQ(jpx_internal_Alloc2D(env, 1, 0, 4, 1), nullptr);
  jpx_internal_Free2D(env, nullptr);

  const uint32_t shapes[][4] = {{3, 5, 4, 3 * 5 * 4}, {0x10000, 0x10001, 2, 0x10000 * 2}};
  for (const auto& [rows, columns, element, size] : shapes) {
    void** const table = jpx_internal_Alloc2D(env, rows, columns, element, 1);
    EXPECT_EQ(header_of(table)->size, rows * sizeof(void*));
    EXPECT_EQ(header_of(table[0])->size, size);
    const auto* const cells = static_cast<char*>(table[0]);
    EXPECT_EQ(static_cast<char*>(table[1]) - cells, columns * element);
    EXPECT_EQ(std::string(cells, size), std::string(size, '\0'));
    jpx_internal_Free2D(env, table);
  }
  EXPECT_TRUE(blocks().empty());
}

TEST(CallersAllocator, GetsTheReservedArgumentsBehindItsOwn) {
  static const void* seen[2];
  void* (*const allocate)(void*, size_t, void*, void*) = [](void*, size_t size, void* third,
                                                            void* fourth) {
    seen[0] = third;
    seen[1] = fourth;
    return malloc(size);
  };
  kv_jpx_context* context = nullptr;
  kv_jpx_create_with_memory_manager(
      &context, nullptr,
      reinterpret_cast<void* (*)(void*, size_t)>(reinterpret_cast<void (*)()>(allocate)),
      [](void*, void* block) { free(block); });
  int third = 0, fourth = 0;
  JPX_SafeCallocInternal(environment_of(context), 8, &third, &fourth);
  EXPECT_TRUE(seen[0] == &third && seen[1] == &fourth);
  EXPECT_EQ(kv_jpx_destroy(context), JPX_OK);
}

TEST(Context, IsNotMadeWhenAnyAllocationFails) {
  // The record, its memory manager and two sentinels.
  for (const size_t failing : {1, 2, 3, 4, 0}) {
    CheckingAllocator allocator;
    allocator.fail_at(failing);
    kv_jpx_context* context = nullptr;
    EXPECT_EQ(kv_jpx_create_with_memory_manager(&context, &allocator, CheckingAllocator::allocate,
                                                CheckingAllocator::release),
              failing != 0 ? JPX_ERR_MEMORY : JPX_OK);
    EXPECT_EQ(context == nullptr, failing != 0);
    kv_jpx_destroy(context);
    EXPECT_EQ(allocator.live_blocks(), 0u);
  }
  EXPECT_EQ(kv_jpx_create(nullptr), JPX_ERR_MEMORY);
  EXPECT_EQ(kv_jpx_create_with_memory_manager(nullptr, nullptr, nullptr, nullptr), JPX_ERR_MEMORY);
  // Half an allocator is none.
  for (const bool has_first : {true, false}) {
    kv_jpx_context* context = nullptr;
    kv_jpx_create_with_memory_manager(&context, nullptr,
                                      has_first ? CheckingAllocator::allocate : nullptr,
                                      has_first ? nullptr : CheckingAllocator::release);
    EXPECT_EQ(kv_jpx_free(context, allocate(environment_of(context), 10)), JPX_OK);
    EXPECT_EQ(kv_jpx_destroy(context), JPX_OK);
  }
  JPX_KovraFree(nullptr, JPX_KovraMalloc(nullptr, 10));
}

TEST(Context, TellsItsVersion) {
  uint32_t version = 0;
  char banner[34] = {'#'};
  EXPECT_EQ(kv_jpx_get_library_version(&version, banner, nullptr), JPX_OK);
  EXPECT_EQ(version, 1000200u);
  for (const uint32_t too_small : {0u, 31u, 32u}) {
    uint32_t size = too_small;
    EXPECT_EQ(kv_jpx_get_library_version(nullptr, banner, &size), JPX_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 32u);
  }
  EXPECT_EQ(banner[0], '#');
  banner[32] = '#';
  uint32_t size = 33;
  EXPECT_EQ(kv_jpx_get_library_version(nullptr, banner, &size), JPX_OK);
  EXPECT_EQ(std::string(banner, 33), std::string("JPX by Kovra v. 1.0.2 for Win32\0#", 33));
}

}  // namespace
}  // namespace kvjpx::test
