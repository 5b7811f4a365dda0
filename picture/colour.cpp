// Colour spaces by number, by profile and by guess.
#include "colour.h"

#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <string_view>

#include "error.h"

namespace kvjpx_picture {
namespace {

struct CloseProfile {
  void operator()(void* profile) const { cmsCloseProfile(profile); }
};
using Profile = std::unique_ptr<void, CloseProfile>;

Profile open_profile(const std::string& bytes) {
  return Profile(cmsOpenProfileFromMem(bytes.data(), static_cast<cmsUInt32Number>(bytes.size())));
}

constexpr cmsUInt32Number kSixteenBits = BYTES_SH(2);

cmsUInt32Number any_of_16_bits(uint32_t channels) { return kSixteenBits | CHANNELS_SH(channels); }

cmsHTRANSFORM transform_to_srgb(cmsHPROFILE from, cmsUInt32Number type) {
  const Profile srgb(cmsCreate_sRGBProfile());
  return cmsCreateTransform(from, type, srgb.get(), TYPE_RGB_16, cmsGetHeaderRenderingIntent(from),
                            0);
}

constexpr size_t kClassAt = 12;  // in a profile's header (ISO 15076-1, 7.2)
constexpr size_t kSpaceAt = 16;

constexpr bool is_one_of(std::string_view code, std::initializer_list<std::string_view> codes) {
  for (const std::string_view one : codes) {
    if (code == one) return true;
  }
  return false;
}

// Channels of a colour space of ISO 15076-1, Table 19; 0 for what is none.
uint32_t channels_of(std::string_view space) {
  if (space == "GRAY") return 1;
  if (space == "CMYK") return 4;
  if (is_one_of(space, {"RGB ", "Lab ", "XYZ ", "Luv ", "YCbr", "Yxy ", "HSV ", "HLS ", "CMY "})) {
    return 3;
  }
  const size_t digit = std::string_view("0123456789ABCDEF").find(space[0]);
  return space.substr(1) == "CLR" && digit != std::string_view::npos && digit > 1
             ? static_cast<uint32_t>(digit)
             : 0;
}

// Empty when the profile can serve samples of so many channels; else the reason.
std::string fault_of(const std::string& icc, uint32_t channels, ColourSpace& space) {
  const Profile profile = open_profile(icc);
  if (!profile) return "cannot be read";
  // Not from Little CMS, whose enumerations would have values that they don't have.
  const std::string_view header = icc;
  const std::string_view colours = header.substr(kSpaceAt, 4);
  if (!is_one_of(header.substr(kClassAt, 4), {"scnr", "mntr", "prtr", "spac"})) {
    return "is of a class that describes no pictures";
  }
  space.channels = channels_of(colours);
  if (space.channels == 0) return "has no colour space that is known";
  if (space.channels > channels) {
    return "is for " + std::to_string(space.channels) + " channels, not " +
           std::to_string(channels);
  }
  cmsHTRANSFORM transform = transform_to_srgb(profile.get(), any_of_16_bits(space.channels));
  if (transform == nullptr) return "has no usable conversion";
  cmsDeleteTransform(transform);
  space.icc = icc;
  space.model = colours == "GRAY"   ? Model::kGrey
                : colours == "RGB " ? Model::kRgb
                : colours == "CMYK" ? Model::kCmyk
                                    : Model::kOther;
  space.needs_conversion = space.model == Model::kOther;
  return {};
}

// ISO 22028-2: a gamma of 1.8 with a straight beginning.
std::string romm_profile() {
  constexpr size_t kDate = 24;  // in the header; of the moment otherwise, so that no run is like
  constexpr char kFixedDate[] = "\x07\xD0\0\x01\0\x01\0\0\0\0\0\0";
  const cmsCIExyY white = {0.3457, 0.3585, 1};
  const cmsCIExyYTRIPLE primaries = {{0.7347, 0.2653, 1}, {0.1596, 0.8404, 1}, {0.0366, 0.0001, 1}};
  const double shape[] = {1.8, 1, 0, 1.0 / 16, 1.0 / 32};
  cmsToneCurve* curve = cmsBuildParametricToneCurve(nullptr, 4, shape);
  cmsToneCurve* const curves[] = {curve, curve, curve};
  const Profile profile(cmsCreateRGBProfile(&white, &primaries, curves));
  cmsFreeToneCurve(curve);
  cmsUInt32Number size = 0;
  if (!profile || !cmsSaveProfileToMem(profile.get(), nullptr, &size)) return {};
  std::string bytes(size, '\0');
  if (!cmsSaveProfileToMem(profile.get(), bytes.data(), &size)) return {};
  bytes.replace(kDate, 12, kFixedDate, 12);
  return bytes;
}

// ISO/IEC 15444-1, Table I.10, and 15444-2, Table M.25.
bool find_enumerated(const ColourBox& box, ColourSpace& space, Notes& notes) {
  const auto is = [&](Coding coding, uint32_t channels, Model model, bool is_srgb = true) {
    space.coding = coding;
    space.channels = channels;
    space.model = model;
    space.is_srgb = is_srgb;
    return true;
  };
  switch (box.space) {
    case KV_JPX_ENUMCS_BI_LEVEL:
      return is(Coding::kInverted, 1, Model::kGrey);
    case KV_JPX_ENUMCS_BI_LEVEL_2:
    case KV_JPX_ENUMCS_GREYSCALE:
      return is(Coding::kDirect, 1, Model::kGrey);
    case KV_JPX_ENUMCS_SRGB:
      return is(Coding::kDirect, 3, Model::kRgb);
    case KV_JPX_ENUMCS_SYCC:
    case KV_JPX_ENUMCS_E_SYCC:
    case KV_JPX_ENUMCS_YCBCR_2:
      return is(Coding::kYcc, 3, Model::kRgb);
    case KV_JPX_ENUMCS_YCBCR_3:
      return is(Coding::kVideoYcc, 3, Model::kRgb);
    case KV_JPX_ENUMCS_YCBCR_1:
    case KV_JPX_ENUMCS_YPBPR_1125_60:
    case KV_JPX_ENUMCS_YPBPR_1250_50:
      return is(Coding::kVideoYcc709, 3, Model::kRgb);
    case KV_JPX_ENUMCS_PHOTO_YCC:
      notes.add("PhotoYCC: colours brighter than white are cut off");
      return is(Coding::kPhotoYcc, 3, Model::kRgb);
    case KV_JPX_ENUMCS_CMY:
      notes.add("CMY without a profile: converted as complements of red, green and blue");
      return is(Coding::kInverted, 3, Model::kRgb);
    case KV_JPX_ENUMCS_CMYK:
      return is(Coding::kDirect, 4, Model::kCmyk, false);
    case KV_JPX_ENUMCS_YCCK:
      return is(Coding::kYcck, 4, Model::kCmyk, false);
    case KV_JPX_ENUMCS_CIELAB:
      return is(Coding::kLab, 3, Model::kLab, false);
    case KV_JPX_ENUMCS_CIEJAB:
      notes.add("CIEJab: taken for CIELab, which is near it");
      return is(Coding::kJab, 3, Model::kLab, false);
    case KV_JPX_ENUMCS_E_SRGB:
      notes.add("e-sRGB: colours outside sRGB are cut off");
      return is(Coding::kExtendedRgb, 3, Model::kRgb);
    case KV_JPX_ENUMCS_ROMM_RGB:
      space.icc = romm_profile();
      return is(Coding::kDirect, 3, Model::kRgb, false);
    default:
      return false;
  }
}

std::string name_of(const ColourBox& box) {
  if (box.method == KV_JPX_METH_ENUMERATED) return "colour space " + std::to_string(box.space);
  if (box.method == KV_JPX_METH_VENDOR) return "a vendor's colour space";
  return "colour method " + std::to_string(box.method);
}

// Whether the box tells a space that is understood and fits; else the reason is noted.
bool find_space(const ColourBox& box, uint32_t channels, ColourSpace& space, Notes& notes) {
  if (box.method == KV_JPX_METH_RESTRICTED_ICC || box.method == KV_JPX_METH_ANY_ICC) {
    const std::string fault = fault_of(box.profile, channels, space);
    if (!fault.empty()) notes.add("the ICC profile " + fault + ", so it is not used");
    return fault.empty();
  }
  Notes of_space;
  if (box.method != KV_JPX_METH_ENUMERATED || !find_enumerated(box, space, of_space)) {
    notes.add(name_of(box) + " is not known");
    return false;
  }
  if (space.channels > channels) {
    notes.add(name_of(box) + " has " + std::to_string(space.channels) + " channels, not " +
              std::to_string(channels) + ", so it is not used");
    return false;
  }
  for (const std::string& note : of_space.all()) notes.add(note);
  space.parameters = box.parameters;
  return true;
}

// Straight lines that samples are read by, and the matrix that the results go through.
struct Formula {
  struct Line {
    double factor;
    double constant;
  };
  std::array<Line, 3> lines;
  std::array<std::array<double, 3>, 3> matrix;
};

constexpr std::array<std::array<double, 3>, 3> kIdentity = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
constexpr std::array<std::array<double, 3>, 3> kBt601 = {
    {{1, 0, 1.402}, {1, -0.344136, -0.714136}, {1, 1.772, 0}}};
constexpr std::array<std::array<double, 3>, 3> kBt709 = {
    {{1, 0, 1.5748}, {1, -0.187324, -0.468124}, {1, 1.8556, 0}}};
constexpr std::array<std::array<double, 3>, 3> kPhoto = {
    {{1, 0, 1}, {1, -0.194, -0.509}, {1, 1, 0}}};

// (sample - zero) / range, in units of a depth of 8 bits.
Formula::Line video_line(SampleDepth depth, double zero, double range) {
  const double unit = std::ldexp(1.0, static_cast<int>(depth.depth) - 8);
  return {1 / (unit * range), (static_cast<double>(depth.shift()) / unit - zero) / range};
}

Formula::Line full_line(SampleDepth depth, bool is_centred) {
  const auto greatest = static_cast<double>(depth.greatest());
  const double centre = is_centred ? std::ldexp(1.0, static_cast<int>(depth.depth) - 1) : 0;
  return {1 / greatest, (static_cast<double>(depth.shift()) - centre) / greatest};
}

// EP of CIELab and CIEJab (15444-2, M.11.7.4): the colour is (sample - offset) * range / greatest.
// It is coded as `first` + colour, `whole` the greatest.
Formula::Line lab_line(SampleDepth depth, const ColourSpace& space, size_t index, double first,
                       double whole) {
  const double half = std::ldexp(1.0, static_cast<int>(depth.depth) - 1);
  const double default_ranges[] = {100, 170, 200};
  const double default_offsets[] = {0, half, half * 3 / 4};
  double range = default_ranges[index];
  double offset = default_offsets[index] - static_cast<double>(depth.shift());
  if (space.coding == Coding::kJab && index == 1) range = 255;
  if (space.coding == Coding::kJab && index == 2) {
    range = 255;
    offset = half - static_cast<double>(depth.shift());
  }
  if (space.parameters.size() >= 6) {
    range = space.parameters[index * 2];
    offset = space.parameters[index * 2 + 1];
  }
  const double factor = range / static_cast<double>(depth.greatest());
  return {factor / whole, (first - offset * factor) / whole};
}

// PIMA 7667: 255 * 2^(n - 9) steps from black to white, black at 3 * 2^(n - 3).
Formula::Line extended_line(SampleDepth depth) {
  const double steps = 255 * std::ldexp(1.0, static_cast<int>(depth.depth) - 9);
  const double black = 3 * std::ldexp(1.0, static_cast<int>(depth.depth) - 3);
  return {1 / steps, (static_cast<double>(depth.shift()) - black) / steps};
}

Formula formula_of(const ColourSpace& space, const std::vector<SampleDepth>& d) {
  switch (space.coding) {
    case Coding::kVideoYcc:
      return {{video_line(d[0], 16, 219), video_line(d[1], 128, 224), video_line(d[2], 128, 224)},
              kBt601};
    case Coding::kVideoYcc709:
      return {{video_line(d[0], 16, 219), video_line(d[1], 128, 224), video_line(d[2], 128, 224)},
              kBt709};
    case Coding::kPhotoYcc:
      return {{video_line(d[0], 0, 255 / 1.402), video_line(d[1], 156, 111.40),
               video_line(d[2], 137, 135.64)},
              kPhoto};
    case Coding::kExtendedRgb:
      return {{extended_line(d[0]), extended_line(d[1]), extended_line(d[2])}, kIdentity};
    case Coding::kLab:
    case Coding::kJab:
      return {{lab_line(d[0], space, 0, 0, 100), lab_line(d[1], space, 1, 128, 255),
               lab_line(d[2], space, 2, 128, 255)},
              kIdentity};
    default:
      return {{full_line(d[0], false), full_line(d[1], true), full_line(d[2], true)}, kBt601};
  }
}

class DirectKernel final : public ColourKernel {
 public:
  DirectKernel(const std::vector<SampleDepth>& channels, uint32_t depth, bool inverts) {
    for (const SampleDepth& channel : channels) maps_.emplace_back(channel, depth, inverts);
  }
  void convert(const int32_t* const* channels, size_t pixels, uint16_t* out,
               size_t stride) const override {
    for (size_t channel = 0; channel < maps_.size(); ++channel) {
      const DepthMap& map = maps_[channel];
      const int32_t* from = channels[channel];
      for (size_t i = 0; i < pixels; ++i) out[i * stride + channel] = map(from[i]);
    }
  }

