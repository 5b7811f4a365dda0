// What the reader of codestreams tells.
#include "rules.h"

namespace kvjpx_check {
namespace {

using kvjpx_codestream::Problem;
using kvjpx_codestream::ProblemKind;

std::string number_words(uint64_t value, bool is_marker) {
  if (!is_marker) return std::to_string(value);
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string hexadecimal = "0x";
  for (int shift = 12; shift >= 0; shift -= 4) hexadecimal += kDigits[value >> shift & 15];
  const std::string name = kvjpx_codestream::marker_name(static_cast<uint16_t>(value));
  return name.empty() ? hexadecimal : name + " (" + hexadecimal + ")";
}

std::string place_words(const Problem& problem) {
  const std::string name = kvjpx_codestream::marker_name(problem.marker);
  std::string words = name.empty() ? "" : " in " + name;
  if (problem.index != kvjpx_codestream::kNone) {
    words += (name.empty() ? " at " : ", ") + std::to_string(problem.index);
  }
  return words;
}

// Kinds whose numbers are markers, and those that say all without a number.
bool tells_markers(ProblemKind kind) {
  switch (kind) {
    case ProblemKind::kNoSoc:
    case ProblemKind::kSizNotFirst:
    case ProblemKind::kNotAMarker:
    case ProblemKind::kUnknownMarker:
    case ProblemKind::kMisplaced:
    case ProblemKind::kMissing:
    case ProblemKind::kNoEoc:
      return true;
    default:
      return false;
  }
}

bool tells_nothing_expected(ProblemKind kind) {
  switch (kind) {
    case ProblemKind::kNotAMarker:
    case ProblemKind::kUnknownMarker:
    case ProblemKind::kMisplaced:
    case ProblemKind::kDuplicate:
    case ProblemKind::kDuplicateIndex:
    case ProblemKind::kExtension:
    case ProblemKind::kCapMissing:
    case ProblemKind::kCapNotAnnounced:
    case ProblemKind::kPacketLengthCut:
    case ProblemKind::kPpmAndPpt:
      return true;
    default:
      return false;
  }
}

}  // namespace

template <ProblemKind kKind>
void problem(Check& check) {
  constexpr uint64_t kMostTiles = 65535;
  for (const Codestream& codestream : check.file.codestreams()) {
    // That tiles are missing follows from there being more than can be numbered.
    if (kKind == ProblemKind::kMissingTiles && codestream.summary.image.tiles() > kMostTiles) {
      continue;
    }
    for (const Problem& problem : codestream.problems) {
      if (problem.kind != kKind) continue;
      const bool is_marker = tells_markers(kKind);
      check.tell_at(*codestream.box, codestream.in_file(problem.offset),
                    number_words(problem.found, is_marker) + place_words(problem),
                    tells_nothing_expected(kKind) ? "" : number_words(problem.expected, is_marker));
    }
  }
}
#define KVJPX_CHECK_PROBLEM(kind, id, meaning) template void problem<ProblemKind::kind>(Check&);
KVJPX_CODESTREAM_PROBLEMS(KVJPX_CHECK_PROBLEM)
#undef KVJPX_CHECK_PROBLEM

void codestream_of_part_1(Check& check) {
  if (check.file.is_bare_codestream()) return;
  for (const Codestream& codestream : check.file.codestreams()) {
    const uint16_t capabilities = codestream.summary.image.capabilities;
    if ((capabilities & 0x8000) == 0) continue;
    check.tell_at(*codestream.box, codestream.in_file(0), "extensions of ISO/IEC 15444-2",
                  "ISO/IEC 15444-1, Annex A");
  }
}

void codestream_high_throughput(Check& check) {
  for (const Codestream& codestream : check.file.codestreams()) {
    if (!codestream.summary.is_high_throughput) continue;
    check.tell_at(*codestream.box, codestream.in_file(0));
  }
}

}  // namespace kvjpx_check
