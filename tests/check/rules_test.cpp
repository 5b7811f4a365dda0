// Each rule is broken by one change to a valid file (rules.script). What is told of each change,
// and what is read from the headers of valid codestreams, stands in golden files.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "check/check.h"
#include "codestream/codestream.h"
#include "support/bytes.h"
#include "support/files.h"

namespace kvjpx_check {
namespace {

using kvjpx::test::bytes_of;
using kvjpx::test::file_contents;
using kvjpx_codestream::Headers;
using kvjpx_codestream::Problem;
using kvjpx_codestream::ProblemKind;

struct Change {
  std::string id;  // of the rule that it breaks
  std::string line;
  std::string file;  // changed
};

struct Script {
  std::map<std::string, std::string> files;  // valid ones
  std::vector<Change> changes;
};

Script read_script() {
  Script script;
  std::map<std::string, std::string> names = {{"DEEP", "[free]"}};
  for (int i = 0; i < 257; ++i) names["DEEP"] = "[asoc" + names["DEEP"] + "[free]]";
  std::ifstream lines("tests/check/rules.script");
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] == '#') continue;
    const std::string written = line;
    for (size_t at; (at = line.find('{')) != std::string::npos;) {
      const size_t end = line.find('}', at);
      line.replace(at, end + 1 - at, names.at(line.substr(at + 1, end - at - 1)));
    }
    const size_t blank = line.find(' ', 2);
    if (line[0] == '=') {
      const std::string name = line.substr(2, blank - 2);
      names[name] = line.substr(blank + 1);
      if (name.size() == 1) script.files[name] = bytes_of(names[name]);
      continue;
    }
    std::string text = names.at(line.substr(blank + 1, 1));
    const size_t arrow = line.find(" => ");
    const std::string from = line.substr(blank + 4, arrow - blank - 4);
    const size_t place = text.find(from);
    EXPECT_EQ(place, text.rfind(from)) << written;
    text.replace(place, from.size(), line.substr(arrow + 4));
    script.changes.push_back({line.substr(0, blank), written, bytes_of(text)});
  }
  return script;
}

std::vector<Finding> findings_of(const std::string& file) {
  return check(*kvjpx::document::read(file), file).findings;
}

TEST(Check, ValidFilesGiveNothing) {
  std::map<std::string, std::string> files = read_script().files;
  for (const char* path : {"samples/gradient.jp2", "samples/minimal.jp2", "samples/composed.jpx"}) {
    files[path] = file_contents(path);
  }
  for (const auto& [name, file] : files) {
    EXPECT_FALSE(file.empty());
    for (const Finding& finding : findings_of(file)) ADD_FAILURE() << name << finding.rule->id;
  }
}

TEST(Check, EachChangeBreaksItsRule) {
  std::set<std::string> untested;
  for (const Rule& rule : rules()) EXPECT_TRUE(untested.insert(rule.id).second) << rule.id;
  std::ostringstream told;
  for (const Change& change : read_script().changes) {
    told << change.line << '\n';
    bool is_told = false;
    for (const Finding& finding : findings_of(change.file)) {
      const std::string& id = finding.rule->id;
      is_told |= id == change.id;
      told << "  " << finding.offset << " " << finding.path << ": " << (id == change.id ? "" : id)
           << " " << finding.found << " (" << finding.expected << ")\n";
    }
    EXPECT_TRUE(is_told) << change.line;
    untested.erase(change.id);
  }
  EXPECT_EQ(untested, std::set<std::string>());
  EXPECT_EQ(told.str(), file_contents("tests/golden/findings.txt"));
}

TEST(Check, DocumentationHasTheTable) {
  EXPECT_NE(file_contents("docs/check.md").find("\n\n" + rules_as_markdown() + "\n"),
            std::string::npos)
      << "put the output of 'kvjpx check --list' into docs/check.md";
}