 private:
  std::vector<DepthMap> maps_;
};

class FormulaKernel final : public ColourKernel {
 public:
  FormulaKernel(const ColourSpace& space, const std::vector<SampleDepth>& channels, uint32_t depth)
      : is_ycck_(space.coding == Coding::kYcck), greatest_((1 << depth) - 1) {
    const Formula formula = formula_of(space, channels);
    for (size_t out = 0; out < 3; ++out) {
      constants_[out] = 0.5F;  // rounds
      for (size_t in = 0; in < 3; ++in) {
        const double weight = formula.matrix[out][in] * greatest_;
        factors_[out][in] = static_cast<float>(weight * formula.lines[in].factor);
        constants_[out] += static_cast<float>(weight * formula.lines[in].constant);
      }
    }
    if (is_ycck_) black_.emplace_back(channels[3], depth);
  }
  void convert(const int32_t* const* channels, size_t pixels, uint16_t* out,
               size_t stride) const override {
    for (size_t i = 0; i < pixels; ++i, out += stride) {
      const auto a = static_cast<float>(channels[0][i]);
      const auto b = static_cast<float>(channels[1][i]);
      const auto c = static_cast<float>(channels[2][i]);
      for (size_t k = 0; k < 3; ++k) {
        const float value =
            factors_[k][0] * a + factors_[k][1] * b + factors_[k][2] * c + constants_[k];
        const auto whole =
            static_cast<int32_t>(std::min(std::max(value, 0.0F), static_cast<float>(greatest_)));
        out[k] = static_cast<uint16_t>(is_ycck_ ? greatest_ - whole : whole);
      }
      if (is_ycck_) out[3] = black_[0](channels[3][i]);
    }
  }

