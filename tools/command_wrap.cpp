// wrap and unwrap: a codestream and the JP2 around it (ISO/IEC 15444-1, Annex I).
#include <algorithm>

#include "codestream/codestream.h"
#include "commands.h"
#include "icc_profile.h"
#include "names.h"
#include "value.h"

namespace kvjpx_tool {
namespace {

using Components = std::vector<kvjpx_codestream::Component>;

std::string header_of(const char* type, uint64_t content) {
  constexpr uint64_t kShortLimit = 0xFFFFFFFF;
  const uint64_t total = content + 8;
  if (total <= kShortLimit) return big_endian(total, 4) + type;
  return big_endian(1, 4) + type + big_endian(total + 8, 8);
}

std::string box(const char* type, const std::string& content) {
  return header_of(type, content.size()) + content;
}

struct MainHeader final : kvjpx_codestream::Observer {
  bool wants_fields() const override { return false; }
};

char depth_byte(const kvjpx_codestream::Component& component) {
  return static_cast<char>((component.depth - 1) | (component.is_signed ? KV_JPX_BPC_SIGNED : 0));
}

bool have_one_depth(const Components& components) {
  return std::all_of(components.begin(), components.end(), [&](const auto& component) {
    return depth_byte(component) == depth_byte(components.front());
  });
}

bool have_coarse_chroma(const Components& components) {
  const auto is_coarser = [&](const kvjpx_codestream::Component& component) {
    return component.dx > components[0].dx || component.dy > components[0].dy;
  };
  return components.size() >= 3 && is_coarser(components[1]) && is_coarser(components[2]);
}

// What the components look like; further ones, opacity say, are left without a meaning.
uint64_t usual_colour(const Components& components, const std::string& label) {
  if (components.size() <= 2) return KV_JPX_ENUMCS_GREYSCALE;
  if (have_coarse_chroma(components)) return KV_JPX_ENUMCS_SYCC;
  if (components.size() <= 4) return KV_JPX_ENUMCS_SRGB;
  throw Failure(kUsage, label + ": " + std::to_string(components.size()) +
                            " components tell no colour space: name one with --colour");
}

class Wrapper {
 public:
  Wrapper(const InputFile& file, bool is_unchecked) : file_(file), is_unchecked_(is_unchecked) {
    kvjpx_codestream::MemorySource source(file.bytes().data(), file.bytes().size());
    MainHeader observer;
    image_ = kvjpx_codestream::walk(source, observer).image;
    if (image_.components.empty() || image_.x.size() == 0 || image_.y.size() == 0) {
      throw Failure(kEditRefused, file.label() + ": not a JPEG 2000 codestream with an image");
    }
  }

  // All that stands in front of the codestream.
  std::string boxes(const std::string& colour) const {
    return box("jP  ", "\r\n\x87\n") + box("ftyp", "jp2 " + big_endian(0, 4) + "jp2 ") +
           box("jp2h", image_boxes() + box("colr", colour_content_of(colour))) +
           header_of("jp2c", file_.bytes().size());
  }

 private:
  void refuse(const std::string& reason) const {
    if (is_unchecked_) return;
    throw Failure(kEditRefused, reason + " (--unchecked does it all the same)");
  }

  std::string image_boxes() const {
    const Components& components = image_.components;
    const bool is_one = have_one_depth(components);
    constexpr char kVaries = static_cast<char>(KV_JPX_BPC_VARIES);
    const std::string image = big_endian(image_.y.size(), 4) + big_endian(image_.x.size(), 4) +
                              big_endian(components.size(), 2) +
                              (is_one ? depth_byte(components[0]) : kVaries) +
                              static_cast<char>(KV_JPX_C_JPEG2000) + big_endian(0, 2);
    std::string depths;
    for (const auto& component : components) depths += depth_byte(component);
    return box("ihdr", image) + (is_one ? "" : box("bpcc", depths));
  }

  std::string colour_content_of(const std::string& colour) const {
    std::optional<uint64_t> space;
    if (colour.empty()) {
      space = usual_colour(image_.components, file_.label());
    } else if (colour == "grey" || colour == "gray") {
      space = KV_JPX_ENUMCS_GREYSCALE;
    } else {
      space = value_of_name(JPX_FIELD_COLR_EnumCS, colour);
    }
    if (!space) return profile_content(colour);
    if (*space != KV_JPX_ENUMCS_SRGB && *space != KV_JPX_ENUMCS_GREYSCALE &&
        *space != KV_JPX_ENUMCS_SYCC) {
      refuse(colour + ": a JP2 has sRGB, grey, sYCC or a profile");
    }
    check_channels(*space == KV_JPX_ENUMCS_GREYSCALE ? 1 : 3, colour);
    return std::string{KV_JPX_METH_ENUMERATED, 0, 0} + big_endian(*space, 4);
  }

  std::string profile_content(const std::string& name) const {
    const InputFile file(name);
    const IccProfile profile(file.bytes());
    if (!profile.fault().empty()) {
      refuse(file.label() +
             ": neither the name of a colour space nor an ICC profile: " + profile.fault());
    } else {
      check_channels(profile.channels(), name);
      if (!profile.is_restricted()) {
        refuse(file.label() + ": the profile is not of the restricted kind, which a JP2 needs");
      }
    }
    return colour_content(file.bytes(), 0, 0);
  }

  void check_channels(uint64_t wanted, const std::string& colour) const {
    if (wanted <= image_.components.size()) return;
    refuse(file_.label() + ": " + colour + " needs " + std::to_string(wanted) +
           " components, and the codestream has " + std::to_string(image_.components.size()));
  }

  const InputFile& file_;
  bool is_unchecked_;
  kvjpx_codestream::Image image_;
};

}  // namespace

void wrap_codestream(const std::string& file, const std::string& colour, bool is_unchecked,
                     const Target& target) {
  check_takes_binary(target);
  const InputFile codestream(file);
  write_result(target, Wrapper(codestream, is_unchecked).boxes(colour).append(codestream.bytes()));
}

void unwrap_codestream(const std::string& file, std::optional<uint64_t> number,
                       const Target& target) {
  check_takes_binary(target);
  const OpenedFile opened(file, OpenedFile::Content::kBoxes);
  std::vector<kvjpx::box> codestreams;
  for (const kvjpx::box box : opened.document().root().children()) {
    if (box.type() == kvjpx::type("jp2c")) codestreams.push_back(box);
  }
  const size_t count = codestreams.size();
  if (count == 0) {
    throw Failure(kNoSuchPlace, opened.label() + ": there is no codestream (jp2c) in it");
  }
  if (!number && count > 1) {
    throw Failure(kUsage, opened.label() + ": there are " + std::to_string(count) +
                              " codestreams: choose one with --codestream, from 0");
  }
  if (number.value_or(0) >= count) {
    throw Failure(kNoSuchPlace, opened.label() + ": there is no codestream " +
                                    std::to_string(*number) + "; there are " +
                                    std::to_string(count) + ", from 0");
  }
  const kvjpx::box chosen = codestreams[number.value_or(0)];
  write_result(target, chosen.source_content().value_or(kvjpx::byte_view()).text());
}

}  // namespace kvjpx_tool
