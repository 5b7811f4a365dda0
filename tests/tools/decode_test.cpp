// decode: formats, parts of pictures, and what is said when no picture comes out.
#include "sample_boxes.h"
#include "shell.h"

namespace kvjpx::test {
namespace {

const std::string kSamples = KVJPX_SAMPLES "/";

class DecodeTest : public ShellTest {};

TEST_F(DecodeTest, WithoutACodecOnlyDecodingFails) {
  // What the loader meets first hides every codec after it, the built one and one installed here.
  write("libkvj2k.so", "");
  write("a.jp2", small_jp2());
  output_of("LD_LIBRARY_PATH=. kvjpx copy a.jp2 -o b.jp2");
  const Result result = run("LD_LIBRARY_PATH=. kvjpx decode a.jp2 -o a.png");
  EXPECT_EQ(result.exit_code, 7);
  EXPECT_EQ(result.err.rfind("kvjpx: decoding needs the codec libkvj2k.so", 0), 0u) << result.err;
  EXPECT_EQ(output_of("ls -A"), "a.jp2\nb.jp2\nlibkvj2k.so\n");
}

TEST_F(DecodeTest, RefusesWhatCannotBeMeant) {
  write("a.jp2", small_jp2());
  for (const char* options : {"--region 1,2,3", "--region 1,2,3,4,5", "--region 5,0,5,0",
                              "--region 0,9,0,8", "--region a,b,c,d", "--reduce 32", "--reduce -1",
                              "--layers 0", "--layers 256", "--codestream x", "--format gif"}) {
    const Result result = run(std::string("kvjpx decode a.jp2 -o a.png ") + options);
    EXPECT_EQ(result.exit_code, 2) << options << ": " << result.err;
  }
  refuses({{"decode a.jp2 -o a.png --codestream 1", 5,
            "a.jp2: there is no codestream 1; the file has 1, counted from 0"},
           {"decode a.jp2 -o a.png --region 5,0,0,0", 7,
            "a.jp2: nothing could be decoded: the region lies outside the image of 5 x 3"},
           {"rm a.jp2 jp2c -o - | kvjpx decode - -o a.png", 7,
            "standard input: nothing could be decoded: the file has no codestream"},
           {"rm a.jp2 jp2h -o - | kvjpx decode - -o a.png", 7,
            "standard input: nothing could be decoded: the file has no image header"}});
}

#ifdef KVJPX_HAS_CODEC

// The header of a PPM with this size.
std::string ppm_header(int width, int height) {
  return "P6\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n";
}

class CodecTest : public DecodeTest {
 protected:
  std::string decode_ppm(const std::string& sample, const std::string& options) {
    return output_of("kvjpx decode " + kSamples + sample + " --format ppm -o - " + options);
  }
};

TEST_F(CodecTest, ChoosesTheFormatByEndingOrOption) {
  const std::string decode = "kvjpx decode " + kSamples + "gradient.jp2 ";
  output_of(decode + "-o a.png; " + decode + "-o a.TIFF; " + decode + "-o a.jpg; " + decode +
            "-o a.bmp; " + decode + "-o a.raw; " + decode + "-o a.jp2; " + decode +
            "--format planar -o a.bin");
  EXPECT_EQ(read("a.png").substr(0, 8), "\x89PNG\r\n\x1A\n");
  EXPECT_EQ(read("a.TIFF").substr(0, 2), "II");
  EXPECT_EQ(read("a.jpg").substr(0, 2), "\xFF\xD8");
  EXPECT_EQ(read("a.bmp").substr(0, 2), "BM");
  EXPECT_EQ(read("a.raw").size(), 256u * 192 * 3);
  EXPECT_EQ(read("a.bin").size(), 256u * 192 * 3);
  EXPECT_NE(read("a.bin"), read("a.raw"));
  // Both are lossless, so the picture survives the way through a new JP2.
  EXPECT_EQ(output_of("kvjpx decode a.jp2 --format raw -o -"), read("a.raw"));
}

TEST_F(CodecTest, DecodesPartsOfAPicture) {
  const std::string whole = decode_ppm("gradient.jp2", "");
  ASSERT_EQ(whole.rfind(ppm_header(256, 192), 0), 0u);
  EXPECT_EQ(decode_ppm("gradient.jp2", "--region 0,0,99999999999,0"), whole);
  const std::string part = decode_ppm("gradient.jp2", "--region 10,20,14,0");
  ASSERT_EQ(part.rfind(ppm_header(4, 172), 0), 0u);
  const size_t row_in_whole = ppm_header(256, 192).size() + (20 * 256 + 10) * 3;
  EXPECT_EQ(part.substr(ppm_header(4, 172).size(), 12), whole.substr(row_in_whole, 12));
  EXPECT_EQ(decode_ppm("gradient.jp2", "--reduce 2").rfind(ppm_header(64, 48), 0), 0u);
  const std::string coarse = decode_ppm("gradient.jp2", "--layers 1");
  EXPECT_EQ(coarse.size(), whole.size());
  EXPECT_NE(coarse, whole);
  EXPECT_EQ(decode_ppm("gradient.jp2", "--layers 255"), whole);
}

TEST_F(CodecTest, DecodesOneCodestreamOfSeveral) {
  const std::string composed = decode_ppm("composed.jpx", "");
  const std::string background = decode_ppm("composed.jpx", "--codestream 0");
  const std::string inset = decode_ppm("composed.jpx", "--codestream 1");
  ASSERT_EQ(composed.rfind(ppm_header(160, 120), 0), 0u);
  ASSERT_EQ(background.rfind(ppm_header(160, 120), 0), 0u);
  ASSERT_EQ(inset.rfind(ppm_header(64, 48), 0), 0u);
  // Around the inset the composed picture is the background, inside it the inset.
  const auto row = [](const std::string& ppm, int width, int x, int y, int height) {
    return ppm.substr(ppm_header(width, height).size() + (y * width + x) * 3, 12);
  };
  EXPECT_EQ(row(composed, 160, 0, 60, 120), row(background, 160, 0, 60, 120));
  EXPECT_EQ(row(composed, 160, 12, 60, 120), row(inset, 64, 0, 0, 48));
}

TEST_F(CodecTest, TellsWhyNothingCouldBeDecoded) {
  write("a.jp2", small_jp2());
  write("old.png", "old");
  const Result result = run("kvjpx decode a.jp2 -o old.png");
  EXPECT_EQ(result.exit_code, 7);
  EXPECT_EQ(result.err.rfind("kvjpx: a.jp2: nothing could be decoded: the codec gave up: ", 0), 0u)
      << result.err;
  EXPECT_EQ(read("old.png"), "old");
  refuses({{"decode a.jp2 -o a.png --codestream 0", 7,
            "a.jp2: nothing could be decoded: jp2c is not a JPEG 2000 codestream"}});
}

TEST_F(CodecTest, TellsCodestreamsThatAreMissingInThePicture) {
  output_of("kvjpx set " + kSamples + "composed.jpx 'jp2c[1].DATA=text:broken' -o half.jpx");
  const Result result = run("kvjpx decode half.jpx -o half.ppm");
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.err.rfind("kvjpx: half.jpx: note: 1 of 2 codestreams could not be decoded", 0),
            0u)
      << result.err;
  EXPECT_EQ(read("half.ppm").rfind(ppm_header(160, 120), 0), 0u);
}

TEST_F(CodecTest, DecodesACodestreamAloneWhateverTheFileSaysOfIt) {
  const std::string alone = "kvjpx decode bare.jpx --codestream 0 --format ppm -o -";
  output_of("kvjpx rm " + kSamples + "gradient.jp2 jp2h -o bare.jpx");
  EXPECT_EQ(output_of(alone), decode_ppm("gradient.jp2", ""));
}

TEST_F(CodecTest, LimitsWhatAFileMayCost) {
  // A picture of 256 x 192 with 3 components, and its codestream eight times.
  const std::string gradient = read(kSamples + "gradient.jp2");
  const std::string codestream = gradient.substr(gradient.find("jp2c") - 4);
  std::string many = gradient;
  for (int i = 1; i < 8; ++i) many += codestream;
  write("many.jpx", many);
  const std::string set = "kvjpx set " + kSamples + "gradient.jp2 ";
  output_of(set + "jp2h/ihdr.WIDTH=1000 jp2h/ihdr.HEIGHT=1000 jp2h/ihdr.NC=1 -o planes.jp2; " +
            set +
            "jp2h/ihdr.WIDTH=20000 jp2h/ihdr.HEIGHT=20001 -o large.jp2; "
            "kvjpx set large.jp2 'jp2c.DATA=text:x' -o tiny.jp2");
  const std::string nothing = ": nothing could be decoded: ";
  const std::string too_much =
      nothing + "the codestreams ask for more work than the 1 million samples of --limit";
  refuses(
      {{"decode many.jpx --limit 1 -o a.ppm", 7, "many.jpx" + too_much},
       {"decode planes.jp2 --limit 1 -o a.ppm", 7, "planes.jp2" + too_much},
       {"decode tiny.jp2 -o a.ppm", 7,
        "tiny.jp2" + nothing +
            "a picture of 20000 x 20001 with 3 components is too large; --limit 1201 allows it"}});
  EXPECT_EQ(read("a.ppm"), "");
  output_of(
      "kvjpx decode many.jpx --limit 2 -o a.ppm; "
      "kvjpx decode planes.jp2 --limit 3 -o b.ppm; "
      "kvjpx decode large.jp2 --limit 1 --reduce 6 -o c.ppm");
  EXPECT_EQ(read("a.ppm"), decode_ppm("gradient.jp2", ""));
#ifndef __SANITIZE_ADDRESS__
  // Room for the composed picture, but for nothing beside it.
  refuses(
      {{"set tiny.jp2 jp2h/ihdr.NC=1 -o - | (ulimit -v 600000; "
        "kvjpx decode - --limit 1000 -o d.ppm)",
        3, "standard input: not enough memory"}});
#endif
}

#endif  // KVJPX_HAS_CODEC

}  // namespace
}  // namespace kvjpx::test