 private:
  bool is_ycck_;
  int32_t greatest_;
  float factors_[3][3];
  float constants_[3];
  std::vector<DepthMap> black_;  // one for YCCK
};

}  // namespace

DepthMap::DepthMap(SampleDepth from, uint32_t depth, bool inverts)
    : shift_(from.shift()),
      greatest_(from.greatest()),
      dropped_(from.depth > 16 ? from.depth - 16 : 0) {
  const uint64_t entries = uint64_t{1} << (from.depth - dropped_);
  const uint64_t greatest = (uint64_t{1} << depth) - 1;
  table_.reserve(entries);
  for (uint64_t i = 0; i < entries; ++i) {
    const uint64_t scaled = (i * greatest + (entries - 1) / 2) / (entries - 1);
    table_.push_back(static_cast<uint16_t>(inverts ? greatest - scaled : scaled));
  }
}

std::unique_ptr<ColourKernel> make_kernel(const ColourSpace& space,
                                          const std::vector<SampleDepth>& channels,
                                          uint32_t depth) {
  if (space.coding == Coding::kDirect || space.coding == Coding::kInverted) {
    return std::make_unique<DirectKernel>(channels, depth, space.coding == Coding::kInverted);
  }
  return std::make_unique<FormulaKernel>(space, channels, depth);
}

ColourSpace colour_by_count(uint32_t channels) {
  ColourSpace space;
  space.is_srgb = channels == 1 || channels == 3;
  space.channels = channels;
  space.model = channels == 1 ? Model::kGrey : channels == 3 ? Model::kRgb : Model::kOther;
  return space;
}

ColourSpace choose_colour(const std::vector<ColourBox>& boxes, uint32_t channels, Notes& notes) {
  std::vector<const ColourBox*> order;
  order.reserve(boxes.size());
  for (const ColourBox& box : boxes) order.push_back(&box);
  // An approximation of 0, that of files without the extensions, promises no less than 1.
  std::stable_sort(order.begin(), order.end(), [](const ColourBox* a, const ColourBox* b) {
    if (a->precedence != b->precedence) return a->precedence > b->precedence;
    return std::max(a->approximation, 1U) < std::max(b->approximation, 1U);
  });
  for (const ColourBox* box : order) {
    ColourSpace space;
    if (!find_space(*box, channels, space, notes)) continue;
    if (box->approximation > KV_JPX_APPROX_EXCEPTIONAL) {
      notes.add("the colour space only approximates the true one");
    }
    return space;
  }
  ColourSpace guess = colour_by_count(channels);
  if (!boxes.empty()) {
    guess.is_srgb = false;
    notes.add(std::string("the colours are shown as ") + (channels == 1   ? "grey"
                                                          : channels == 3 ? "red, green and blue"
                                                                          : "they are"));
  }
  return guess;
}

void ToSrgb::Delete::operator()(void* transform) const { cmsDeleteTransform(transform); }

ToSrgb::ToSrgb(const Format& from) : colours_(from.colours), model_(from.model) {
  if (!from.icc.empty()) {
    const Profile profile = open_profile(from.icc);
    if (profile) transform_.reset(transform_to_srgb(profile.get(), any_of_16_bits(colours_)));
    if (!transform_) throw Error(Error::Kind::kUndecodable, "the ICC profile cannot be used");
  } else if (model_ == Model::kLab) {
    const Profile lab(cmsCreateLab4Profile(nullptr));
    transform_.reset(transform_to_srgb(lab.get(), TYPE_Lab_16));
    if (!transform_) throw Error(Error::Kind::kMemory, "not enough memory");
  }
}

void ToSrgb::convert(const uint16_t* colours, size_t pixels, uint16_t* rgb) const {
  if (transform_) {
    cmsDoTransform(transform_.get(), colours, rgb, static_cast<cmsUInt32Number>(pixels));
    return;
  }
  constexpr uint32_t kGreatest = 65535;
  for (size_t i = 0; i < pixels; ++i, colours += colours_, rgb += 3) {
    for (size_t k = 0; k < 3; ++k) {
      if (model_ == Model::kCmyk) {
        const uint64_t light = uint64_t{kGreatest - colours[k]} * (kGreatest - colours[3]);
        rgb[k] = static_cast<uint16_t>((light + kGreatest / 2) / kGreatest);
      } else {
        rgb[k] = colours[colours_ == 3 ? k : 0];
      }
    }
  }
}

}  // namespace kvjpx_picture
