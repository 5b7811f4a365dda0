// icc: a colr box with a profile (ISO/IEC 15444-1, I.5.3.3; 15444-2, M.11).
#include <optional>

#include "commands.h"
#include "icc_profile.h"

namespace kvjpx_tool {
namespace {

// Of a palette, those that it makes.
std::optional<uint64_t> channels_of(kvjpx::box header) {
  if (const kvjpx::box mapping = header.child("cmap")) {
    if (auto count = mapping.count<kvjpx::cmap::cmp>()) return *count;
  }
  const kvjpx::box image = header.child("ihdr");
  if (!image) return std::nullopt;
  if (auto count = image.get<kvjpx::ihdr::nc>()) return *count;
  return std::nullopt;
}

bool has_profile(kvjpx::box colour) {
  const auto method = colour.get<kvjpx::colr::meth>();
  return method && (*method == KV_JPX_METH_RESTRICTED_ICC || *method == KV_JPX_METH_ANY_ICC);
}

// The box whose content is replaced: one with a profile or, where there is none, the first.
kvjpx::box colour_to_replace(kvjpx::box header) {
  for (const kvjpx::box box : header.children()) {
    if (box.type() == kvjpx::type("colr") && has_profile(box)) return box;
  }
  return header.child("colr");
}

// Behind the last colr box, or behind those that say how many components there are.
kvjpx::box add_colour(const Edit& edit, kvjpx::box header) {
  kvjpx::box place;
  for (const kvjpx::box box : header.children()) {
    for (const kvjpx::type type : {kvjpx::type("ihdr"), kvjpx::type("bpcc"), kvjpx::type("colr")}) {
      if (box.type() == type) place = box;
    }
  }
  return edit.taken(place ? place.add_after("colr") : header.add_first("colr"), edit.place(header));
}

}  // namespace

std::string colour_content(std::string_view profile, char precedence, char approximation) {
  const IccProfile read(profile);
  const bool is_restricted = read.fault().empty() && read.is_restricted();
  std::string content;
  content += static_cast<char>(is_restricted ? KV_JPX_METH_RESTRICTED_ICC : KV_JPX_METH_ANY_ICC);
  content += precedence;
  content += approximation;
  return content.append(profile);
}

void set_profile(const IccRequest& request, const EditRequest& edit_request) {
  const InputFile file(request.profile);
  Edit edit(edit_request);
  const kvjpx::box header = edit.root().child("jp2h");
  if (!header) throw Failure(kNoSuchPlace, edit.label() + ": there is no box 'jp2h'");
  const IccProfile profile(file.bytes());
  if (!profile.fault().empty()) {
    edit.refuse(file.label(), "the bytes are no ICC profile: " + profile.fault());
  } else if (const auto channels = channels_of(header);
             channels && *channels < profile.channels()) {
    edit.refuse(file.label(), "the profile is for " + std::to_string(profile.channels()) +
                                  " channels, and the image has " + std::to_string(*channels));
  }
  kvjpx::box colour = request.adds ? kvjpx::box() : colour_to_replace(header);
  if (!colour) colour = add_colour(edit, header);
  const auto precedence = colour.get<kvjpx::colr::prec>();
  const auto approximation = colour.get<kvjpx::colr::approx>();
  const std::string content =
      colour_content(file.bytes(), precedence ? static_cast<char>(*precedence) : '\0',
                     approximation ? static_cast<char>(*approximation) : '\0');
  edit.check(colour.set_content(content), edit.place(colour));
  if (content[0] == KV_JPX_METH_ANY_ICC) {
    report(edit.label() +
           ": note: the profile is not of the restricted kind (METH 3), so readers "
           "that know JP2 only pass it over");
  }
  edit.finish();
}

}  // namespace kvjpx_tool
