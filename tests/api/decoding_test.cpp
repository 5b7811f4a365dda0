// Decoding: what the codec is asked for, how codestreams are composed, and that nothing is written
// outside the image or left behind, whatever the codec does.

#include "api/recording_codec.h"
#include "box/test_document.h"

namespace kvjpx::test {
namespace {

constexpr int32_t kPng = 68;

struct Size {
  uint32_t width, height, components;
};

// A file of pictures placed by pairs of offsets.
using Place = std::pair<uint32_t, uint32_t>;
std::string composition(const Size& size, const std::vector<Picture>& pictures,
                        const std::vector<Place>& places = {}) {
  std::string instructions = be16(1) + be16(0) + be32(0);
  for (const auto& [x, y] : places) instructions += be32(x) + be32(y);
  std::string file = signature_box();
  file += box("jp2h", box("ihdr", be32(size.height) + be32(size.width) + be16(size.components) +
                                      bytes({7, 7, 0, 0})));
  if (!places.empty()) file += box("comp", box("inst", instructions));
  for (const Picture& each : pictures) file += box("jp2c", picture(each));
  return file;
}

class DecodingTest : public ::testing::Test {
 protected:
  DecodingTest() {
    codec() = {};
    kv_jpx_set_output_type(document_.get(), kPng);
  }
  ~DecodingTest() override { EXPECT_EQ(codec().instances + codec().blocks, 0); }

  // Decodes into memory; the stand-in's final output is the composed image itself.
  std::string decode() {
    codec().calls.clear();
    return document_.written();
  }
  std::string decoded(const std::string& file) {
    EXPECT_EQ(document_.load(file), JPX_OK);
    return decode();
  }

