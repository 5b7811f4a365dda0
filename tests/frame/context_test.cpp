// Life of a context, its settings, the version, and what public functions say to bad contexts.
#include "frame/context.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/test_context.h"

namespace kvjpx::test {
namespace {

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
  }
  EXPECT_EQ(kv_jpx_create(nullptr), JPX_ERR_MEMORY);
  EXPECT_EQ(kv_jpx_create_with_memory_manager(nullptr, nullptr, nullptr, nullptr), JPX_ERR_MEMORY);
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

TEST(Context, KeepsItsSettings) {
  TestContext context;
  const kv_jpx_context& record = *context.get();
  const auto levels = [&] {
    return std::vector<int32_t>{record.resolution_level, record.resolution_flag,
                                record.quality_level, record.output_type};
  };
  EXPECT_EQ(levels(), (std::vector<int32_t>{-1, 0, 1, 74}));
  EXPECT_EQ(kv_jpx_set_input_jpx_resolution_level(context.get(), 32767, -2), JPX_OK);
  EXPECT_EQ(kv_jpx_set_input_jpx_quality_level(context.get(), 9), JPX_OK);
  for (const int16_t level : {0, -5, -32768}) {
    EXPECT_EQ(kv_jpx_set_input_jpx_resolution_level(context.get(), level, 5),
              JPX_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(kv_jpx_set_input_jpx_quality_level(context.get(), level), JPX_ERR_INVALID_ARGUMENT);
  }
  EXPECT_EQ(levels(), (std::vector<int32_t>{32767, -2, 9, 74}));

  EXPECT_EQ(kv_jpx_set_input_jpx_region_level(context.get(), 1, ~uint64_t{0}, 3, 4), JPX_OK);
  const uint64_t region[] = {1, 3, ~uint64_t{0}, 4};  // where hosts find it in the record
  EXPECT_EQ(memcmp(&record.region_left, region, sizeof(region)), 0);
  void* five[5];
  for (void*& value : five) value = &value;
  kv_jpx_register_callbacks(context.get(), five[0], five[1], five[2], five[3], five[4]);
  EXPECT_EQ(memcmp(record.environment.manager->callbacks, five, sizeof(five)), 0);
}

}  // namespace
}  // namespace kvjpx::test
