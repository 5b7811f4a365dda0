// Each rule is broken by one change to a valid file (rules.script), and told of alone.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "check/check.h"
#include "codestream/codestream.h"
#include "support/bytes.h"

namespace kvjpx_check {
namespace {

// Two containers more than are read.
std::string deep_boxes() {
  std::string text = "[free]";
  for (int i = 0; i < 257; ++i) text = "[asoc" + text + "[free]]";
  return text;
}

class Script {
 public:
  struct Change {
    std::string id;
    std::string text;              // of the changed file
    std::set<std::string> wanted;  // identifiers
  };

  Script() : names_{{"DEEP", deep_boxes()}} {
    std::ifstream file("tests/check/rules.script");
    EXPECT_TRUE(file.good());
    for (std::string line; std::getline(file, line);) {
      if (line.rfind("= ", 0) == 0) {
        const size_t blank = line.find(' ', 2);
        names_[line.substr(2, blank - 2)] = expanded(line.substr(blank + 1));
      } else if (!line.empty() && line[0] != '#') {
        changes_.push_back(change(line));
      }
    }
  }

  const std::vector<Change>& changes() const { return changes_; }
  // Those with names of one letter.
  std::map<std::string, std::string> files() const {
    std::map<std::string, std::string> files;
    for (const auto& [name, text] : names_) {
      if (name.size() == 1) files[name] = text;
    }
    return files;
  }

 private:
  std::string expanded(const std::string& text) const {
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
      if (text[i] != '{') {
        result += text[i];
        continue;
      }
      const size_t end = text.find('}', i);
      result += names_.at(text.substr(i + 1, end - i - 1));
      i = end;
    }
    return result;
  }

  // "ID FILE: FROM => TO", and behind " ; " what else cannot but follow.
  Change change(const std::string& line) const {
    const size_t arrow = line.find(" => ");
    const size_t more = line.find(" ; ", arrow);
    const std::string id = line.substr(0, line.find(' '));
    const std::string from = expanded(line.substr(id.size() + 4, arrow - id.size() - 4));
    const std::string to = expanded(line.substr(arrow + 4, more - arrow - 4));
    std::string text = names_.at(line.substr(id.size() + 1, 1));
    const size_t place = text.find(from);
    EXPECT_NE(place, std::string::npos) << line;
    EXPECT_EQ(text.find(from, place + 1), std::string::npos) << line;
    Change result{id, text.replace(place, from.size(), to), {id}};
    std::istringstream rest(more == std::string::npos ? "" : line.substr(more + 3));
    for (std::string other; rest >> other;) result.wanted.insert(other);
    return result;
  }

  std::map<std::string, std::string> names_;
  std::vector<Change> changes_;
};

std::set<std::string> ids_of(const std::string& file) {
  std::set<std::string> ids;
  for (const Finding& finding : check(*kvjpx::document::read(file), file).findings) {
    ids.insert(finding.rule->id);
  }
  return ids;
}

TEST(Check, ValidFilesGiveNothing) {
  for (const auto& [name, text] : Script().files()) {
    EXPECT_EQ(ids_of(kvjpx::test::bytes_of(text)), std::set<std::string>()) << name;
  }
  for (const char* path : {"gradient.jp2", "minimal.jp2", "composed.jpx"}) {
    std::ifstream file(std::string("samples/") + path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), {});
    ASSERT_FALSE(bytes.empty());
    EXPECT_EQ(ids_of(bytes), std::set<std::string>()) << path;
  }
}

TEST(Check, EachChangeBreaksItsRule) {
  std::set<std::string> untested;
  for (const Rule& rule : rules()) EXPECT_TRUE(untested.insert(rule.id).second) << rule.id;
  const Script script;
  for (const Script::Change& change : script.changes()) {
    EXPECT_EQ(ids_of(kvjpx::test::bytes_of(change.text)), change.wanted) << change.id;
    untested.erase(change.id);
  }
  EXPECT_EQ(untested, std::set<std::string>());
}

TEST(Check, DocumentationHasTheTable) {
  std::ifstream file("docs/check.md");
  const std::string text((std::istreambuf_iterator<char>(file)), {});
  EXPECT_NE(text.find("\n\n" + rules_as_markdown() + "\n"), std::string::npos)
      << "put the output of 'kvjpx check --list' into docs/check.md";
}

// Whatever is wrong, each finding has a place in the file.
TEST(Check, AnyBytesAreChecked) {
  const Script script;
  std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same every time
  for (const auto& [name, text] : script.files()) {
    const std::string valid = kvjpx::test::bytes_of(text);
    for (int round = 0; round < 300; ++round) {
      std::string file = valid.substr(0, random() % 4 ? valid.size() : random() % valid.size());
      for (unsigned i = random() % 6; i > 0 && !file.empty(); --i) {
        file[random() % file.size()] = static_cast<char>(random() % 3 ? random() : 0xFF);
      }
      for (const Finding& finding : check(*kvjpx::document::read(file), file).findings) {
        EXPECT_FALSE(finding.path.empty()) << finding.rule->id;
        EXPECT_LE(finding.offset, file.size()) << finding.rule->id;
      }
    }
  }
}

}  // namespace
}  // namespace kvjpx_check
