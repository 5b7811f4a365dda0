// The rules, in the order in which they look. Identifiers are for good: scripts ignore or wait for
// them.
#include <iterator>

#include "rules.h"

namespace kvjpx_check {
namespace {

using kvjpx_codestream::ProblemKind;

struct Row {
  const char* id;
  Severity severity;
  unsigned profiles;
  const char* clause;
  const char* text;
  uint32_t box_type;
  void (*look)(Check&);
};

constexpr Severity kError = Severity::kError;
constexpr Severity kWarning = Severity::kWarning;
constexpr Severity kNote = Severity::kNote;

// clang-format off
constexpr Row kRows[] = {
    // Order at the top level
    {"JP2-SIGNATURE-FIRST", kError, kEvery, "15444-1, I.5.1", "the first box is not the signature", kTheFile, signature_first},
    {"JP2-SIGNATURE-BYTES", kError, kEvery, "15444-1, I.5.1", "the signature has other bytes", code("jP  "), signature_bytes},
    {"JP2-SIGNATURE-LENGTH", kError, kEvery, "15444-1, I.5.1", "the signature box does not begin with its fixed length", code("jP  "), signature_length},
    {"JP2-FTYP-SECOND", kError, kEvery, "15444-1, I.5.2", "the second box is not the file type", kTheFile, ftyp_second},
    {"JP2-FTYP-BRAND", kError, kAny, "15444-1, I.5.2", "the brand is not that of a standard", code("ftyp"), ftyp_brand},
    {"JP2-FTYP-VERSION", kError, kAny, "15444-1, I.5.2", "the minor version is not 0", code("ftyp"), ftyp_version},
    {"JP2-FTYP-LIST", kError, kJp2, "15444-1, I.5.2", "the compatibility list lacks jp2", code("ftyp"), ftyp_jp2},
    {"JPX-FTYP-LIST", kError, kJpx, "15444-2, M.2.1", "the compatibility list has neither jpx nor jpxb", code("ftyp"), ftyp_jpx},
    {"JPH-FTYP-LIST", kError, kJph, "15444-15, Annex D", "the compatibility list lacks jph", code("ftyp"), ftyp_jph},
    {"JP2-FTYP-OTHER", kNote, kOther, "15444-1, I.5.2", "the file is of another part of the standard: only its boxes are checked", code("ftyp"), ftyp_other},
    {"JP2-HEADER-MISSING", kError, kAny, "15444-1, I.5.3", "there is no JP2 header box", kTheFile, header_missing},
    {"JP2-HEADER-LATE", kError, kAny, "15444-1, I.5.3", "the JP2 header box stands behind a codestream", kTheFile, header_late},
    {"JP2-CODESTREAM-MISSING", kError, kAny, "15444-1, I.5.4", "there is no codestream", kTheFile, codestream_missing},
    {"JP2-CODESTREAM-MORE", kNote, kJp2, "15444-1, I.5.4", "readers show the first of several codestreams only", kTheFile, codestream_more},
    {"JP2-TOP-REPEATED", kError, kAny, "15444-1, I.5", "a box that a file has at most once is there again", kTheFile, too_many_at_top},
    {"JP2-BOX-REPEATED", kError, kAny, "15444-1, I.5.3", "a box that its container has at most once is there again", kEveryBox, too_many_in_container},
    // ihdr
    {"JP2-IHDR-MISSING", kError, kJp2 | kJph, "15444-1, I.5.3.1", "the JP2 header has no image header", code("jp2h"), ihdr_missing},
    {"JPX-IHDR-MISSING", kError, kJpx, "15444-2, M.11.6", "a codestream has no image header", kTheFile, ihdr_missing_jpx},
    {"JP2-IHDR-FIRST", kError, kAny, "15444-1, I.5.3.1", "the image header is not the first box in the JP2 header", code("jp2h"), ihdr_first},
    {"JP2-IHDR-SIZE", kError, kAny, "15444-1, I.5.3.1", "the height or width is 0", code("ihdr"), ihdr_size},
    {"JP2-IHDR-NC", kError, kAny, "15444-1, I.5.3.1", "the number of components is out of range", code("ihdr"), ihdr_components},
    {"JP2-IHDR-BPC", kError, kAny, "15444-1, I.5.3.1", "the bit depth is reserved", code("ihdr"), ihdr_depth},
    {"JP2-IHDR-C", kError, kJp2 | kJph, "15444-1, I.5.3.1", "the compression type is not JPEG 2000", code("ihdr"), ihdr_compression_jp2},
    {"JPX-IHDR-C", kError, kJpx, "15444-2, M.11.5", "the compression type is reserved", code("ihdr"), ihdr_compression_jpx},
    {"JP2-IHDR-UNKC", kError, kAny, "15444-1, I.5.3.1", "UnkC is reserved", code("ihdr"), ihdr_unknown_colour},
    {"JP2-IHDR-IPR", kError, kAny, "15444-1, I.5.3.1", "IPR is reserved", code("ihdr"), ihdr_ipr},
    {"JP2-IPR-BOX", kError, kAny, "15444-1, I.6", "IPR does not tell whether there is a box of rights", code("ihdr"), ipr_flag},
    {"JP2-SIZ-SIZE", kError, kAny, "15444-1, I.5.3.1", "the size of the image differs from the codestream's", code("ihdr"), ihdr_size_of_codestream},
    {"JP2-SIZ-NC", kError, kAny, "15444-1, I.5.3.1", "the number of components differs from the codestream's", code("ihdr"), ihdr_components_of_codestream},
    {"JP2-SIZ-BPC", kError, kAny, "15444-1, I.5.3.1", "the bit depth differs from the codestream's", code("ihdr"), ihdr_depth_of_codestream},
    // bpcc
    {"JP2-BPCC-MISSING", kError, kAny, "15444-1, I.5.3.2", "depths differ, but no box has them", code("ihdr"), bpcc_missing},
    {"JP2-BPCC-NEEDLESS", kError, kAny, "15444-1, I.5.3.2", "the image header has the depth already", code("bpcc"), bpcc_needless},
    {"JP2-BPCC-COUNT", kError, kAny, "15444-1, I.5.3.2", "there is not one depth for each component", code("bpcc"), bpcc_count},
    {"JP2-BPCC-DEPTH", kError, kAny, "15444-1, I.5.3.2", "a bit depth is reserved", code("bpcc"), bpcc_depth},
    {"JP2-SIZ-BPCC", kError, kAny, "15444-1, I.5.3.2", "a bit depth differs from the codestream's", code("bpcc"), bpcc_of_codestream},
    // colr
    {"JP2-COLR-MISSING", kError, kJp2 | kJph, "15444-1, I.5.3.3", "the JP2 header has no colr box", code("jp2h"), colr_missing},
    {"JP2-COLR-SCATTERED", kError, kAny, "15444-1, I.5.3.3", "other boxes stand between the colr boxes", code("jp2h"), colr_scattered},
    {"JP2-COLR-METH", kError, kJp2, "15444-1, I.5.3.3", "the method is reserved", code("colr"), colr_method_jp2},
    {"JPX-COLR-METH", kError, kJpx, "15444-2, M.11.7.2", "the method is reserved", code("colr"), colr_method_jpx},
    {"JP2-COLR-PREC", kNote, kJp2, "15444-1, I.5.3.3", "the precedence is not 0, which readers ignore", code("colr"), colr_precedence},
    {"JP2-COLR-APPROX", kError, kJp2, "15444-1, I.5.3.3", "the approximation is reserved", code("colr"), colr_approximation},
    {"JPX-COLR-APPROX", kError, kJpx, "15444-2, M.11.7.2", "the approximation is reserved", code("colr"), colr_approximation},
    {"JP2-COLR-ENUMCS", kError, kJp2, "15444-1, I.5.3.3", "the enumerated colourspace is none of JP2's", code("colr"), colr_space_jp2},
    {"JPX-COLR-ENUMCS", kError, kJpx, "15444-2, M.11.7.3", "the enumerated colourspace is reserved", code("colr"), colr_space_jpx},
    {"JP2-COLR-CHANNELS", kError, kAny, "15444-1, I.5.3.3", "the image has fewer channels than the colourspace has colours", code("colr"), colr_channels},
    {"JP2-CDEF-MISSING", kWarning, kAny, "15444-1, I.5.3.6", "no box says what the channels beside the colours are", code("colr"), colr_extra_channels},
    {"JP2-ICC-SHORT", kError, kAny, "15444-1, I.5.3.3", "the ICC profile is shorter than its header and tag count", code("colr"), icc_short},
    {"JP2-ICC-SIZE", kError, kAny, "15444-1, I.5.3.3", "the ICC profile tells another length than it has", code("colr"), icc_size},
    {"JP2-ICC-SIGNATURE", kError, kAny, "15444-1, I.5.3.3", "the ICC profile lacks the signature of profiles", code("colr"), icc_signature},
    {"JP2-ICC-CLASS", kError, kAny, "15444-1, I.5.3.3", "a restricted ICC profile is of another class than input or display", code("colr"), icc_class},
    {"JP2-ICC-SPACE", kError, kAny, "15444-1, I.5.3.3", "a restricted ICC profile is neither grey nor RGB", code("colr"), icc_space},
    {"JP2-ICC-PCS", kError, kAny, "15444-1, I.5.3.3", "the connection space of a restricted ICC profile is not XYZ", code("colr"), icc_connection},
    {"JP2-ICC-TAGS", kError, kAny, "15444-1, I.5.3.3", "a restricted ICC profile lacks a tag of its matrix or curves", code("colr"), icc_tags},
    {"JP2-ICC-LUT", kWarning, kAny, "15444-1, I.5.3.3", "a restricted ICC profile also has a look-up table", code("colr"), icc_lookup},
    // pclr, cmap, cdef, res
    {"JP2-PCLR-NE", kError, kAny, "15444-1, I.5.3.4", "the number of entries is out of range", code("pclr"), pclr_entries},
    {"JP2-PCLR-NPC", kError, kAny, "15444-1, I.5.3.4", "there are no columns", code("pclr"), pclr_columns},
    {"JP2-PCLR-DEPTH", kError, kAny, "15444-1, I.5.3.4", "the bit depth of a column is reserved", code("pclr"), pclr_depth},
    {"JP2-PCLR-ALONE", kError, kAny, "15444-1, I.5.3.5", "a palette has no component mapping", code("pclr"), pclr_without_cmap},
    {"JP2-CMAP-ALONE", kError, kAny, "15444-1, I.5.3.5", "a component mapping has no palette", code("cmap"), cmap_without_pclr},
    {"JP2-CMAP-CMP", kError, kAny, "15444-1, I.5.3.5", "a channel is made from a component that there is not", code("cmap"), cmap_component},
    {"JP2-CMAP-MTYP", kError, kAny, "15444-1, I.5.3.5", "the type of mapping is reserved", code("cmap"), cmap_type},
    {"JP2-CMAP-PCOL", kError, kAny, "15444-1, I.5.3.5", "a channel is made from a column that there is not", code("cmap"), cmap_column},
    {"JP2-CDEF-N", kError, kAny, "15444-1, I.5.3.6", "no channel is defined", code("cdef"), cdef_empty},
    {"JP2-CDEF-CN", kError, kAny, "15444-1, I.5.3.6", "a channel is defined that there is not", code("cdef"), cdef_channel},
    {"JP2-CDEF-TWICE", kError, kAny, "15444-1, I.5.3.6", "a channel is defined twice", code("cdef"), cdef_twice},
    {"JP2-CDEF-TYP", kError, kAny, "15444-1, I.5.3.6", "the type of a channel is reserved", code("cdef"), cdef_type},
    {"JP2-CDEF-ASOC", kError, kAny, "15444-1, I.5.3.6", "a channel belongs to a colour that there is not", code("cdef"), cdef_association},
    {"JP2-CDEF-PAIR", kError, kAny, "15444-1, I.5.3.6", "two channels have the same type and association", code("cdef"), cdef_pair},
    {"JP2-CDEF-FEW", kError, kAny, "15444-1, I.5.3.6", "not every channel is defined", code("cdef"), cdef_incomplete},
    {"JP2-RES-EMPTY", kError, kAny, "15444-1, I.5.3.7", "there is no resolution in the box for it", code("res "), res_empty},
    {"JP2-RESC-ZERO", kError, kAny, "15444-1, I.5.3.7.1", "a numerator or denominator is 0", code("resc"), res_zero},
    {"JP2-RESD-ZERO", kError, kAny, "15444-1, I.5.3.7.2", "a numerator or denominator is 0", code("resd"), res_zero},
    // Metadata
    {"JP2-XML-FORM", kError, kAny, "15444-1, I.7.1", "the XML is not well formed", code("xml "), xml_form},
    {"JP2-XML-ENCODING", kWarning, kAny, "15444-1, I.7.1", "few readers know the encoding", code("xml "), xml_encoding},
    {"JP2-UINF-ULST", kError, kAny, "15444-1, I.7.3", "there is not one UUID list", code("uinf"), uinf_list},
    {"JP2-UINF-URL", kError, kAny, "15444-1, I.7.3", "there is not one URL", code("uinf"), uinf_url},
    {"JP2-URL-VERS", kError, kAny, "15444-1, I.7.3.2", "the version is not 0", code("url "), url_version},
    {"JP2-URL-FLAG", kError, kAny, "15444-1, I.7.3.2", "the flags are not 0", code("url "), url_flags},
    {"JP2-URL-END", kError, kAny, "15444-1, I.7.3.2", "the URL is not terminated", code("url "), url_end},
    {"JP2-URL-UTF8", kError, kAny, "15444-1, I.7.3.2", "the URL is not UTF-8", code("url "), url_utf8},
    {"JPX-LBL-UTF8", kError, kJpx, "15444-2, M.11.13", "the label is not UTF-8", code("lbl "), label_utf8},
    {"JPX-LBL-CHARACTER", kError, kJpx, "15444-2, M.11.13", "a character is not allowed in labels", code("lbl "), label_characters},
    // JPX
    {"JPX-RREQ-MISSING", kWarning, kJpx, "15444-2, M.11.1", "there is no reader requirements box", kTheFile, rreq_missing},
    {"JPX-RREQ-ORDER", kError, kJpx, "15444-2, M.11.1", "the reader requirements do not follow the file type", kTheFile, rreq_second},
    {"JPX-RREQ-ML", kError, kJpx, "15444-2, M.11.1", "the length of masks is reserved", code("rreq"), rreq_mask_length},
    {"JPX-RREQ-MASK", kNote, kJpx, "15444-2, M.11.1", "a mask asks for features that are not listed", code("rreq"), rreq_masks},
    {"JPX-RREQ-LAYERS", kWarning, kJpx, "15444-2, M.11.1", "the requirements do not tell of layers", code("rreq"), rreq_layers},
    {"JPX-RREQ-FRAGMENTS", kWarning, kJpx, "15444-2, M.11.1", "the requirements do not tell of fragments", code("rreq"), rreq_fragments},
    {"JPX-RREQ-PALETTE", kWarning, kJpx, "15444-2, M.11.1", "the requirements do not tell of a palette", code("rreq"), rreq_palette},
    {"JPX-RREQ-OPACITY", kWarning, kJpx, "15444-2, M.11.1", "the requirements do not tell of opacity", code("rreq"), rreq_opacity},
    {"JPX-RREQ-ICC", kWarning, kJpx, "15444-2, M.11.1", "the requirements do not tell of an ICC profile", code("rreq"), rreq_any_icc},
    {"JPX-RREQ-COMPOSITION", kWarning, kJpx, "15444-2, M.11.1", "the requirements do not tell of a composition", code("rreq"), rreq_composition},
    {"JPX-RREQ-EXTENSIONS", kWarning, kJpx, "15444-2, M.11.1", "the requirements do not tell of a codestream with extensions", code("rreq"), rreq_extensions},
    {"JPX-JPCH-COUNT", kWarning, kJpx, "15444-2, M.11.6", "there are more codestream headers than codestreams", kTheFile, codestream_headers},
    {"JPX-JPLH-COUNT", kError, kJpx, "15444-2, M.11.7.7", "there are more layers than codestreams, and no codestream registration", kTheFile, layer_headers},
    {"JPX-JPLH-COLOUR", kError, kJpx, "15444-2, M.11.7.1", "a layer has no colr box", kTheFile, layer_colour},
    {"JPX-CREG-ALL", kError, kJpx, "15444-2, M.11.7.7", "some layers have a codestream registration, others have none", kTheFile, creg_all},
    {"JPX-CREG-GRID", kError, kJpx, "15444-2, M.11.7.7", "the registration grid's unit is 0", code("creg"), creg_grid},
    {"JPX-CREG-CDN", kError, kJpx, "15444-2, M.11.7.7", "a layer has a codestream that there is not", code("creg"), creg_codestream},
    {"JPX-CREG-DISTANCE", kError, kJpx, "15444-2, M.11.7.7", "samples have no distance", code("creg"), creg_distance},
    {"JPX-CREG-OFFSET", kError, kJpx, "15444-2, M.11.7.7", "an offset reaches the registration grid's unit", code("creg"), creg_offset},
    {"JPX-CGRP-EMPTY", kError, kJpx, "15444-2, M.11.7.1", "a colour group has no colr box", code("cgrp"), cgrp_empty},
    {"JPX-OPCT-OTYP", kError, kJpx, "15444-2, M.11.7.6", "the type of opacity is reserved", code("opct"), opct_type},
    {"JPX-OPCT-CDEF", kError, kJpx, "15444-2, M.11.7.6", "a layer has both an opacity and a channel definition box", code("opct"), opct_and_cdef},
    {"JPX-COMP-COPT", kError, kJpx, "15444-2, M.11.10", "the first box of a composition is not its options", code("comp"), comp_copt},
    {"JPX-COMP-INST", kError, kJpx, "15444-2, M.11.10", "a composition has no instructions", code("comp"), comp_inst},
    {"JPX-COPT-SIZE", kError, kJpx, "15444-2, M.11.10.1", "the rendered result has no height or width", code("copt"), copt_size},
    {"JPX-INST-ITYP", kError, kJpx, "15444-2, M.11.10.2", "the type of instructions has reserved bits set", code("inst"), inst_type},
    {"JPX-ASOC-FEW", kWarning, kJpx, "15444-2, M.11.11", "there is nothing to associate", code("asoc"), asoc_few},
    {"JPX-NLST-AN", kError, kJpx, "15444-2, M.11.12", "a number is reserved", code("nlst"), nlst_reserved},
    {"JPX-NLST-TARGET", kError, kJpx, "15444-2, M.11.12", "there is no such codestream or layer", code("nlst"), nlst_target},
    {"JPX-FTBL-FLST", kError, kJpx, "15444-2, M.11.3", "there is not one fragment list", code("ftbl"), ftbl_list},
    {"JPX-CREF-FLST", kError, kJpx, "15444-2, M.11.4", "there is not one fragment list", code("cref"), cref_list},
    {"JPX-CREF-RTYP", kError, kJpx, "15444-2, M.11.4", "a reference in a colour group is to another box than colr", code("cref"), cref_type},
    {"JPX-FLST-NF", kError, kJpx, "15444-2, M.11.3.1", "there are no fragments", code("flst"), flst_empty},
    {"JPX-FLST-DR", kError, kJpx, "15444-2, M.11.3.1", "a fragment is in a file that the data references lack", code("flst"), flst_reference},
    {"JPX-FLST-RANGE", kError, kJpx, "15444-2, M.11.3.1", "a fragment reaches past the end of the file", code("flst"), flst_range},
    {"JPX-FLST-LEN", kError, kJpx, "15444-2, M.11.3.1", "a fragment is empty", code("flst"), flst_length},
    {"JPX-DTBL-NDR", kError, kJpx, "15444-2, M.11.2", "there is another number of URLs than told", code("dtbl"), dtbl_count},
    {"JP2-CODESTREAM-PART1", kError, kJp2, "15444-1, I.5.4", "the codestream is of another part of the standard", kTheFile, codestream_of_part_1},
    {"JP2-CODESTREAM-HT", kWarning, kJp2, "15444-15, A.3", "the codestream is of high throughput, which readers of JP2 need not know", kTheFile, codestream_high_throughput},
};

struct ProblemRow {
  ProblemKind kind;
  const char* id;
  Severity severity;
  const char* clause;
  void (*look)(Check&);
};
// But for kUnreadable, which bytes in memory never are.
#define KVJPX_PROBLEM(kind, id, severity, clause) \
    {ProblemKind::kind, id, severity, clause, problem<ProblemKind::kind>}
constexpr ProblemRow kProblemRows[] = {
    KVJPX_PROBLEM(kNoSoc, "J2K-SOC", kError, "15444-1, A.4.1"),
    KVJPX_PROBLEM(kSizNotFirst, "J2K-SIZ-ORDER", kError, "15444-1, A.5.1"),
    KVJPX_PROBLEM(kNotAMarker, "J2K-NOT-A-MARKER", kError, "15444-1, A.3"),
    KVJPX_PROBLEM(kUnknownMarker, "J2K-UNKNOWN-MARKER", kWarning, "15444-1, A.1"),
    KVJPX_PROBLEM(kMisplaced, "J2K-MISPLACED", kError, "15444-1, A.3"),
    KVJPX_PROBLEM(kDuplicate, "J2K-DUPLICATE", kError, "15444-1, A.3"),
    KVJPX_PROBLEM(kDuplicateIndex, "J2K-DUPLICATE-INDEX", kError, "15444-1, A.7"),
    KVJPX_PROBLEM(kMissingIndex, "J2K-MISSING-INDEX", kWarning, "15444-1, A.7"),
    KVJPX_PROBLEM(kMissing, "J2K-MISSING", kError, "15444-1, A.3"),
    KVJPX_PROBLEM(kExtension, "J2K-EXTENSION", kError, "15444-2, A.2.1"),
    KVJPX_PROBLEM(kLengthTooShort, "J2K-LENGTH-SHORT", kError, "15444-1, A.1.4"),
    KVJPX_PROBLEM(kLengthTooLong, "J2K-LENGTH-LONG", kError, "15444-1, A.1.4"),
    KVJPX_PROBLEM(kSegmentPastEnd, "J2K-SEGMENT-PAST-END", kError, "15444-1, A.1.4"),
    KVJPX_PROBLEM(kProfile, "J2K-PROFILE", kError, "15444-1, A.5.1"),
    KVJPX_PROBLEM(kImageArea, "J2K-IMAGE-AREA", kError, "15444-1, A.5.1"),
    KVJPX_PROBLEM(kTileSize, "J2K-TILE-SIZE", kError, "15444-1, A.5.1"),
    KVJPX_PROBLEM(kTileOffset, "J2K-TILE-OFFSET", kError, "15444-1, B.3"),
    KVJPX_PROBLEM(kTooManyTiles, "J2K-TILE-COUNT", kError, "15444-1, A.4.2"),
    KVJPX_PROBLEM(kComponentCount, "J2K-COMPONENT-COUNT", kError, "15444-1, A.5.1"),
    KVJPX_PROBLEM(kDepth, "J2K-DEPTH", kError, "15444-1, A.5.1"),
    KVJPX_PROBLEM(kSubsampling, "J2K-SUBSAMPLING", kError, "15444-1, A.5.1"),
    KVJPX_PROBLEM(kCodingStyle, "J2K-CODING-STYLE", kError, "15444-1, A.6.1"),
    KVJPX_PROBLEM(kProgression, "J2K-PROGRESSION", kError, "15444-1, A.6.1"),
    KVJPX_PROBLEM(kLayers, "J2K-LAYERS", kError, "15444-1, A.6.1"),
    KVJPX_PROBLEM(kColourTransform, "J2K-COLOUR-TRANSFORM", kError, "15444-1, A.6.1"),
    KVJPX_PROBLEM(kTransformComponents, "J2K-COLOUR-TRANSFORM-COMPONENTS", kError, "15444-1, G.1"),
    KVJPX_PROBLEM(kLevels, "J2K-LEVELS", kError, "15444-1, A.6.1"),
    KVJPX_PROBLEM(kCodeBlockSize, "J2K-CODE-BLOCK-SIZE", kError, "15444-1, A.6.1"),
    KVJPX_PROBLEM(kCodeBlockStyle, "J2K-CODE-BLOCK-STYLE", kError, "15444-1, A.6.1"),
    KVJPX_PROBLEM(kTransformation, "J2K-TRANSFORMATION", kError, "15444-1, A.6.1"),
    KVJPX_PROBLEM(kPrecinctSize, "J2K-PRECINCT-SIZE", kError, "15444-1, A.6.1"),
    KVJPX_PROBLEM(kComponentIndex, "J2K-COMPONENT-INDEX", kError, "15444-1, A.6"),
    KVJPX_PROBLEM(kQuantization, "J2K-QUANTIZATION-STYLE", kError, "15444-1, A.6.4"),
    KVJPX_PROBLEM(kStepCount, "J2K-STEP-COUNT", kError, "15444-1, A.6.4"),
    KVJPX_PROBLEM(kRegionStyle, "J2K-REGION-STYLE", kError, "15444-1, A.6.3"),
    KVJPX_PROBLEM(kPocResolution, "J2K-POC-RESOLUTION", kError, "15444-1, A.6.6"),
    KVJPX_PROBLEM(kPocComponent, "J2K-POC-COMPONENT", kError, "15444-1, A.6.6"),
    KVJPX_PROBLEM(kPocLayer, "J2K-POC-LAYER", kError, "15444-1, A.6.6"),
    KVJPX_PROBLEM(kCommentUse, "J2K-COMMENT-USE", kError, "15444-1, A.9.2"),
    KVJPX_PROBLEM(kCapMissing, "J2K-CAP-MISSING", kError, "15444-1, A.5.2"),
    KVJPX_PROBLEM(kCapNotAnnounced, "J2K-CAP-NOT-ANNOUNCED", kError, "15444-1, A.5.1"),
    KVJPX_PROBLEM(kHtCapability, "J2K-HT-CAPABILITY", kError, "15444-15, A.3"),
    KVJPX_PROBLEM(kTileIndex, "J2K-TILE-INDEX", kError, "15444-1, A.4.2"),
    KVJPX_PROBLEM(kTilePartOrder, "J2K-TILE-PART-ORDER", kError, "15444-1, A.4.2"),
    KVJPX_PROBLEM(kTilePartCount, "J2K-TILE-PART-COUNT", kError, "15444-1, A.4.2"),
    KVJPX_PROBLEM(kPsotTooSmall, "J2K-PSOT-SMALL", kError, "15444-1, A.4.2"),
    KVJPX_PROBLEM(kPsotTooLarge, "J2K-PSOT-LARGE", kError, "15444-1, A.4.2"),
    KVJPX_PROBLEM(kPsotPastEnd, "J2K-PSOT-PAST-END", kError, "15444-1, A.4.2"),
    KVJPX_PROBLEM(kPsotZero, "J2K-PSOT-ZERO", kError, "15444-1, A.4.2"),
    KVJPX_PROBLEM(kStrayBytes, "J2K-STRAY-BYTES", kError, "15444-1, A.4.2"),
    KVJPX_PROBLEM(kMissingTiles, "J2K-MISSING-TILES", kError, "15444-1, A.3"),
    KVJPX_PROBLEM(kMissingTileParts, "J2K-MISSING-TILE-PARTS", kError, "15444-1, A.4.2"),
    KVJPX_PROBLEM(kNoEoc, "J2K-NO-EOC", kError, "15444-1, A.4.4"),
    KVJPX_PROBLEM(kBehindEoc, "J2K-BEHIND-EOC", kError, "15444-1, A.4.4"),
    KVJPX_PROBLEM(kTlmStyle, "J2K-TLM-STYLE", kError, "15444-1, A.7.1"),
    KVJPX_PROBLEM(kTlmTile, "J2K-TLM-TILE", kError, "15444-1, A.7.1"),
    KVJPX_PROBLEM(kTlmLength, "J2K-TLM-LENGTH", kError, "15444-1, A.7.1"),
    KVJPX_PROBLEM(kTlmCount, "J2K-TLM-COUNT", kError, "15444-1, A.7.1"),
    KVJPX_PROBLEM(kPacketLengthCut, "J2K-PACKET-LENGTH", kError, "15444-1, A.7.3"),
    KVJPX_PROBLEM(kPltLength, "J2K-PLT-LENGTH", kError, "15444-1, A.7.3"),
    KVJPX_PROBLEM(kPpmCut, "J2K-PPM-CUT", kError, "15444-1, A.7.4"),
    KVJPX_PROBLEM(kPpmCount, "J2K-PPM-COUNT", kError, "15444-1, A.7.4"),
    KVJPX_PROBLEM(kPpmAndPpt, "J2K-PPM-AND-PPT", kError, "15444-1, A.7.5"),
};
#undef KVJPX_PROBLEM

// What the reader of boxes met. These come last: a content is called unreadable only where no rule
// knows why.
constexpr Row kBoxRows[] = {
    {"BOX-LENGTH", kError, kEvery, "15444-1, I.4", "a box is shorter than its header", kTheFile, reader_finding<KV_JPX_FINDING_BAD_LENGTH>},
    {"BOX-CUT-SHORT", kError, kEvery, "15444-1, I.4", "a box reaches past the end of its container or of the file", kTheFile, reader_finding<KV_JPX_FINDING_CUT_SHORT>},
    {"BOX-TRAILING", kError, kEvery, "15444-1, I.4", "bytes at the end belong to no box", kTheFile, reader_finding<KV_JPX_FINDING_TRAILING>},
    {"BOX-OPEN-INSIDE", kError, kEvery, "15444-1, I.4", "a box without a length stands in one with a length", kEveryBox, open_ended_inside},
    {"BOX-PLACE", kError, kAny, "15444-1, I.5; 15444-2, M.11", "the box may not stand here", kTheFile, reader_finding<KV_JPX_FINDING_MISPLACED>},
    {"BOX-DEEP", kWarning, kEvery, "15444-1, I.4", "boxes are nested so deeply that they are not read", kTheFile, reader_finding<KV_JPX_FINDING_TOO_DEEP>},
    {"BOX-LONG", kError, kAny, "15444-1, I.5; 15444-2, M.11", "the content is longer than its fields", kTheFile, reader_finding<KV_JPX_FINDING_UNREAD>},
    {"BOX-CONTENT", kError, kAny, "15444-1, I.5; 15444-2, M.11", "the content is not what the type of box asks for", kTheFile, reader_finding<KV_JPX_FINDING_MALFORMED>},
};
// clang-format on

std::vector<Rule> all_rules() {
  std::vector<Rule> rules;
  const auto add = [&rules](const Row& row) {
    rules.push_back(
        {row.id, row.severity, row.profiles, row.clause, row.text, row.box_type, row.look});
  };
  for (const Row& row : kRows) add(row);
  for (const ProblemRow& row : kProblemRows) {
    rules.push_back({row.id, row.severity, kAny, row.clause, kvjpx_codestream::meaning(row.kind),
                     kAnyCodestream, row.look});
  }
  for (const Row& row : kBoxRows) add(row);
  return rules;
}

}  // namespace

const std::vector<Rule>& rules() {
  static const std::vector<Rule> all = all_rules();
  return all;
}

std::string rules_as_markdown() {
  std::string text =
      "| Identifier | Severity | Profiles | Clause | What is wrong |\n"
      "|---|---|---|---|---|\n";
  for (const Rule& rule : rules()) {
    const bool is_for_all = (rule.profiles & kAny) == kAny;
    std::string profiles = is_for_all ? "all" : "";
    for (const Profile profile : {kJp2, kJpx, kJph, kOther}) {
      if ((rule.profiles & profile) == 0 || (is_for_all && profile != kOther)) continue;
      profiles += (profiles.empty() ? "" : ", ") + std::string(name(profile));
    }
    text += "| " + rule.id + " | " + name(rule.severity) + " | " + profiles + " | " + rule.clause +
            " | " + rule.text + " |\n";
  }
  return text;
}

}  // namespace kvjpx_check
