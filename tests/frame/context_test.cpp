// Life of a context, its settings, the version, and what public functions say to bad contexts.
#include "frame/context.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "support/bytes.h"
#include "support/test_context.h"

namespace kvjpx::test {
namespace {

TEST(Context, IsNotMadeWhenAnyAllocationFails) {
  size_t failures = 0;
  for (bool is_made = false; !is_made;) {
    CheckingAllocator allocator;
    allocator.fail_at(failures + 1);
    kv_jpx_context* context = nullptr;
    const int32_t code = kv_jpx_create_with_memory_manager(
        &context, &allocator, CheckingAllocator::allocate, CheckingAllocator::release);
    is_made = !allocator.has_failed();
    EXPECT_EQ(code, is_made ? JPX_OK : JPX_ERR_MEMORY);
    EXPECT_EQ(context != nullptr, is_made);
    if (is_made) {
      kv_jpx_destroy(context);
    } else {
      ++failures;
    }
    EXPECT_EQ(allocator.live_blocks(), 0u);
  }
  EXPECT_GE(failures, 4u) << "the record, its memory manager and two sentinels";
  EXPECT_EQ(kv_jpx_create(nullptr), JPX_ERR_MEMORY);
  EXPECT_EQ(kv_jpx_create_with_memory_manager(nullptr, nullptr, nullptr, nullptr), JPX_ERR_MEMORY);
}

TEST(Context, TellsItsVersion) {
  uint32_t version = 0;
  EXPECT_EQ(kv_jpx_get_library_version(nullptr, nullptr, nullptr), JPX_OK);
  EXPECT_EQ(kv_jpx_get_library_version(&version, nullptr, nullptr), JPX_OK);
  EXPECT_EQ(version, 1000200u);

  char banner[40];
  memset(banner, '#', sizeof(banner));
  for (const uint32_t too_small : {0u, 31u, 32u}) {
    uint32_t size = too_small;
    EXPECT_EQ(kv_jpx_get_library_version(nullptr, banner, &size), JPX_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 32u);
    EXPECT_EQ(banner[0], '#');
  }
  uint32_t size = 33;
  EXPECT_EQ(kv_jpx_get_library_version(nullptr, banner, nullptr), JPX_OK);
  EXPECT_EQ(banner[0], '#');
  EXPECT_EQ(kv_jpx_get_library_version(nullptr, banner, &size), JPX_OK);
  EXPECT_STREQ(banner, "JPX by Kovra v. 1.0.2 for Win32");
  EXPECT_EQ(banner[32], '#');
  EXPECT_EQ(size, 33u);
}

TEST(Context, KeepsItsSettings) {
  TestContext context;
  const kv_jpx_context& record = *context.get();
  EXPECT_EQ(record.resolution_level, -1);
  EXPECT_EQ(record.quality_level, 1);
  EXPECT_EQ(record.output_type, 74);
  EXPECT_EQ(kv_jpx_set_input_jpx_region_level(context.get(), 1, ~uint64_t{0}, 3, 4), JPX_OK);
  uint64_t region[4];  // hosts find left, right, top, bottom in the record, in this order
  memcpy(region, &record.region_left, sizeof(region));
  EXPECT_EQ(std::vector<uint64_t>(region, region + 4),
            (std::vector<uint64_t>{1, 3, ~uint64_t{0}, 4}));

  EXPECT_EQ(kv_jpx_set_input_jpx_resolution_level(context.get(), 32767, -2), JPX_OK);
  EXPECT_EQ(kv_jpx_set_input_jpx_quality_level(context.get(), 9), JPX_OK);
  for (const int16_t level : {0, -5, -32768}) {
    EXPECT_EQ(kv_jpx_set_input_jpx_resolution_level(context.get(), level, 5),
              JPX_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(kv_jpx_set_input_jpx_quality_level(context.get(), level), JPX_ERR_INVALID_ARGUMENT);
  }
  EXPECT_EQ(record.resolution_level, 32767);
  EXPECT_EQ(record.resolution_flag, -2);
  EXPECT_EQ(record.quality_level, 9);

  void* five[5];
  for (void*& value : five) value = &value;
  kv_jpx_register_callbacks(context.get(), five[0], five[1], five[2], five[3], five[4]);
  EXPECT_EQ(memcmp(record.environment.manager->callbacks, five, sizeof(five)), 0);
}

TEST(Context, IsFitForDestructionOnlyAfterAnErrorExit) {
  TestContext context;
  ASSERT_EQ(context.load(jp2_file()), JPX_OK);
  uint64_t length = 0;
  void* output = nullptr;
  ASSERT_EQ(kv_jpx_get_output_image(context.get(), &output, &length), JPX_OK);
  EXPECT_EQ(kv_jpx_free(context.get(), nullptr), JPX_ERR_MEMORY);
  EXPECT_EQ(context.allocator().live_blocks(), 2u);

  uint32_t id = 0;
  EXPECT_EQ(kv_jpx_free(context.get(), output), JPX_ERR_MEMORY);
  EXPECT_EQ(kv_jpx_get_first_child_box_id(context.get(), KV_JPX_ROOT, &id), JPX_ERR_NO_INPUT);
  EXPECT_EQ(context.load(jp2_file()), JPX_ERR_MEMORY);
  EXPECT_EQ(kv_jpx_set_input_jpx_quality_level(context.get(), 2), JPX_OK);
}

using Call = std::function<int32_t(kv_jpx_context*)>;

std::vector<Call> calls_of_every_function() {
  static uint32_t small = 0;
  static uint64_t large = 0;
  static uint8_t flag = 0;
  static void* block = nullptr;
  return {
      [](auto* c) { return kv_jpx_destroy(c); },
      [](auto* c) { return kv_jpx_register_callbacks(c, c, c, c, c, c); },
      [](auto* c) { return kv_jpx_free(c, nullptr); },
      [](auto* c) { return kv_jpx_set_input_jpx_region_level(c, 1, 2, 3, 4); },
      [](auto* c) { return kv_jpx_set_input_jpx_resolution_level(c, 0, 0); },
      [](auto* c) { return kv_jpx_set_input_jpx_quality_level(c, 0); },
      [](auto* c) { return kv_jpx_set_input_image(c, "", 0); },
      [](auto* c) { return kv_jpx_set_input_image_file(c, "/nonexistent"); },
      [](auto* c) { return kv_jpx_set_input_image_mapped(c, "/nonexistent"); },
      [](auto* c) { return kv_jpx_get_next_box_id_by_type(c, 1, 0, &small); },
      [](auto* c) { return kv_jpx_get_box_count_by_type(c, 1, &small); },
      [](auto* c) { return kv_jpx_get_box_type_by_id(c, 0, &small); },
      [](auto* c) { return kv_jpx_get_next_box_id(c, 0, &small); },
      [](auto* c) { return kv_jpx_get_first_child_box_id(c, 0, &small); },
      [](auto* c) { return kv_jpx_is_box_super(c, 0, &flag); },
      [](auto* c) { return kv_jpx_print_box(c, 0); },
      [](auto* c) { return kv_jpx_get_box_field_int(c, 0, 0, 0, &large); },
      [](auto* c) { return kv_jpx_set_box_field_int(c, 0, 0, 0, 0); },
      [](auto* c) { return kv_jpx_get_box_field_count(c, 0, 0, &large, &small); },
      [](auto* c) { return kv_jpx_set_box_field_buffer(c, 0, 0, 0, 0, ""); },
      [](auto* c) { return kv_jpx_get_box_field_buffer(c, 0, 0, &large, &small, &block); },
      [](auto* c) { return kv_jpx_add_box(c, 1, KV_JPX_ROOT, 2, &small); },
      [](auto* c) { return kv_jpx_delete_box(c, 0); },
      [](auto* c) { return kv_jpx_get_box_buffer(c, 0, &large, &block); },
      [](auto* c) { return kv_jpx_set_output_type(c, 0); },
      [](auto* c) { return kv_jpx_get_output_image(c, &block, &large); },
      [](auto* c) { return kv_jpx_get_output_image_file(c, "/nonexistent/file"); },
  };
}

TEST(Context, IsRecognisedByEveryFunction) {
  TestContext destroyed;
  destroyed.allocator().keep_released();
  kv_jpx_context* const stale = destroyed.get();
  destroyed.destroy();
  kv_jpx_context foreign;
  memset(&foreign, 0x5A, sizeof(foreign));
  const kv_jpx_context original = foreign;
  size_t function = 0;
  for (const Call& call : calls_of_every_function()) {
    SCOPED_TRACE(function++);
    EXPECT_EQ(call(nullptr), JPX_ERR_BAD_CONTEXT);
    EXPECT_EQ(call(&foreign), JPX_ERR_BAD_CONTEXT);
    EXPECT_EQ(call(stale), JPX_ERR_BAD_CONTEXT);
  }
  EXPECT_EQ(memcmp(&foreign, &original, sizeof(foreign)), 0);
}

}  // namespace
}  // namespace kvjpx::test
