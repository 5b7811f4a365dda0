// Holds a JP2 or JPX file, or a bare codestream, against the standard.
//
// What is asked is a table of rules (table.cpp), one row each: identifier, severity, profiles,
// clause, what is wrong, the boxes it looks at and the function that looks. The functions stand in
// the files behind rules.h by the part of the standard they are about, and see the file through
// File (file.h): its boxes in one array, their bytes, its codestreams. Every rule looks at every
// file, however broken; none stops another.
//
// Adding a rule: its function and declaration, its row, a line of tests/check/rules.script with a
// change that breaks it, what that tells in tests/golden/findings.txt, and `kvjpx check --list`
// once more into docs/check.md.
#ifndef KVJPX_CHECK_CHECK_H_
#define KVJPX_CHECK_CHECK_H_

#include <cstdint>
#include <string>
#include <vector>

#include "kvjpx.hpp"

namespace kvjpx_check {

enum class Severity {
  kError,    // breaks the standard
  kWarning,  // legal, or as good as, but readers fail on it
  kNote      // worth knowing
};

// What a file claims to be; bits, as a rule may hold for several.
enum Profile : unsigned {
  kJp2 = 1,  // ISO/IEC 15444-1, Annex I
  kJpx = 2,  // ISO/IEC 15444-2, Annex M
  kJph = 4,  // ISO/IEC 15444-15, Annex D; what it adds is not checked
  kAny = kJp2 | kJpx | kJph,
  kOther = 8,  // of a part that builds on the same boxes; only these are checked
  kEvery = kAny | kOther
};

class Check;

struct Rule {
  std::string id;
  Severity severity = Severity::kError;
  unsigned profiles = kAny;
  std::string clause;  // "15444-1, I.5.3.1"
  std::string text;    // what is wrong
  uint32_t box_type = 0;
  void (*look)(Check&) = nullptr;
};

// In the order in which they look.
const std::vector<Rule>& rules();
// The table for people, as docs/check.md has it.
std::string rules_as_markdown();

struct Finding {
  const Rule* rule = nullptr;
  uint64_t offset = 0;   // in the file
  std::string path;      // of the box; "/" for the file itself
  std::string found;     // in words; empty where the text says it all
  std::string expected;  // the same
};

struct Result {
  Profile profile = kJp2;
  std::vector<Finding> findings;  // by offset
  // Those that were not noted, as there were so many of the same rule already.
  uint64_t more = 0;
};

// How many findings of one rule are noted.
constexpr uint64_t kMostOfARule = 1000;

// `bytes` are those that the document was read from; without a profile the file type box tells it.
// Time and memory are in proportion to the boxes and to the headers of the codestreams.
Result check(const kvjpx::document& document, kvjpx::byte_view bytes, unsigned profile = 0);

const char* name(Severity severity);
const char* name(Profile profile);

}  // namespace kvjpx_check

#endif  // KVJPX_CHECK_CHECK_H_
