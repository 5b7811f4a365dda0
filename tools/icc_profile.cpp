// Reads the header and the tags of a profile.
#include "icc_profile.h"

#include <lcms2.h>

namespace kvjpx_tool {
namespace {

constexpr size_t kHeaderSize = 128;
constexpr size_t kSignatureAt = 36;

uint32_t number_at(std::string_view bytes, size_t position) {
  uint32_t number = 0;
  for (size_t i = 0; i < 4; ++i) number = number << 8 | static_cast<uint8_t>(bytes[position + i]);
  return number;
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

}  // namespace kvjpx_tool
