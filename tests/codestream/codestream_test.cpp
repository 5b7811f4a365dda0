// A codestream with every marker segment, and what one change after the other makes of it.
#include "codestream/codestream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "codestream/markers.h"
#include "support/bytes.h"

namespace kvjpx_codestream {
namespace {

using kvjpx::test::be16;
using kvjpx::test::be32;
using kvjpx::test::be8;
using kvjpx::test::bytes;

// Those of which the reader's table only has names.
enum : uint16_t { kPoc = 0xFF5F, kCrg = 0xFF63, kCom = 0xFF64, kMct = 0xFF74 };

std::string segment(uint16_t marker, const std::string& payload) {
  return be16(marker) + be16(payload.size() + 2) + payload;
}

std::string tile_part(unsigned tile, unsigned part, unsigned parts, const std::string& header,
                      const std::string& data) {
  return segment(kSot,
                 be16(tile) + be32(14 + header.size() + data.size()) + be8(part) + be8(parts)) +
         header + be16(kSod) + data;
}

const std::string& siz() {
  static const std::string result =
      segment(kSiz, be16(0) + be32(40) + be32(26) + be32(8) + be32(10) + be32(16) + be32(16) +
                        be32(8) + be32(10) + be16(3) + bytes({7, 1, 1, 7, 1, 1, 7, 1, 1}));
  return result;
}
std::string cod(unsigned levels) {
  return segment(kCod,
                 bytes({1, 2, 0, 5, 1, levels, 4, 3, 8, 1}) + std::string(levels + 1, '\x88'));
}
std::string qcd(unsigned levels) {
  return segment(kQcd, bytes({0x40}) + std::string(3 * levels + 1, '\x48'));
}

// Two tiles, the first of two parts.
std::string sample(const std::string& more = {}) {
  return be16(kSoc) + siz() + cod(2) + qcd(2) + segment(kCoc, bytes({1, 0, 1, 4, 4, 0, 0})) +
         segment(kQcc,
                 bytes({1, 0x22}) + be16(0x4801) + be16(0x5002) + be16(0x5003) + be16(0x5804)) +
         segment(kRgn, bytes({2, 0, 5})) +
         segment(kPoc, bytes({0, 0, 0, 2, 3, 3, 0, 0, 1, 0, 5, 3, 0, 4})) +
         segment(kTlm, bytes({0, 0x50, 0}) + be32(21) + bytes({1}) + be32(16)) +
         segment(kTlm, bytes({1, 0x50, 0}) + be32(26)) + segment(0xFF57, bytes({0, 1, 4})) +
         segment(kCrg, std::string(12, '\0')) + segment(kCom, be16(1) + "caf\xE9 \x1B[31m") +
         segment(kCom, be16(0) + "\x01\xFE") + more +
         tile_part(0, 0, 0, segment(kPlt, bytes({0, 1})), "a") + tile_part(1, 0, 1, {}, "bc") +
         tile_part(0, 1, 2, segment(kPlt, bytes({0, 2, 3})), "defgh") + be16(kEoc);
}

Headers headers_of(const std::string& codestream) {
  MemorySource source(codestream.data(), codestream.size());
  return read_headers(source);
}

// "identifier marker expected found" for each.
std::string problems_of(const std::string& codestream) {
  std::string result;
  for (const Problem& problem : headers_of(codestream).problems) {
    result += (result.empty() ? "" : "; ") + std::string(identifier(problem.kind)) + " " +
              marker_name(problem.marker) + " " + std::to_string(problem.expected) + " " +
              std::to_string(problem.found);
    if (problem.index != kNone) result += " (" + std::to_string(problem.index) + ")";
  }
  return result;
}

size_t offset_of(const std::string& codestream, uint16_t marker, size_t which = 0) {
  for (const Segment& segment : headers_of(codestream).segments) {
    if (segment.marker == marker && which-- == 0) return segment.offset;
  }
  ADD_FAILURE() << "no such marker: " << marker;
  return 0;
}

std::string fields_of(const std::string& codestream, uint16_t marker, size_t which = 0) {
  std::string result;
  for (const Segment& segment : headers_of(codestream).segments) {
    if (segment.marker != marker || which-- != 0) continue;
    for (const Field& field : segment.fields) {
      result += std::string(field.name) + "=" + field.text;
      for (size_t i = 0; i < field.values.size(); ++i) {
        result += (i ? "," : "") + std::to_string(field.values[i]);
        if (!field.words.empty()) result += "[" + field.words.at(i) + "]";
      }
      result += ' ';
    }
  }
  return result;
}

TEST(Codestream, FieldsAndSummaryOfAValidOne) {
  const std::string valid = sample();
  EXPECT_EQ(problems_of(valid), "");
  const Summary summary = headers_of(valid).summary;
  EXPECT_EQ(summary.image.tiles(), 2u);
  EXPECT_EQ(summary.coding.layers, 5u);
  EXPECT_EQ(summary.coding.block_height, 32u);
  EXPECT_EQ(summary.tiles_present, 2u);
  EXPECT_EQ(summary.main_header_size, offset_of(valid, kSot));
  EXPECT_TRUE(summary.has_eoc);
  ASSERT_EQ(summary.comments.size(), 2u);
  EXPECT_EQ(summary.comments[0].text, "caf\u00E9 \uFFFD[31m");
  EXPECT_EQ(summary.comments[1].text, "01fe");
  EXPECT_EQ(fields_of(valid, kQcc),
            "Cqcc=1 Sqcc=34[scalar expounded, 1 guard bits] SPqcc=18433[exponent 9, mantissa 1],"
            "20482[exponent 10, mantissa 2],20483[exponent 10, mantissa 3],"
            "22532[exponent 11, mantissa 4] ");
  EXPECT_EQ(fields_of(valid, kPoc),
            "RSpoc=0,0 CSpoc=0,1 LYEpoc=2,5 REpoc=3,3 CEpoc=3,0 Ppoc=0[LRCP],4[CPRL] ");
  EXPECT_EQ(fields_of(valid, kTlm), "Ztlm=0 Stlm=80 Ttlm=0,1 Ptlm=21,16 ");
  EXPECT_EQ(fields_of(valid, kPlt, 1), "Zplt=0 Iplt=2,3 ");
}

TEST(Codestream, HighThroughputIsAnnounced) {
  std::string codestream = sample(segment(kCap, be32(0x20000) + be16(0x8022)));
  codestream.replace(6, 2, be16(0x4000));
  codestream.replace(offset_of(codestream, kCod) + 12, 1, bytes({0x40}));
  EXPECT_EQ(problems_of(codestream), "");
  EXPECT_TRUE(headers_of(codestream).summary.is_high_throughput);
  EXPECT_EQ(fields_of(codestream, kCap),
            "Pcap=131072[ISO/IEC 15444-15] Ccap=32802[HTDECLARED, SINGLEHT, RGNFREE, HOMOGENEOUS, "
            "HTIRV, magnitude bound 10] ");
}

struct Change {
  uint16_t marker;
  size_t which;  // of the segments with this marker
  size_t at;     // in bytes from its marker
  std::string bytes;
  const char* problems;
};

TEST(Codestream, EachChangedNumberIsItsOwnProblem) {
  const Change changes[] = {
      {kSoc, 0, 0, be16(0xFF01), "soc SOC 65359 65281"},
      {kSiz, 0, 4, be16(0x00FF), "profile SIZ 0 255"},
      {kSiz, 0, 4, be16(0x4000), "cap-missing CAP 1 0"},
      {kSiz, 0, 6, be32(8), "image-area SIZ 7 8"},
      {kSiz, 0, 22, be32(0), "tile-size SIZ 1 0"},
      {kSiz, 0, 30, be32(9), "tile-offset SIZ 8 9"},
      {kSiz, 0, 22, be32(1) + be32(1) + be32(8), "missing-tiles SOT 512 2 (2)"},
      {kSiz, 0, 6, be32(5008) + be32(26) + be32(8) + be32(10) + be32(1) + be32(1),
       "tile-count SIZ 65535 80000; missing-tiles SOT 80000 2 (2)"},
      {kSiz, 0, 40, bytes({38}), "depth SIZ 38 39 (0); colour-transform-components COD 3 1 (1)"},
      {kSiz, 0, 47, bytes({0}), "subsampling SIZ 1 0 (2); colour-transform-components COD 3 2 (2)"},
      {kCod, 0, 4, bytes({9}), "coding-style COD 1 9"},
      {kCod, 0, 5, bytes({5}), "progression COD 4 5"},
      {kCod, 0, 6, be16(0), "layers COD 1 0"},
      {kCod, 0, 8, bytes({2}), "colour-transform COD 1 2"},
      {kCod, 0, 10, bytes({9}), "code-block-size COD 8 9"},
      {kCod, 0, 12, bytes({0x80}), "code-block-style COD 0 128"},
      {kCod, 0, 12, bytes({0x40}), "cap-missing CAP 131072 0"},
      {kCod, 0, 13, bytes({2}), "transformation COD 1 2"},
      {kCod, 0, 15, bytes({0x80}), "precinct-size COD 17 128"},
      {kCod, 0, 2, be16(14), "length-short COD 15 14"},
      {kCoc, 0, 4, bytes({3}), "component-index COC 2 3; step-count QCC 7 4 (1)"},
      {kCoc, 0, 6, bytes({33}), "levels COC 32 33"},
      {kCoc, 0, 6, bytes({2}), "step-count QCC 7 4 (1)"},
      {kQcd, 0, 4, bytes({3}), "quantization-style QCD 2 3"},
      {kQcd, 0, 4, bytes({1}), "length-long QCD 5 10"},
      {kRgn, 0, 5, bytes({1}), "region-style RGN 0 1"},
      {kPoc, 0, 4, bytes({33}), "poc-resolution POC 32 33 (0)"},
      {kPoc, 0, 8, bytes({0}), "poc-resolution POC 1 0 (0)"},
      {kPoc, 0, 13, be16(0), "poc-layer POC 1 0 (1)"},
      {kPoc, 0, 16, bytes({1}), "poc-component POC 2 1 (1)"},
      {kTlm, 0, 5, bytes({0x51}), "tlm-style TLM 80 81"},
      {kTlm, 0, 6, bytes({1}), "tlm-tile TLM 0 1 (0)"},
      {kTlm, 1, 7, be32(27), "tlm-length TLM 26 27 (2)"},
      {kTlm, 1, 4, bytes({2}), "missing-index TLM 1 2"},
      {kTlm, 1, 4, bytes({0}), "duplicate-index TLM 0 0; tlm-count TLM 3 2"},
      {kCrg, 0, 2, be16(13), "length-short CRG 14 13"},
      {kCom, 0, 4, be16(2), "comment-use COM 1 2"},
      {kCom, 0, 0, be16(0xFF6F), "unknown-marker  0 65391"},
      {kCom, 0, 0, be16(kMct), "extension MCT 32768 0"},
      {kCom, 0, 0, be16(kSod), "misplaced SOD 0 65427"},
      {kCom, 0, 2, be16(1), "length-short COM 2 1"},
      {kCom, 1, 2, be16(0xFFFF), "segment-past-end COM 71 65535"},
      {kCom, 1, 2, be16(5), "not-a-marker  0 65279"},
      {kCom, 1, 0, be16(kQcd), "duplicate QCD 0 65372"},
      {kSot, 0, 4, be16(1),
       "tlm-tile TLM 1 0 (0); tile-part-order SOT 1 0 (1); tile-part-order SOT 0 1 (0)"},
      {kSot, 1, 4, be16(2), "tile-index SOT 1 2; tlm-tile TLM 2 1 (1); missing-tiles SOT 2 1 (1)"},
      {kSot, 1, 6, be32(0), "psot-zero SOT 16 0"},
      {kSot, 1, 6, be32(13), "tlm-length TLM 13 16 (1); psot-small SOT 16 13"},
      {kSot, 1, 6, be32(15), "tlm-length TLM 15 16 (1); stray-bytes SOT 0 1"},
      {kSot, 1, 6, be32(17), "tlm-length TLM 17 16 (1); psot-large SOT 16 17"},
      {kSot, 2, 6, be32(0), ""},
      {kSot, 2, 6, be32(0xFFFFFFFF),
       "tlm-length TLM 4294967295 26 (2); psot-past-end SOT 26 4294967295"},
      {kSot, 2, 10, bytes({2}), "tile-part-order SOT 1 2 (0); tile-part-count SOT 3 2 (0)"},
      {kSot, 1, 11, bytes({2}), "missing-tile-parts SOT 2 1 (1)"},
      {kSot, 2, 11, bytes({1}), "tile-part-count SOT 2 1 (0)"},
      {kPlt, 1, 5, bytes({1}), "plt-length PLT 5 4 (2)"},
      {kPlt, 1, 6, bytes({0x83}), "packet-length PLT 0 0; plt-length PLT 5 2 (2)"},
      {kSod, 1, 0, be16(kEoc), "missing SOD 65427 65497"},
      {kEoc, 0, 0, be16(0), "no-eoc EOC 65497 2"}};
  for (const Change& change : changes) {
    std::string codestream = sample();
    const size_t at = offset_of(codestream, change.marker, change.which) + change.at;
    codestream.replace(at, change.bytes.size(), change.bytes);
    EXPECT_EQ(problems_of(codestream), change.problems)
        << marker_name(change.marker) << " " << change.which << " at " << change.at;
  }
}

// Segments more or less, here and there.
TEST(Codestream, EachSegmentTooManyOrTooFewIsAProblem) {
  const auto with = [](uint16_t before, size_t which, const std::string& more) {
    std::string codestream = sample();
    return problems_of(codestream.insert(offset_of(codestream, before, which), more));
  };
  const auto without = [](const std::string& part) {
    std::string codestream = sample();
    return problems_of(codestream.erase(codestream.find(part), part.size()));
  };
  EXPECT_EQ(without(siz()), "missing SIZ 65361 0");
  EXPECT_EQ(without(qcd(2)), "missing QCD 65372 0");
  EXPECT_EQ(with(kSiz, 0, segment(kCom, be16(1) + "x")), "siz-order COM 65361 65380");
  EXPECT_EQ(with(kQcd, 0, segment(kCoc, bytes({1, 0, 1, 4, 4, 0, 0}))), "duplicate COC 0 1 (1)");
  EXPECT_EQ(with(kCom, 0, bytes({0xFF, 0x30})), "unknown-marker  0 65328");
  EXPECT_EQ(with(kCom, 0, segment(kCap, be32(0x20000) + be16(0x4040))),
            "ht-capability CAP 16384 16448; cap-not-announced CAP 16384 0");
  EXPECT_EQ(with(kSot, 1, "between"), "stray-bytes SOT 0 7");
  EXPECT_EQ(problems_of(sample() + "more"), "behind-eoc EOC 0 4");
  const auto grown = [](size_t which, const std::string& more, std::string codestream = sample()) {
    const size_t at = offset_of(codestream, kSot, which);
    codestream[at + 9] = static_cast<char>(codestream[at + 9] + static_cast<int>(more.size()));
    return codestream.insert(at + 12, more);
  };
  const std::string ppt = segment(kPpt, bytes({0, 9}));
  EXPECT_EQ(problems_of(grown(1, ppt)), "tlm-length TLM 22 16 (1)");
  EXPECT_EQ(problems_of(grown(1, cod(3))), "step-count COD 10 4 (1); tlm-length TLM 34 16 (1)");
  EXPECT_EQ(problems_of(grown(1, qcd(1))), "step-count QCD 7 4; tlm-length TLM 25 16 (1)");
  EXPECT_EQ(problems_of(grown(2, cod(2))), "misplaced COD 0 65362; tlm-length TLM 43 26 (2)");
  const auto packed = [&](const std::string& headers) {
    return sample(segment(kPpm, be8(1) + headers.substr(3)) +
                  segment(kPpm, be8(0) + headers.substr(0, 3)));
  };
  const std::string part = be32(1) + "p";
  EXPECT_EQ(problems_of(packed(part + part + part)), "");
  EXPECT_EQ(problems_of(grown(1, ppt, packed(part + part + part))),
            "ppm-and-ppt PPT 0 0; tlm-length TLM 22 16 (1)");
  EXPECT_EQ(problems_of(packed(part + part)), "ppm-count PPM 3 2");
  EXPECT_EQ(problems_of(packed(part + part + be32(2) + "p")), "ppm-cut PPM 6 5");
}

// Serves a few bytes in zeros of a large codestream, and fails on demand.
class PartSource final : public Source {
 public:
  PartSource(std::map<uint64_t, std::string> parts, uint64_t size)
      : parts_(std::move(parts)), size_(size) {}
  uint64_t size() const override { return size_; }
  bool read(uint64_t offset, size_t length, uint8_t* to) override {
    EXPECT_LE(offset, size_);
    EXPECT_LE(length, size_ - offset);
    bytes_read += length;
    if (offset + length > fails_from) return false;
    std::fill(to, to + length, uint8_t{0});
    for (const auto& [begin, part] : parts_) {
      for (uint64_t at = std::max(offset, begin);
           at < std::min(offset + length, begin + part.size()); ++at) {
        to[at - offset] = static_cast<uint8_t>(part[at - begin]);
      }
    }
    return true;
  }

