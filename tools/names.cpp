// The table of names.
#include "names.h"

#include <algorithm>
#include <cctype>

#include "kvjpx.h"
#include "value.h"

namespace kvjpx_tool {
namespace {

struct NamedValue {
  uint32_t key;
  uint64_t value;
  const char* name;
};

// Of several names of one value the first is shown.
constexpr NamedValue kValues[] = {
    {JPX_FIELD_IHDR_C, KV_JPX_C_UNCOMPRESSED, "uncompressed"},
    {JPX_FIELD_IHDR_C, KV_JPX_C_MODIFIED_HUFFMAN, "modified Huffman"},
    {JPX_FIELD_IHDR_C, KV_JPX_C_MODIFIED_READ, "modified READ"},
    {JPX_FIELD_IHDR_C, KV_JPX_C_MODIFIED_MODIFIED_READ, "modified modified READ"},
    {JPX_FIELD_IHDR_C, KV_JPX_C_JBIG_BI_LEVEL, "JBIG bi-level"},
    {JPX_FIELD_IHDR_C, KV_JPX_C_JPEG, "JPEG"},
    {JPX_FIELD_IHDR_C, KV_JPX_C_JPEG_LS, "JPEG-LS"},
    {JPX_FIELD_IHDR_C, KV_JPX_C_JPEG2000, "JPEG 2000"},
    {JPX_FIELD_IHDR_C, KV_JPX_C_JBIG2, "JBIG2"},
    {JPX_FIELD_IHDR_C, KV_JPX_C_JBIG, "JBIG"},
    {JPX_FIELD_IHDR_UnkC, 0, "colourspace known"},
    {JPX_FIELD_IHDR_UnkC, 1, "colourspace unknown"},
    {JPX_FIELD_IHDR_IPR, 0, "no rights"},
    {JPX_FIELD_IHDR_IPR, 1, "rights in jp2i"},

    {JPX_FIELD_COLR_METH, KV_JPX_METH_ENUMERATED, "enumerated"},
    {JPX_FIELD_COLR_METH, KV_JPX_METH_RESTRICTED_ICC, "restricted ICC"},
    {JPX_FIELD_COLR_METH, KV_JPX_METH_RESTRICTED_ICC, "ICC"},
    {JPX_FIELD_COLR_METH, KV_JPX_METH_ANY_ICC, "any ICC"},
    {JPX_FIELD_COLR_METH, KV_JPX_METH_VENDOR, "vendor"},
    {JPX_FIELD_COLR_APPROX, 0, "not told"},
    {JPX_FIELD_COLR_APPROX, KV_JPX_APPROX_ACCURATE, "accurate"},
    {JPX_FIELD_COLR_APPROX, KV_JPX_APPROX_EXCEPTIONAL, "exceptional"},
    {JPX_FIELD_COLR_APPROX, KV_JPX_APPROX_REASONABLE, "reasonable"},
    {JPX_FIELD_COLR_APPROX, KV_JPX_APPROX_POOR, "poor"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_BI_LEVEL, "bi-level"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_YCBCR_1, "YCbCr(1)"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_YCBCR_2, "YCbCr(2)"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_YCBCR_3, "YCbCr(3)"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_PHOTO_YCC, "PhotoYCC"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_CMY, "CMY"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_CMYK, "CMYK"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_YCCK, "YCCK"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_CIELAB, "CIELab"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_CIELAB, "Lab"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_BI_LEVEL_2, "bi-level(2)"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_SRGB, "sRGB"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_GREYSCALE, "greyscale"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_GREYSCALE, "grayscale"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_GREYSCALE, "grey"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_GREYSCALE, "gray"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_SYCC, "sYCC"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_CIEJAB, "CIEJab"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_E_SRGB, "e-sRGB"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_ROMM_RGB, "ROMM-RGB"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_YPBPR_1125_60, "YPbPr(1125/60)"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_YPBPR_1250_50, "YPbPr(1250/50)"},
    {JPX_FIELD_COLR_EnumCS, KV_JPX_ENUMCS_E_SYCC, "e-sYCC"},

    {JPX_FIELD_CMAP_MTYP, KV_JPX_MTYP_DIRECT, "direct"},
    {JPX_FIELD_CMAP_MTYP, KV_JPX_MTYP_PALETTE, "palette"},
    {JPX_FIELD_CDEF_Typ, KV_JPX_TYP_COLOUR, "colour"},
    {JPX_FIELD_CDEF_Typ, KV_JPX_TYP_COLOUR, "color"},
    {JPX_FIELD_CDEF_Typ, KV_JPX_TYP_OPACITY, "opacity"},
    {JPX_FIELD_CDEF_Typ, KV_JPX_TYP_PREMULTIPLIED_OPACITY, "premultiplied opacity"},
    {JPX_FIELD_CDEF_Typ, KV_JPX_TYP_UNSPECIFIED, "unspecified"},
    {JPX_FIELD_CDEF_Asoc, KV_JPX_ASOC_WHOLE_IMAGE, "whole image"},
    {JPX_FIELD_CDEF_Asoc, KV_JPX_ASOC_WHOLE_IMAGE, "image"},
    {JPX_FIELD_CDEF_Asoc, KV_JPX_ASOC_NONE, "none"},
    {JPX_FIELD_OPCT_OTyp, KV_JPX_OTYP_OPACITY, "opacity"},
    {JPX_FIELD_OPCT_OTyp, KV_JPX_OTYP_PREMULTIPLIED_OPACITY, "premultiplied opacity"},
    {JPX_FIELD_OPCT_OTyp, KV_JPX_OTYP_CHROMA_KEY, "chroma key"},
    {JPX_FIELD_COPT_LOOP, KV_JPX_LOOP_FOREVER, "forever"},
    {JPX_FIELD_FLST_DR, KV_JPX_DR_THIS_FILE, "this file"},
    {JPX_FIELD_ROID_RTYP, KV_JPX_RTYP_RECTANGLE, "rectangle"},
    {JPX_FIELD_ROID_RTYP, KV_JPX_RTYP_ELLIPSE, "ellipse"},

    {JPX_FIELD_FTYP_BR, KV_JPX_TYPE('j', 'p', '2', ' '), "JP2"},
    {JPX_FIELD_FTYP_BR, KV_JPX_TYPE('j', 'p', 'x', ' '), "JPX"},
    {JPX_FIELD_FTYP_BR, KV_JPX_TYPE('j', 'p', 'x', 'b'), "JPX baseline"},
    {JPX_FIELD_FTYP_BR, KV_JPX_TYPE('j', 'p', 'm', ' '), "JPM"},
    {JPX_FIELD_FTYP_BR, KV_JPX_TYPE('m', 'j', 'p', '2'), "Motion JPEG 2000"},
    {JPX_FIELD_FTYP_BR, KV_JPX_TYPE('m', 'j', '2', 's'), "Motion JPEG 2000 simple profile"},
    {JPX_FIELD_FTYP_BR, KV_JPX_TYPE('j', 'p', 'h', ' '), "JPH"},

    // ISO/IEC 15444-2, M.11: standard features.
    {JPX_FIELD_RREQ_SF, 1, "codestreams without extensions"},
    {JPX_FIELD_RREQ_SF, 2, "several compositing layers"},
    {JPX_FIELD_RREQ_SF, 3, "codestreams of profile 0"},
    {JPX_FIELD_RREQ_SF, 4, "codestreams of profile 1"},
    {JPX_FIELD_RREQ_SF, 5, "codestreams of ISO/IEC 15444-1"},
    {JPX_FIELD_RREQ_SF, 6, "codestreams of ISO/IEC 15444-2"},
    {JPX_FIELD_RREQ_SF, 7, "JPEG codestreams"},
    {JPX_FIELD_RREQ_SF, 9, "opacity channel"},
    {JPX_FIELD_RREQ_SF, 10, "premultiplied opacity channel"},
    {JPX_FIELD_RREQ_SF, 11, "opacity by chroma key"},
    {JPX_FIELD_RREQ_SF, 13, "fragments in this file, in order"},
    {JPX_FIELD_RREQ_SF, 14, "fragments in this file, out of order"},
    {JPX_FIELD_RREQ_SF, 15, "fragments in other local files"},
    {JPX_FIELD_RREQ_SF, 16, "fragments in the network"},
    {JPX_FIELD_RREQ_SF, 17, "layers must be composed"},
    {JPX_FIELD_RREQ_SF, 21, "layers of several codestreams"},
    {JPX_FIELD_RREQ_SF, 23, "layers of different colourspaces are combined"},
    {JPX_FIELD_RREQ_SF, 26, "first layer does not cover the result"},
    {JPX_FIELD_RREQ_SF, 28, "layers are used again"},
    {JPX_FIELD_RREQ_SF, 30, "layers that do not persist"},
    {JPX_FIELD_RREQ_SF, 32, "scaling within a layer"},
    {JPX_FIELD_RREQ_SF, 33, "scaling between layers"},
    {JPX_FIELD_RREQ_SF, 34, "regions of interest"},
    {JPX_FIELD_RREQ_SF, 35, "intellectual property rights"},
    {JPX_FIELD_RREQ_SF, 36, "content metadata"},
    {JPX_FIELD_RREQ_SF, 37, "history metadata"},
    {JPX_FIELD_RREQ_SF, 38, "creation metadata"},
    {JPX_FIELD_RREQ_SF, 39, "digital signatures"},
    {JPX_FIELD_RREQ_SF, 40, "checksums"},
    {JPX_FIELD_RREQ_SF, 41, "graphic arts reproduction"},
    {JPX_FIELD_RREQ_SF, 42, "palette"},
    {JPX_FIELD_RREQ_SF, 43, "restricted ICC"},
    {JPX_FIELD_RREQ_SF, 44, "any ICC"},
    {JPX_FIELD_RREQ_SF, 45, "sRGB"},
    {JPX_FIELD_RREQ_SF, 46, "greyscale"},
    {JPX_FIELD_RREQ_SF, 47, "bi-level"},
    {JPX_FIELD_RREQ_SF, 48, "bi-level(2)"},
    {JPX_FIELD_RREQ_SF, 49, "YCbCr(1)"},
    {JPX_FIELD_RREQ_SF, 50, "YCbCr(2)"},
    {JPX_FIELD_RREQ_SF, 51, "YCbCr(3)"},
    {JPX_FIELD_RREQ_SF, 52, "PhotoYCC"},
    {JPX_FIELD_RREQ_SF, 53, "YCCK"},
    {JPX_FIELD_RREQ_SF, 54, "CMY"},
    {JPX_FIELD_RREQ_SF, 55, "CMYK"},
    {JPX_FIELD_RREQ_SF, 56, "CIELab with default parameters"},
    {JPX_FIELD_RREQ_SF, 57, "CIELab with parameters"},
    {JPX_FIELD_RREQ_SF, 58, "CIEJab with default parameters"},
    {JPX_FIELD_RREQ_SF, 59, "CIEJab with parameters"},
    {JPX_FIELD_RREQ_SF, 60, "e-sRGB"},
    {JPX_FIELD_RREQ_SF, 61, "ROMM-RGB"},
    {JPX_FIELD_RREQ_SF, 62, "samples that are not square"},
    {JPX_FIELD_RREQ_SF, 63, "labels of layers"},
    {JPX_FIELD_RREQ_SF, 64, "labels of codestreams"},
    {JPX_FIELD_RREQ_SF, 65, "several colourspaces"},
    {JPX_FIELD_RREQ_SF, 66, "layers with different metadata"},
    {JPX_FIELD_RREQ_SF, 67, "GML"},
};

struct NamedUuid {
  constexpr NamedUuid(std::string_view text, std::string_view shown) : name(shown) {
    size_t digits = 0;
    for (const char c : text) {
      if (c == '-') continue;
      char& byte = bytes[digits++ / 2];
      byte = static_cast<char>(byte << 4 | (c <= '9' ? c - '0' : c - 'a' + 10));
    }
  }
  constexpr std::string_view uuid() const { return {bytes, sizeof bytes}; }

