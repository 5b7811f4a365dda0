// The functions of kvjpx_tools.h: commands without a command line.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <sstream>

#include "check_report.h"
#include "codec_loader.h"
#include "dump.h"
#include "failure.h"
#include "kvjpx_tools.h"
#include "opened_file.h"
#include "picture_reading.h"

namespace kvjpx_tool {
namespace {

int32_t give(ExitCode result, const std::string& text, char** answer) {
  *answer = static_cast<char*>(std::malloc(text.size() + 1));
  if (*answer == nullptr) return kInputOutput;
  std::memcpy(*answer, text.c_str(), text.size() + 1);
  return result;
}

// `write` writes the line of a file. No exception gets to the caller.
template <class Write>
int32_t answer_of(const char* name, const void* data, uint64_t length, char** answer,
                  const Write& write) {
  if (answer == nullptr) return kUsage;
  *answer = nullptr;
  if (name == nullptr) return kUsage;
  try {
    std::ostringstream out;
    if (data != nullptr) {
      write(OpenedFile(name, {static_cast<const char*>(data), static_cast<size_t>(length)}), out);
    } else {
      write(OpenedFile(name), out);
    }
    std::string line = out.str();
    if (!line.empty()) line.pop_back();
    return give(kDone, line, answer);
  } catch (const Failure& failure) {
    return give(failure.exit_code(), failure.what(), answer);
  } catch (const std::exception& error) {
    return give(kInputOutput, error.what(), answer);
  }
}

unsigned profile_named(const char* name) {
  using kvjpx_check::Profile;
  if (name == nullptr) return 0;
  for (const Profile profile : {kvjpx_check::kJp2, kvjpx_check::kJpx, kvjpx_check::kJph}) {
    if (std::strcmp(name, kvjpx_check::name(profile)) == 0) return profile;
  }
  throw Failure(kUsage, "there is no profile '" + std::string(name) + "'");
}

using kvjpx_picture::Format;
using kvjpx_picture::Picture;

kvjpx_picture::Request picture_request(const kvjpx_tools_decode_request& asked) {
  constexpr uint32_t kMostReduced = 31;
  constexpr uint32_t kMostLayers = 255;
  constexpr uint64_t kMostMillions = 1000000;
  const bool is_empty = (asked.right != 0 && asked.right <= asked.left) ||
                        (asked.bottom != 0 && asked.bottom <= asked.top);
  if (is_empty) throw Failure(kUsage, "the region is empty");
  if (asked.size < sizeof asked || asked.part > KVJPX_TOOLS_FRAME || asked.reduce > kMostReduced ||
      asked.layers > kMostLayers || asked.limit > kMostMillions) {
    throw Failure(kUsage, "a member of the request is out of range");
  }
  kvjpx_picture::Request request;
  if (asked.part == KVJPX_TOOLS_LAYER) request.layer = asked.number;
  if (asked.part == KVJPX_TOOLS_CODESTREAM) request.codestream = asked.number;
  if (asked.part == KVJPX_TOOLS_FRAME) request.frame = asked.number;
  set_region(request, {asked.left, asked.top, asked.right, asked.bottom});
  set_limit(request, asked.limit);
  request.effort.reduction = asked.reduce;
  request.effort.layers = asked.layers;
  request.effort.is_strict = (asked.flags & KVJPX_TOOLS_STRICT) != 0;
  request.to_srgb = (asked.flags & KVJPX_TOOLS_SRGB) != 0;
  return request;
}

void describe(const Format& format, kvjpx_tools_picture& picture) {
  picture.width = format.width;
  picture.height = format.height;
  picture.channels = format.channels();
  picture.bits = format.depth;
  // The enumerations of kvjpx_tools.h have the order of those of format.h.
  picture.colours = static_cast<uint32_t>(format.model);
  picture.opacity = static_cast<uint32_t>(format.opacity);
}

void read_samples(const OpenedFile& file, Picture& picture, void* samples, uint64_t length) {
  const Format& format = picture.format();
  const bool is_deep = format.depth > 8;
  const size_t row = format.row_samples();
  if (length != uint64_t{row} * format.height * (is_deep ? 2 : 1)) {
    throw Failure(kUsage, "samples_length is not the picture's");
  }
  read_all_rows(file, picture, [&](const uint16_t* rows, uint32_t first, uint32_t count) {
    if (is_deep) {
      std::copy_n(rows, row * count, static_cast<uint16_t*>(samples) + row * first);
    } else {
      std::transform(rows, rows + row * count, static_cast<uint8_t*>(samples) + row * first,
                     [](uint16_t sample) { return static_cast<uint8_t>(sample); });
    }
  });
}

}  // namespace
}  // namespace kvjpx_tool

using kvjpx_tool::answer_of;
using kvjpx_tool::OpenedFile;

int32_t kvjpx_tools_dump(const char* name, const void* data, uint64_t length, int32_t codestreams,
                         char** answer) {
  return answer_of(name, data, length, answer, [&](const OpenedFile& file, std::ostream& out) {
    kvjpx_tool::dump_json(file, codestreams != 0, out);
  });
}

int32_t kvjpx_tools_check(const char* name, const void* data, uint64_t length, const char* profile,
                          char** answer) {
  return answer_of(name, data, length, answer, [&](const OpenedFile& file, std::ostream& out) {
    const unsigned wanted = kvjpx_tool::profile_named(profile);
    const kvjpx_check::Result result = kvjpx_check::check(file.document(), file.bytes(), wanted);
    out << kvjpx_tool::check_as_json({file.label(), file.bytes().size(),
                                      kvjpx_tool::FindingCounts(result.findings), result.more},
                                     result);
  });
}

int32_t kvjpx_tools_decode(const char* name, const void* data, uint64_t length,
                           const kvjpx_tools_decode_request* request, kvjpx_tools_picture* picture,
                           void* samples, uint64_t samples_length, char** answer) {
  if (picture == nullptr || picture->size < sizeof *picture) name = nullptr;
  return answer_of(name, data, length, answer, [&](const OpenedFile& file, std::ostream& out) {
    kvjpx_tools_decode_request whole = {};
    whole.size = sizeof whole;
    const kvjpx_picture::Request asked = kvjpx_tool::picture_request(request ? *request : whole);
    file.check_is_known();
    kvjpx_tool::load_sample_codec();
    try {
      kvjpx_picture::Picture decoded(file.document(), file.bytes(), asked);
      kvjpx_tool::describe(decoded.format(), *picture);
      if (samples) kvjpx_tool::read_samples(file, decoded, samples, samples_length);
      for (const std::string& note : decoded.notes()) out << note << '\n';
    } catch (const kvjpx_picture::Error& error) {
      throw kvjpx_tool::decoding_failure(file.label(), error);
    }
  });
}

void kvjpx_tools_free(char* answer) { std::free(answer); }