  TestDocument document_;
};

TEST_F(DecodingTest, AsksTheCodecInItsOrder) {
  document_.load(composition({6, 4, 2}, {{6, 4, 2, 10}}));
  kv_jpx_set_input_jpx_region_level(document_.get(), 2, 1, 5, 3);
  for (const int16_t level : {2, 0, -32768}) {  // what is refused changes nothing
    const int32_t code = level > 0 ? JPX_OK : JPX_ERR_INVALID_ARGUMENT;
    EXPECT_EQ(kv_jpx_set_input_jpx_resolution_level(document_.get(), level, level + 7), code);
    EXPECT_EQ(kv_jpx_set_input_jpx_quality_level(document_.get(), level), code);
  }
  EXPECT_EQ(decode(), std::string(4, 10));
  std::vector<std::string> expected = {
      "create",    "input 8",    "tile 1",     "region 2 1 5 3", "resolution 2 9",
      "quality 2", "type 64",    "output 0 0", "free 1",         "raw 1 2 2 24 0",
      "type 68",   "output 1 0", "output 1 4", "destroy"};
  EXPECT_EQ(codec().calls, expected);

  codec().calls.clear();
  EXPECT_EQ(kv_jpx_get_output_image_file(document_.get(), "a.png"), JPX_OK);
  expected.resize(11);
  expected.insert(expected.end(), {"file a.png", "destroy"});
  EXPECT_EQ(codec().calls, expected);
}

TEST_F(DecodingTest, Compositions) {
  // Later instructions overwrite earlier ones; missing ones place at the corner.
  EXPECT_EQ(decoded(composition({4, 3, 1}, {{4, 3, 1, 1}, {2, 2, 1, 7}}, {{0, 0}, {2, 1}})),
            bytes({1, 1, 1, 1, 1, 1, 7, 7, 1, 1, 7, 7}));
  EXPECT_EQ(decoded(composition({2, 1, 1}, {{2, 1, 1, 4}, {1, 1, 1, 6}})), bytes({6, 4}));
  EXPECT_EQ(codec().calls[4], "type 64") << "levels below two are not handed on";
  // An instruction that is skipped leaves its codestream to the next. One right on the edge is not
  // skipped: it uses up its codestream without showing it.
  const std::vector<Picture> two = {{2, 1, 1, 4}, {2, 1, 1, 6}};
  EXPECT_EQ(decoded(composition({2, 1, 1}, two, {{50, 0}, {0, 0}})), bytes({4, 4}));
  EXPECT_EQ(codec().calls[1], "free 0");
  EXPECT_EQ(decoded(composition({2, 1, 1}, two, {{2, 0}, {0, 0}})), bytes({6, 6}));
  // Without a codestream the codec hears of as many components as the header promised.
  EXPECT_EQ(decoded(composition({1, 2, 3}, {})), std::string(6, 0));
  EXPECT_EQ(codec().calls[1], "raw 2 1 3 24 0");
  // An image area that ends before the region is not decoded.
  kv_jpx_set_input_jpx_region_level(document_.get(), 5, 0, 0, 0);
  EXPECT_EQ(decoded(composition({8, 4, 1}, {{8, 6, 1, 9, 3, 1}})), std::string(3 * 4, 0));
  EXPECT_EQ(codec().calls[3], "free 0");
  // A left beyond the image wraps the width around, to more than there is memory for.
  kv_jpx_set_input_jpx_region_level(document_.get(), 9, 0, 0, 0);
  void* data = nullptr;
  uint64_t length = 0;
  document_.allocator().set_largest_block(1 << 20);
  EXPECT_EQ(kv_jpx_get_output_image(document_.get(), &data, &length), JPX_ERR_MEMORY);
}

TEST_F(DecodingTest, CodestreamsAreTakenInTheOrderOfTheirIdentifiers) {
  document_.load(composition({2, 1, 1}, {{2, 1, 1, 4}}));
  // Each is put in front of those before it.
  for (uint8_t value = 5; value < 12; ++value) {
    const uint32_t id = document_.add("jp2c", 0, kPlaceAfter);
    document_.set_bytes(id, JPX_FIELD_JP2C_DATA, picture({1, 1, 1, value}));
    EXPECT_EQ(decode(), bytes({value, 4}));
  }
}

TEST_F(DecodingTest, ReportsWhatCameOfIt) {
  const auto report = [&] {
    kv_jpx_decode_report told = {};
    EXPECT_EQ(kv_jpx_get_decode_report(document_.get(), &told), JPX_ERR_INVALID_ARGUMENT);
    told.size = sizeof told;
    EXPECT_EQ(kv_jpx_get_decode_report(document_.get(), &told), JPX_OK);
    return spaced(told.delivered, told.failed, told.skipped,
                  static_cast<int32_t>(told.failed_box_id), told.codec_code, told.output_code,
                  told.text);
  };
  EXPECT_EQ(report(), "0 0 0 -1 0 0 ");
  // The third is put behind the region.
  const Picture picture = {2, 1, 1, 4};
  document_.load(composition({2, 1, 1}, {picture, picture, picture}, {{0, 0}, {0, 0}, {9, 0}}));
  decode();
  EXPECT_EQ(report(), "2 0 1 -1 0 0 ");
  codec().answer = 18;
  decode();
  EXPECT_EQ(report(),
            "0 2 1 5 18 18 the codestream in box 'jp2c' at offset 90 cannot be decoded: the codec "
            "answers 18, the codestream is broken or cut off");
}

TEST_F(DecodingTest, ImagesBeyondTheLimitsAreRefused) {
  const struct {
    uint64_t samples;
    uint32_t components;
    int32_t code;
  } limits[] = {{0, 0, 0}, {12, 3, 0}, {11, 0, 3}, {0, 2, 3}};
  // The codestream has more components than the image header tells.
  for (const Size& size : {Size{2, 2, 3}, Size{2, 2, 1}}) {
    document_.load(composition(size, {{2, 2, 3, 5}}));
    for (const auto& [samples, components, code] : limits) {
      kv_jpx_set_decode_limits(document_.get(), samples, components);
      void* data = nullptr;
      uint64_t length = 0;
      EXPECT_EQ(kv_jpx_get_output_image(document_.get(), &data, &length), code);
      if (data != nullptr) kv_jpx_free(document_.get(), data);
      EXPECT_EQ(kv_jpx_get_output_image_file(document_.get(), "a.png"), code);
    }
  }
  kv_jpx_error_info error = {};
  error.size = sizeof error;
  kv_jpx_get_last_error(document_.get(), &error);
  EXPECT_STREQ(error.text, "the image has 12 samples in 3 components, more than the limits allow");
  EXPECT_EQ(error.box_type, type_code("ihdr"));
}

TEST_F(DecodingTest, FailingCodecGivesAnEmptyImage) {
  document_.load(composition({2, 2, 1}, {{2, 2, 1, 5}}));
  codec().answer = 1;  // every verdict is ignored; what is delivered counts
  EXPECT_EQ(decode(), std::string(4, 5));
  codec().delivery = 3;
  EXPECT_EQ(decode(), bytes({5, 5, 5, 0}));
  codec().tells_no_size = true;
  EXPECT_EQ(decode(), std::string(4, 0));
  // Only trouble with files is passed on.
  for (const int32_t answer : {JPX_ERR_OPEN_FILE, JPX_ERR_FILE_IO, JPX_ERR_INVALID_ARGUMENT}) {
    codec().file_answer = answer;
    EXPECT_EQ(kv_jpx_get_output_image_file(document_.get(), "x"),
              answer == JPX_ERR_INVALID_ARGUMENT ? JPX_OK : answer);
  }
  codec().delivers_nothing = true;
  EXPECT_EQ(decode(), "");
  codec().create_fails = true;
  EXPECT_EQ(decode(), "");
  EXPECT_EQ(codec().calls, std::vector<std::string>{"create"});
}

TEST_F(DecodingTest, CallersBuffer) {
  void* data = nullptr;
  uint64_t length = 0;
  EXPECT_EQ(kv_jpx_get_output_image(document_.get(), &data, &length), JPX_ERR_NO_INPUT);
  // The file variant goes on without an input, with zeros for what it finds nothing of.
  EXPECT_EQ(kv_jpx_get_output_image_file(document_.get(), "x"), JPX_OK);
  EXPECT_EQ(codec().calls[1], "raw 0 0 0 24 0");
  document_.load(composition({2, 2, 1}, {{2, 2, 1, 5}}));
  data = &length;
  EXPECT_EQ(kv_jpx_get_output_image(document_.get(), &data, &length), JPX_ERR_BUFFER_TOO_SMALL);
  EXPECT_EQ(length, 1u);
  // A buffer with a length is given up for a new one, so it must come from the context.
  const size_t blocks = document_.allocator().live_blocks();
  data = JPX_SafeMallocInternal(document_.env(), 1, nullptr, nullptr);
  EXPECT_EQ(kv_jpx_get_output_image(document_.get(), &data, &length), JPX_OK);
  EXPECT_EQ(length, 4u);
  EXPECT_EQ(kv_jpx_free(document_.get(), data), JPX_OK);
  EXPECT_EQ(document_.allocator().live_blocks(), blocks);
}

}  // namespace
}  // namespace kvjpx::test