  uint64_t bytes_read = 0;
  uint64_t fails_from = ~uint64_t{0};

 private:
  std::map<uint64_t, std::string> parts_;
  uint64_t size_;
};

TEST(Codestream, OnlyHeadersOfALargeFileAreRead) {
  constexpr uint64_t kLength = 3000000000;
  const std::string main = be16(kSoc) + siz() + cod(2) + qcd(2);
  const uint64_t end = main.size() + 2 * kLength;
  const auto source_with = [&](uint64_t second_length) {
    const auto sot = [](unsigned tile, uint64_t length) {
      return segment(kSot, be16(tile) + be32(length) + be16(1)) + be16(kSod);
    };
    return PartSource({{0, main + sot(0, kLength)},
                       {main.size() + kLength, sot(1, second_length)},
                       {end, be16(kEoc)}},
                      end + 2);
  };
  for (const uint64_t length : {kLength, uint64_t{0}}) {
    PartSource source = source_with(length);
    EXPECT_TRUE(read_headers(source).problems.empty());
    EXPECT_LT(source.bytes_read, length == 0 ? 2u << 20 : 400u);
  }
  PartSource broken = source_with(kLength - 5);
  const Headers headers = read_headers(broken);
  ASSERT_EQ(headers.problems.size(), 1u);
  EXPECT_EQ(headers.problems[0].kind, ProblemKind::kStrayBytes);
  EXPECT_LT(broken.bytes_read, 2u << 20);
}

TEST(Codestream, WhatCannotBeReadIsToldOnce) {
  const std::string valid = sample();
  for (size_t length = 0; length < valid.size(); ++length) {
    PartSource source({{0, valid}}, valid.size());
    source.fails_from = length;
    const std::vector<Problem> problems = read_headers(source).problems;
    EXPECT_EQ(std::count_if(problems.begin(), problems.end(),
                            [](const Problem& p) { return p.kind == ProblemKind::kUnreadable; }),
              1)
        << length;
    EXPECT_NE(problems_of(valid.substr(0, length)), "") << length;
  }
}

TEST(Codestream, AnyBytesAreWalked) {
  const std::string valid = sample(segment(kPpm, be8(0) + be32(1) + "p"));
  std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same every time
  for (int round = 0; round < 2000; ++round) {
    std::string codestream = valid.substr(0, random() % 4 ? valid.size() : random() % valid.size());
    for (unsigned i = random() % 6; i > 0 && !codestream.empty(); --i) {
      const uint_fast32_t likely[] = {0, 0xFF, random(), random()};
      codestream[random() % codestream.size()] = static_cast<char>(likely[random() % 4]);
    }
    PartSource source({{0, codestream}}, codestream.size());
    uint64_t last = 0;
    for (const Segment& segment : read_headers(source).segments) {
      EXPECT_GE(segment.offset, last);
      last = segment.offset;
    }
  }
}

TEST(Codestream, ProfilesByName) {
  const std::pair<uint16_t, const char*> names[] = {
      {0, "no profile"},
      {0x103, "broadcast, single tile, level 3"},
      {0x305, "reserved"},
      {0x307, "broadcast, multi-tile reversible, level 7"},
      {0x523, "interoperable master, 4K single tile lossy, main level 3, sub-level 2"},
      {0x9A0, "reserved"},
      {0x4001, "profile 0, capabilities in CAP"}};
  for (const auto& [value, name] : names) EXPECT_EQ(profile_name(value), name);
}

}  // namespace
}  // namespace kvjpx_codestream
