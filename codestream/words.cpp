// What numbers mean, in the standard's words.
#include <array>

#include "codestream.h"

namespace kvjpx_codestream {
namespace {

template <size_t kCount>
const char* name_of(const std::array<const char*, kCount>& names, uint64_t value) {
  return value < kCount ? names[value] : "reserved";
}

constexpr uint32_t kMostMainLevel = 11;
constexpr uint32_t kMostSubLevel = 9;

std::string broadcast_name(const char* kind, uint32_t level) {
  return std::string("broadcast, ") + kind + ", level " + std::to_string(level);
}

std::string master_name(const char* kind, uint32_t levels) {
  return std::string("interoperable master, ") + kind + ", main level " +
         std::to_string(levels & 15) + ", sub-level " + std::to_string(levels >> 4);
}

// Table A.10, without the bits for capabilities. Empty for reserved values.
std::string profile_words(uint32_t profile) {
  static constexpr std::array<const char*, 8> kSmall = {"no profile",
                                                        "profile 0",
                                                        "profile 1",
                                                        "2K digital cinema",
                                                        "4K digital cinema",
                                                        "scalable 2K digital cinema",
                                                        "scalable 4K digital cinema",
                                                        "long-term storage"};
  static constexpr std::array<const char*, 6> kMasters = {"2K single tile lossy",
                                                          "4K single tile lossy",
                                                          "8K single tile lossy",
                                                          "2K single or multi-tile reversible",
                                                          "4K single or multi-tile reversible",
                                                          "8K single or multi-tile reversible"};
  constexpr uint32_t kInPrf = 0xFFF;
  const uint32_t family = profile >> 8;
  const uint32_t levels = profile & 0xFF;
  if (profile < kSmall.size()) return kSmall[profile];
  if (profile == kInPrf) return "profile in PRF";
  if (family == 1 && levels <= kMostMainLevel) return broadcast_name("single tile", levels);
  if (family == 2 && levels <= kMostMainLevel) return broadcast_name("multi-tile", levels);
  if (family == 3 && (levels == 6 || levels == 7)) {
    return broadcast_name("multi-tile reversible", levels);
  }
  if (family >= 4 && family <= 9 && (levels & 15) <= kMostMainLevel &&
      levels >> 4 <= kMostSubLevel) {
    return master_name(kMasters[family - 4], levels);
  }
  return "";
}

}  // namespace

std::string profile_name(uint16_t capabilities) {
  constexpr uint32_t kExtensions = 0x8000;
  constexpr uint32_t kHasCap = 0x4000;
  // The low bits then tell which extensions.
  if (capabilities & kExtensions) return "extensions of ISO/IEC 15444-2";
  const std::string words = profile_words(capabilities & ~kHasCap);
  if (words.empty()) return "reserved";
  return words + (capabilities & kHasCap ? ", capabilities in CAP" : "");
}

const char* progression_name(uint32_t progression) {
  static constexpr std::array<const char*, 5> kNames = {"LRCP", "RLCP", "RPCL", "PCRL", "CPRL"};
  return name_of(kNames, progression);
}

const char* transformation_name(uint32_t transformation) {
  static constexpr std::array<const char*, 2> kNames = {"9-7 irreversible", "5-3 reversible"};
  return name_of(kNames, transformation);
}

const char* quantization_name(uint32_t style) {
  static constexpr std::array<const char*, 3> kNames = {"none", "scalar derived",
                                                        "scalar expounded"};
  return name_of(kNames, style);
}

const char* colour_transform_name(const CodingStyle& coding) {
  if (!coding.has_colour_transform) return "none";
  return coding.transformation == 1 ? "reversible" : "irreversible";
}

std::string code_block_style_names(uint32_t bits) {
  static constexpr std::array<const char*, 8> kNames = {"selective arithmetic coding bypass",
                                                        "reset of context probabilities",
                                                        "termination on each coding pass",
                                                        "vertically causal context",
                                                        "predictable termination",
                                                        "segmentation symbols",
                                                        "high-throughput",
                                                        "mixed"};
  std::string names;
  for (size_t bit = 0; bit < kNames.size(); ++bit) {
    if (bits >> bit & 1) names += (names.empty() ? "" : ", ") + std::string(kNames[bit]);
  }
  return names.empty() ? "none" : names;
}

const char* identifier(ProblemKind kind) {
  switch (kind) {
#define KVJPX_CODESTREAM_ID(kind, id, meaning) \
  case ProblemKind::kind:                      \
    return id;
    KVJPX_CODESTREAM_PROBLEMS(KVJPX_CODESTREAM_ID)
#undef KVJPX_CODESTREAM_ID
  }
  return "";
}

const char* meaning(ProblemKind kind) {
  switch (kind) {
#define KVJPX_CODESTREAM_MEANING(kind, id, meaning) \
  case ProblemKind::kind:                           \
    return meaning;
    KVJPX_CODESTREAM_PROBLEMS(KVJPX_CODESTREAM_MEANING)
#undef KVJPX_CODESTREAM_MEANING
  }
  return "";
}

}  // namespace kvjpx_codestream
