// Reads the header and the tags of a profile.
#include "icc_profile.h"

#include <lcms2.h>

#include <vector>

namespace kvjpx_tool {
namespace {

constexpr size_t kHeaderSize = 128;
constexpr size_t kSignatureAt = 36;

uint32_t number_at(std::string_view bytes, size_t position) {
  uint32_t number = 0;
  for (size_t i = 0; i < 4; ++i) number = number << 8 | static_cast<uint8_t>(bytes[position + i]);
  return number;
}

// A wide string, which ends at its NUL.
std::string utf8_of(const std::vector<wchar_t>& text) {
  std::string result;
  for (const wchar_t character : text) {
    const auto code = static_cast<char32_t>(character);
    if (code == 0) break;
    if (code < 0x80) {
      result += static_cast<char>(code);
      continue;
    }
    const int more = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    result += static_cast<char>(0xFF00 >> (more + 1) | code >> (6 * more));
    for (int i = more - 1; i >= 0; --i) {
      result += static_cast<char>(0x80 | (code >> (6 * i) & 0x3F));
    }
  }
  return result;
}

}  // namespace

IccProfile::IccProfile(std::string_view bytes) {
  if (bytes.size() < kHeaderSize) {
    fault_ = "they are shorter than a profile's header";
  } else if (bytes.substr(kSignatureAt, 4) != "acsp") {
    fault_ = "the header lacks its signature";
  } else if (number_at(bytes, 0) != bytes.size()) {
    fault_ = "the header tells a length of " + std::to_string(number_at(bytes, 0)) + ", not " +
             std::to_string(bytes.size());
  } else {
    profile_.reset(cmsOpenProfileFromMem(bytes.data(), static_cast<cmsUInt32Number>(bytes.size())));
    if (!profile_) fault_ = "the table of tags cannot be read";
  }
}

void IccProfile::Close::operator()(void* profile) const { cmsCloseProfile(profile); }

bool IccProfile::is_restricted() const {
  const cmsProfileClassSignature kind = cmsGetDeviceClass(profile_.get());
  const cmsColorSpaceSignature space = cmsGetColorSpace(profile_.get());
  if (kind != cmsSigInputClass && kind != cmsSigDisplayClass) return false;
  if (space == cmsSigGrayData) return cmsIsTag(profile_.get(), cmsSigGrayTRCTag) != 0;
  return space == cmsSigRgbData && cmsGetPCS(profile_.get()) == cmsSigXYZData &&
         cmsIsMatrixShaper(profile_.get()) != 0 && cmsIsTag(profile_.get(), cmsSigAToB0Tag) == 0;
}

unsigned IccProfile::channels() const { return cmsChannelsOf(cmsGetColorSpace(profile_.get())); }

std::string IccProfile::description() const {
  const auto get = [this](wchar_t* text, cmsUInt32Number size) {
    return cmsGetProfileInfo(profile_.get(), cmsInfoDescription, "en", "US", text, size);
  };
  std::vector<wchar_t> text(get(nullptr, 0) / sizeof(wchar_t) + 1);
  get(text.data(), static_cast<cmsUInt32Number>((text.size() - 1) * sizeof(wchar_t)));
  return utf8_of(text);
}

}  // namespace kvjpx_tool