// Whatever is wrong, each finding has a place in the file.
TEST(Check, AnyBytesAreChecked) {
  std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same every time
  for (const auto& [name, valid] : read_script().files) {
    for (int round = 0; round < 300; ++round) {
      std::string file = valid.substr(0, random() % 4 ? valid.size() : random() % valid.size());
      for (unsigned i = random() % 6; i > 0 && !file.empty(); --i) {
        file[random() % file.size()] = static_cast<char>(random() % 3 ? random() : 0xFF);
      }
      for (const Finding& finding : findings_of(file)) {
        EXPECT_FALSE(finding.path.empty()) << finding.rule->id;
        EXPECT_LE(finding.offset, file.size()) << finding.rule->id;
      }
    }
  }
}

// Serves a few bytes in zeros of a large codestream, and fails on demand.
class PartSource final : public kvjpx_codestream::Source {
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

TEST(Codestream, FieldsAndSummaryAreTheGoldenOnes) {
  std::ostringstream told;
  for (const auto& [name, file] : read_script().files) {
    if (file.substr(0, 2) != "\xFF\x4F") continue;
    PartSource source({{0, file}}, file.size());
    const Headers headers = read_headers(source);
    const kvjpx_codestream::Summary& all = headers.summary;
    told << name << " " << all.image.tiles() << " " << all.tiles_present << " " << all.coding.layers
         << " " << all.coding.block_width << " " << all.coding.block_height << " "
         << all.main_header_size << " " << all.has_eoc << all.is_high_throughput << '\n';
    for (const auto& segment : headers.segments) {
      told << segment.offset << " " << segment.name << " " << segment.tile_part << '\n';
      for (const auto& field : segment.fields) {
        told << "  " << field.name << " " << field.text;
        for (const uint64_t value : field.values) told << " " << value;
        for (const std::string& word : field.words) told << " [" << word << "]";
        told << '\n';
      }
    }
  }
  for (const uint16_t value : {0, 0x103, 0x305, 0x307, 0x523, 0x9A0, 0x4001}) {
    told << value << " " << kvjpx_codestream::profile_name(value) << '\n';
  }
  EXPECT_EQ(told.str(), file_contents("tests/golden/headers.txt"));
}

TEST(Codestream, OnlyHeadersOfALargeFileAreRead) {
  constexpr uint64_t kLength = 3000000000;
  const std::string valid = read_script().files["K"];
  const std::string main = valid.substr(0, valid.find("\xFF\x90"));
  const uint64_t end = main.size() + 2 * kLength;
  const auto read = [&](uint64_t second_length, uint64_t most_bytes) {
    const auto sot = [](const char* tile, uint64_t length) {
      return bytes_of("FF90 000A" + std::string(tile)) + kvjpx::test::be32(length) +
             bytes_of("0001 FF93");
    };
    PartSource source({{0, main + sot("0000", kLength)},
                       {main.size() + kLength, sot("0001", second_length)},
                       {end, bytes_of("FFD9")}},
                      end + 2);
    const std::vector<Problem> problems = read_headers(source).problems;
    EXPECT_LT(source.bytes_read, most_bytes);
    return problems;
  };
  EXPECT_TRUE(read(kLength, 400).empty());
  EXPECT_TRUE(read(0, 2u << 20).empty());
  const std::vector<Problem> broken = read(kLength - 5, 2u << 20);
  ASSERT_EQ(broken.size(), 1u);
  EXPECT_EQ(broken[0].kind, ProblemKind::kStrayBytes);
}

TEST(Codestream, WhatCannotBeReadIsToldOnce) {
  const std::string valid = read_script().files["J"];
  for (size_t length = 0; length < valid.size(); ++length) {
    PartSource source({{0, valid}}, valid.size());
    source.fails_from = length;
    const std::vector<Problem> problems = read_headers(source).problems;
    EXPECT_EQ(std::count_if(problems.begin(), problems.end(),
                            [](const Problem& p) { return p.kind == ProblemKind::kUnreadable; }),
              1)
        << length;
    PartSource cut({{0, valid}}, length);
    EXPECT_FALSE(read_headers(cut).problems.empty()) << length;
  }
}

}  // namespace
}  // namespace kvjpx_check