  char bytes[16] = {};
  std::string_view name;
};

// The first UUID of a name is the one that is written; writers of different age use others, too.
constexpr NamedUuid kUuids[] = {
    {"be7acfcb-97a9-42e8-9c71-999491e3afac", "XMP"},
    {"4a706754-6966-6645-7869-662d3e4a5032", "Exif"},
    {"0537cdab-9d0c-4431-a72a-fa561f2a113e", "Exif"},
    {"33c7a4d2-b81d-4723-a0ba-f1a3e097ad38", "IPTC"},
    {"09a14e97-c0b4-42e0-bebf-36df6f0ce36f", "IPTC"},
    {"b14bf8bd-083d-4b43-a5ae-8cd7d5a6ce03", "GeoTIFF"},
    {"96a9f1f1-dc98-402d-a7ae-d68e34451809", "world file"},
    {"2c4c0100-8504-40b9-a03e-562148d6dfeb", "Photoshop resources"},
    {"d8fec3d6-1b0e-483c-9297-5828877ec481", "C2PA"},
};

std::string depth_name(uint64_t value) {
  return std::to_string((value & 0x7F) + 1) + " bits, " +
         (value & KV_JPX_BPC_SIGNED ? "signed" : "unsigned");
}

std::string number_list_name(uint64_t value) {
  const std::string number = std::to_string(value & 0xFFFFFF);
  if (value == 0) return "rendered result";
  if (value >> 24 == KV_JPX_AN_CODESTREAM >> 24) return "codestream " + number;
  return value >> 24 == KV_JPX_AN_LAYER >> 24 ? "compositing layer " + number : "";
}

// Fields whose values are named by the table's rows of another.
uint32_t table_key(uint32_t key) { return key == JPX_FIELD_FTYP_CL ? JPX_FIELD_FTYP_BR : key; }

// A name without what people write in different ways.
std::string plain(std::string_view name) {
  std::string result;
  for (const char c : name) {
    const auto character = static_cast<unsigned char>(c);
    if (std::isalnum(character) != 0) result += static_cast<char>(std::tolower(character));
    if (character >= 0x80) result += c;
  }
  return result;
}

}  // namespace

std::string value_name(uint32_t key, uint64_t value) {
  if (key == JPX_FIELD_IHDR_BPC && value == KV_JPX_BPC_VARIES) return "in bpcc";
  if (key == JPX_FIELD_IHDR_BPC || key == JPX_FIELD_BPCC_BPC || key == JPX_FIELD_PCLR_B) {
    return depth_name(value);
  }
  if (key == JPX_FIELD_NLST_AN) return number_list_name(value);
  for (const NamedValue& row : kValues) {
    if (row.key == table_key(key) && row.value == value) return row.name;
  }
  return "";
}

std::optional<uint64_t> value_of_name(uint32_t key, std::string_view name) {
  const std::string wanted = plain(name);
  for (const NamedValue& row : kValues) {
    if (row.key == table_key(key) && plain(row.name) == wanted) return row.value;
  }
  return std::nullopt;
}

std::vector<std::string_view> value_names(uint32_t key) {
  std::vector<std::string_view> names;
  for (const NamedValue& row : kValues) {
    if (row.key == table_key(key)) names.push_back(row.name);
  }
  return names;
}

bool is_code_field(uint32_t key) {
  return key == JPX_FIELD_FTYP_BR || key == JPX_FIELD_FTYP_CL || key == JPX_FIELD_CREF_RTYP;
}

std::string code_text(uint32_t code) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    const auto character = static_cast<char>(code >> shift);
    if (character >= ' ' && character <= '~' && character != '%') {
      text += character;
    } else {
      text += "%" + to_hex(std::string_view(&character, 1));
    }
  }
  return text;
}

std::string_view uuid_name(std::string_view uuid) {
  for (const NamedUuid& row : kUuids) {
    if (row.uuid() == uuid) return row.name;
  }
  return {};
}

std::string uuid_of_name(std::string_view name) {
  for (const NamedUuid& row : kUuids) {
    if (plain(row.name) == plain(name)) return std::string(row.uuid());
  }
  return "";
}

std::string uuid_text(std::string_view uuid) {
  std::string text = to_hex(uuid);
  for (const size_t place : {20, 16, 12, 8}) {
    if (place < text.size()) text.insert(place, 1, '-');
  }
  return text;
}

}  // namespace kvjpx_tool
