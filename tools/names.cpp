// The table of names.
#include "names.h"

#include <cctype>
#include <string>

#include "kvjpx_fields.h"

namespace kvjpx_tool {
namespace {

struct Name {
  uint32_t key;
  uint64_t value;
  const char* text;  // small letters and digits only
};

// ISO/IEC 15444-1, I.5.3; 15444-2, M.11. What people call a value besides stands behind its name.
constexpr Name kNames[] = {
    {JPX_FIELD_IHDR_C, KV_JPX_C_UNCOMPRESSED, "uncompressed"},
    {JPX_FIELD_IHDR_C, KV_JPX_C_JPEG, "jpeg"},
    {JPX_FIELD_IHDR_C, KV_JPX_C_JPEG_LS, "jpegls"},
    {JPX_FIELD_IHDR_C, KV_JPX_C_JPEG2000, "jpeg2000"},
    {JPX_FIELD_IHDR_C, KV_JPX_C_JBIG2, "jbig2"},
    {JPX_FIELD_IHDR_C, KV_JPX_C_JBIG, "jbig"},
    {JPX_FIELD_COLR_METH, KV_JPX_METH_ENUMERATED, "enumerated"},
    {JPX_FIELD_COLR_METH, KV_JPX_METH_RESTRICTED_ICC, "icc"},
    {JPX_FIELD_COLR_METH, KV_JPX_METH_RESTRICTED_ICC, "restrictedicc"},
    {JPX_FIELD_COLR_METH, KV_JPX_METH_ANY_ICC, "anyicc"},
    {JPX_FIELD_COLR_METH, KV_JPX_METH_VENDOR, "vendor"},
    {JPX_FIELD_COLR_APPROX, KV_JPX_APPROX_ACCURATE, "accurate"},
    {JPX_FIELD_COLR_APPROX, KV_JPX_APPROX_EXCEPTIONAL, "exceptional"},
    {JPX_FIELD_COLR_APPROX, KV_JPX_APPROX_REASONABLE, "reasonable"},
    {JPX_FIELD_COLR_APPROX, KV_JPX_APPROX_POOR, "poor"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_BI_LEVEL, "bilevel"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_YCBCR_1, "ycbcr1"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_YCBCR_2, "ycbcr2"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_YCBCR_3, "ycbcr3"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_PHOTO_YCC, "photoycc"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_CMY, "cmy"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_CMYK, "cmyk"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_YCCK, "ycck"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_CIELAB, "cielab"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_CIELAB, "lab"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_BI_LEVEL_2, "bilevel2"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_SRGB, "srgb"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_GREYSCALE, "greyscale"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_GREYSCALE, "grayscale"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_GREYSCALE, "grey"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_GREYSCALE, "gray"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_SYCC, "sycc"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_CIEJAB, "ciejab"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_E_SRGB, "esrgb"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_ROMM_RGB, "rommrgb"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_YPBPR_1125_60, "ypbpr112560"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_YPBPR_1250_50, "ypbpr125050"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_E_SYCC, "esycc"},
    {JPX_FIELD_CMAP_MTYP, KV_JPX_MTYP_DIRECT, "direct"},
    {JPX_FIELD_CMAP_MTYP, KV_JPX_MTYP_PALETTE, "palette"},
    {JPX_FIELD_CDEF_Typ, KV_JPX_TYP_COLOUR, "colour"},
    {JPX_FIELD_CDEF_Typ, KV_JPX_TYP_COLOUR, "color"},
    {JPX_FIELD_CDEF_Typ, KV_JPX_TYP_OPACITY, "opacity"},
    {JPX_FIELD_CDEF_Typ, KV_JPX_TYP_PREMULTIPLIED_OPACITY, "premultipliedopacity"},
    {JPX_FIELD_CDEF_Typ, KV_JPX_TYP_UNSPECIFIED, "unspecified"},
    {JPX_FIELD_CDEF_Asoc, KV_JPX_ASOC_WHOLE_IMAGE, "image"},
    {JPX_FIELD_CDEF_Asoc, KV_JPX_ASOC_NONE, "none"},
    {JPX_FIELD_OPCT_OTyp, KV_JPX_OTYP_OPACITY, "opacity"},
    {JPX_FIELD_OPCT_OTyp, KV_JPX_OTYP_PREMULTIPLIED_OPACITY, "premultipliedopacity"},
    {JPX_FIELD_OPCT_OTyp, KV_JPX_OTYP_CHROMA_KEY, "chromakey"},
    {JPX_FIELD_COPT_LOOP, KV_JPX_LOOP_FOREVER, "forever"},
};

std::string plain(std::string_view text) {
  std::string result;
  for (const char c : text) {
    const auto character = static_cast<unsigned char>(c);
    if (std::isalnum(character) != 0) {
      result += static_cast<char>(std::tolower(character));
    } else if (character >= 0x80) {
      result += c;
    }
  }
  return result;
}

}  // namespace

std::optional<uint64_t> value_of_name(uint32_t key, std::string_view name) {
  const std::string wanted = plain(name);
  for (const Name& row : kNames) {
    if (row.key == key && wanted == row.text) return row.value;
  }
  return std::nullopt;
}

}  // namespace kvjpx_tool
