// Tracked blocks, the caller's allocator and the error exit.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

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
  void* const a = take(1);
  EXPECT_EQ(take(0), nullptr);
  EXPECT_EQ(JPX_SafeCallocInternal(env, 0, nullptr, nullptr), nullptr);
  void* const b = JPX_SafeMallocFunc(env, 200, nullptr, nullptr);
  void* const c = JPX_SafeCallocInternal(env, 3, nullptr, nullptr);
  EXPECT_EQ(blocks(), (std::vector<void*>{a, b, c}));
  EXPECT_EQ(header_of(b)->size, 200u);
  EXPECT_EQ(header_of(b)->marker, 0x2FF8FD44u);
  EXPECT_EQ(memcmp(c, "\0\0", 3), 0);
  JPX_SafeFreeInternal(env, b);
  EXPECT_EQ(blocks(), (std::vector<void*>{a, c}));
}

TEST_F(Tracker, ReallocKeepsTheBytesThatFit) {
  EXPECT_EQ(reallocate(env, nullptr, 0), nullptr);
  auto* block = static_cast<char*>(reallocate(env, nullptr, 6));
  memcpy(block, "frame", 6);
  block = static_cast<char*>(reallocate(env, block, 4000));
  EXPECT_STREQ(block, "frame");
  block = static_cast<char*>(reallocate(env, block, 3));
  EXPECT_EQ(memcmp(block, "fra", 3), 0);
  EXPECT_EQ(blocks(), std::vector<void*>{block});
  EXPECT_EQ(reallocate(env, block, 0), nullptr);
  EXPECT_TRUE(blocks().empty());
}

TEST_F(Tracker, AdoptsForeignBlocksAndHandsOutItsOwn) {
  constexpr size_t kSize = 100;
  auto& allocator = context.allocator();
  void* const adopted =
      static_cast<BlockHeader*>(CheckingAllocator::allocate(&allocator, kSize + 32)) + 1;
  JPX_TrackerAdd(env, adopted, nullptr, nullptr, kSize);
  void* const removed = take(kSize);
  auto* released = static_cast<char*>(take(kSize));
  for (size_t i = 0; i < kSize; ++i) released[i] = static_cast<char>(i);
  EXPECT_EQ(blocks(), (std::vector<void*>{adopted, removed, released}));

  JPX_TrackeRemove(env, removed);
  EXPECT_EQ(header_of(removed)->marker, 0x0AE631FFu);
  auto* moved = static_cast<char*>(JPX_TrackeRelease(env, released));
  EXPECT_EQ(moved, released - 32);
  for (size_t i = 0; i < kSize; ++i) EXPECT_EQ(moved[i], static_cast<char>(i));
  EXPECT_EQ(blocks(), std::vector<void*>{adopted});

  JPX_SafeFreeInternal(env, adopted);
  CheckingAllocator::release(&allocator, header_of(removed));
  CheckingAllocator::release(&allocator, moved);
}

TEST_F(Tracker, RefusesBlocksThatAreNotLive) {
  using Operation = void (*)(Environment*, void*);
  const Operation operations[] = {
      JPX_SafeFreeInternal,
      JPX_TrackeRemove,
      [](Environment* e, void* block) { JPX_TrackeRelease(e, block); },
      [](Environment* e, void* block) { reallocate(e, block, 8); },
  };
  for (const Operation operation : operations) {
    for (const bool is_null : {true, false}) {
      if (is_null && operation == operations[3]) continue;  // that is an allocation
      TestContext fresh;
      fresh.allocator().keep_released();
      void* block = allocate(fresh.env(), 8);
      JPX_SafeFreeInternal(fresh.env(), block);
      if (is_null) block = nullptr;
      EXPECT_EQ(raised(fresh.env(), [&] { operation(fresh.env(), block); }), JPX_ERR_MEMORY);
      EXPECT_EQ(fresh.allocator().live_blocks(), 2u) << "the context and its memory manager";
    }
  }
}

TEST_F(Tracker, RaisesOneWhenMemoryIsShort) {
  const size_t kHuge = static_cast<size_t>(-1);
  for (const size_t size : {kHuge, kHuge - 31, kHuge - 32}) {  // with and without wrapping
    TestContext fresh;
    fresh.allocator().set_largest_block(1 << 20);
    EXPECT_EQ(raised(fresh.env(), [&] { allocate_zeroed(fresh.env(), size); }), JPX_ERR_MEMORY);
  }
  void* const block = take(8);
  context.allocator().fail_at(1);
  EXPECT_EQ(raised(env, [&] { reallocate(env, block, 16); }), JPX_ERR_MEMORY);
}

TEST_F(Tracker, IsSpentByAnErrorExit) {
  take(10);
  take(20);
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
  BlockHeader* const before = header_of(take(1));
  BlockHeader* const damaged = header_of(take(1));
  BlockHeader* const behind = header_of(take(1));
  BlockHeader* const tail = env->tail;
  damaged->marker ^= 1;
  EXPECT_EQ(raised(env, [&] { JPX_ErrorExit(env, 77); }), JPX_ERR_MEMORY);
  EXPECT_EQ(env->head, nullptr);
  EXPECT_FALSE(allocator.is_live(before));
  for (BlockHeader* header : {damaged, behind, tail}) {
    ASSERT_TRUE(allocator.is_live(header));
    CheckingAllocator::release(&allocator, header);
  }
}

