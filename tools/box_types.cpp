#include "box_types.h"

#include "kvjpx.h"

namespace kvjpx_tool {
namespace {

constexpr BoxType kTypes[] = {
    {"jP  ", "signature", Role::kStructure},
    {"ftyp", "file type", Role::kStructure},
    {"rreq", "reader requirements", Role::kStructure},
    {"free", "free space", Role::kStructure},
    {"dtbl", "data reference", Role::kStructure},
    {"cref", "cross-reference", Role::kStructure},
    {"flst", "fragment list", Role::kStructure},
    {"chck", "digital signature", Role::kStructure},
    {"jp2h", "JP2 header", Role::kHeader},
    {"ihdr", "image header", Role::kHeader},
    {"bpcc", "bits per component", Role::kHeader},
    {"colr", "colour", Role::kHeader},
    {"pclr", "palette", Role::kHeader},
    {"cmap", "component mapping", Role::kHeader},
    {"cdef", "channel definition", Role::kHeader},
    {"res ", "resolution", Role::kHeader},
    {"resc", "capture resolution", Role::kHeader},
    {"resd", "default display resolution", Role::kHeader},
    {"jpch", "codestream header", Role::kHeader},
    {"jplh", "compositing layer header", Role::kHeader},
    {"cgrp", "colour group", Role::kHeader},
    {"opct", "opacity", Role::kHeader},
    {"creg", "codestream registration", Role::kHeader},
    {"jp2c", "contiguous codestream", Role::kCodestream},
    {"ftbl", "fragment table", Role::kCodestream},
    {"mdat", "media data", Role::kCodestream},
    {"comp", "composition", Role::kComposition},
    {"copt", "composition options", Role::kComposition},
    {"inst", "instruction set", Role::kComposition},
    {"drep", "desired reproductions", Role::kComposition},
    {"gtso", "graphics technology standard output", Role::kComposition},
    {"asoc", "association", Role::kMetadata},
    {"nlst", "number list", Role::kMetadata},
    {"lbl ", "label", Role::kMetadata},
    {"xml ", "XML", Role::kMetadata},
    {"uuid", "UUID", Role::kMetadata},
    {"uinf", "UUID info", Role::kMetadata},
    {"ulst", "UUID list", Role::kMetadata},
    {"url ", "data entry URL", Role::kMetadata},
    {"jp2i", "intellectual property", Role::kMetadata},
    {"mp7b", "MPEG-7 binary", Role::kMetadata},
    {"roid", "region of interest description", Role::kMetadata},
    {"bfil", "binary filter", Role::kMetadata},
};
constexpr BoxType kUnknownType = {"", "", Role::kUnknown};

}  // namespace

const BoxType& box_type(uint32_t code) {
  for (const BoxType& type : kTypes) {
    if (KV_JPX_TYPE(type.code[0], type.code[1], type.code[2], type.code[3]) == code) return type;
  }
  return kUnknownType;
}

}  // namespace kvjpx_tool