TEST_F(Tracker, TablesOfRowsCountElementsIn32Bits) {
  EXPECT_EQ(jpx_internal_Alloc2D(env, 0, 1, 4, 1), nullptr);
  EXPECT_EQ(jpx_internal_Alloc2D(env, 1, 0, 4, 1), nullptr);
  EXPECT_EQ(jpx_internal_Alloc2D(env, 1, 1, 0, 1), nullptr);
  jpx_internal_Free2D(env, nullptr);

  void** const table = jpx_internal_Alloc2D(env, 3, 5, 4, 1);
  EXPECT_EQ(header_of(table)->size, 3 * sizeof(void*));
  EXPECT_EQ(header_of(table[0])->size, 3u * 5 * 4);
  EXPECT_EQ(static_cast<char*>(table[2]) - static_cast<char*>(table[0]), 2 * 5 * 4);
  const char zeros[3 * 5 * 4] = {};
  EXPECT_EQ(memcmp(table[0], zeros, sizeof(zeros)), 0);
  jpx_internal_Free2D(env, table);

  void** const wrapped = jpx_internal_Alloc2D(env, 0x10000, 0x10001, 2, 0);
  EXPECT_EQ(header_of(wrapped[0])->size, 0x10000u * 2);
  EXPECT_EQ(static_cast<char*>(wrapped[1]) - static_cast<char*>(wrapped[0]), 0x10001 * 2);
  jpx_internal_Free2D(env, wrapped);
  EXPECT_TRUE(blocks().empty());
}

TEST(CallersAllocator, GetsTheReservedArgumentsBehindItsOwn) {
  struct Seen {
    void* arguments[2];
    static void* allocate(void* user_data, size_t size, void* third, void* fourth) {
      *static_cast<Seen*>(user_data) = {{third, fourth}};
      return malloc(size);
    }
  } seen = {};
  TestContext context;
  MemoryManager* const manager = context.env()->manager;
  const MemoryManager original = *manager;
  manager->user_data = &seen;
  manager->allocate =
      reinterpret_cast<void* (*)(void*, size_t)>(reinterpret_cast<void (*)()>(&Seen::allocate));
  manager->release = [](void*, void* block) { free(block); };
  int third = 0;
  int fourth = 0;
  void* block = JPX_SafeCallocInternal(context.env(), 8, &third, &fourth);
  EXPECT_EQ(seen.arguments[0], &third);
  EXPECT_EQ(seen.arguments[1], &fourth);
  block = JPX_SafeReallocInternal(context.env(), block, 9, &fourth, &third);
  EXPECT_EQ(seen.arguments[0], &fourth);
  EXPECT_EQ(seen.arguments[1], &third);
  JPX_SafeFreeInternal(context.env(), block);
  *manager = original;
}

TEST(CallersAllocator, GetsEverythingBackInTheOrderOfAllocation) {
  struct Recorder {
    std::vector<void*> released;
    static void* allocate(void*, size_t size) { return malloc(size); }
    static void release(void* user_data, void* block) {
      static_cast<Recorder*>(user_data)->released.push_back(block);
      free(block);
    }
  } recorder;
  kv_jpx_context* context = nullptr;
  kv_jpx_create_with_memory_manager(&context, &recorder, Recorder::allocate, Recorder::release);
  Environment* const env = environment_of(context);
  std::vector<void*> expected = {env->head};
  for (const size_t size : {300, 1, 5000}) {
    expected.push_back(header_of(allocate(env, size)));
  }
  expected.insert(expected.end(), {env->tail, env->manager, context});
  EXPECT_EQ(kv_jpx_destroy(context), JPX_OK);
  EXPECT_EQ(recorder.released, expected);
}

TEST(CallersAllocator, ServesOnlyWhenBothFunctionsAreGiven) {
  CheckingAllocator allocator;
  const auto live_through = [&](auto take, auto give_back) {
    kv_jpx_context* context = nullptr;
    EXPECT_EQ(kv_jpx_create_with_memory_manager(&context, &allocator, take, give_back), JPX_OK);
    Environment* const env = environment_of(context);
    allocate(env, 10);
    EXPECT_EQ(kv_jpx_free(context, allocate(env, 10)), JPX_OK);
    EXPECT_EQ(kv_jpx_destroy(context), JPX_OK);
  };
  live_through(CheckingAllocator::allocate, nullptr);
  live_through(nullptr, CheckingAllocator::release);
  EXPECT_EQ(allocator.allocations(), 0u);

  void* const untracked = JPX_KovraMalloc(nullptr, 10);
  ASSERT_NE(untracked, nullptr);
  JPX_KovraFree(nullptr, untracked);
  JPX_KovraFree(nullptr, nullptr);
}

}  // namespace
}  // namespace kvjpx::test
