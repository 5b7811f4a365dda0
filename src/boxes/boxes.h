// The list of box types: all that the library knows of a type besides its file in this folder is
// its row here.
#ifndef KVJPX_BOXES_BOXES_H_
#define KVJPX_BOXES_BOXES_H_

#include "box/basic.h"
#include "box/registry.h"
#include "box/super.h"
#include "box/typed_box.h"

// A row has the type, its make and its read function, what a reader does with a misplaced box, and
// the types of box that it may be made in. The registry expands the rows to declarations, to the
// functions, and to the table that parser and editor look types up in.
//
//   TYPED      fields in a BoxLayout, which the type's file defines; its functions are made here
//   CONTAINER  other boxes and nothing else. The parser does not ask where it stands.
//   OPAQUE     a payload. The parser takes these anywhere, too, although they can be made at the
//              top level only.
//   OWN        functions that the type's file defines
// clang-format off
#define KVJPX_BOX_TYPES(TYPED, CONTAINER, OPAQUE, OWN) \
  OWN(kParsed, "jP  ", jpx_make_jP___box, jpx_read_jP___box, &kJp, kRoot) \
  TYPED(kParsed, "ftyp", jpx_make_ftyp_box, jpx_read_ftyp_box, kFtyp, Misplaced::kRefused, kRoot) \
  TYPED(kParsed, "rreq", jpx_make_rreq_box, jpx_read_rreq_box, kRreq, Misplaced::kOpaque, kRoot) \
  CONTAINER("jp2h", jpx_make_jp2h_box, jpx_read_jp2h_box, kRoot) \
  TYPED(kParsed, "ihdr", jpx_make_ihdr_box, jpx_read_ihdr_box, kIhdr, Misplaced::kRefused, code("jp2h")) \
  TYPED(kParsed, "bpcc", jpx_make_bpcc_box, jpx_read_bpcc_box, kBpcc, Misplaced::kRefused, code("jp2h")) \
  TYPED(kParsed, "colr", jpx_make_colr_box, jpx_read_colr_box, kColr, Misplaced::kRefused, code("jp2h"), code("cgrp")) \
  TYPED(kParsed, "pclr", jpx_make_pclr_box, jpx_read_pclr_box, kPclr, Misplaced::kOpaque, code("jp2h")) \
  TYPED(kParsed, "cmap", jpx_make_cmap_box, jpx_read_cmap_box, kCmap, Misplaced::kOpaque, code("jp2h")) \
  TYPED(kParsed, "cdef", jpx_make_cdef_box, jpx_read_cdef_box, kCdef, Misplaced::kOpaque, code("jp2h")) \
  CONTAINER("res ", jpx_make_res__box, jpx_read_res__box, code("jp2h")) \
  TYPED(kParsed, "resc", jpx_make_resc_box, jpx_read_resc_box, kRes, Misplaced::kRefused, code("res ")) \
  TYPED(kParsed, "resd", jpx_make_resd_box, jpx_read_resd_box, kRes, Misplaced::kRefused, code("res ")) \
  CONTAINER("jpch", jpx_make_jpch_box, jpx_read_jpch_box, kRoot) \
  CONTAINER("jplh", jpx_make_jplh_box, jpx_read_jplh_box, kRoot) \
  CONTAINER("cgrp", jpx_make_cgrp_box, jpx_read_cgrp_box, code("jplh")) \
  TYPED(kParsed, "opct", jpx_make_opct_box, jpx_read_opct_box, kOpct, Misplaced::kOpaque, code("jplh")) \
  TYPED(kParsed, "creg", jpx_make_creg_box, jpx_read_creg_box, kCreg, Misplaced::kOpaque, code("jplh")) \
  CONTAINER("comp", jpx_make_comp_box, jpx_read_comp_box, kRoot) \
  TYPED(kParsed, "copt", jpx_make_copt_box, jpx_read_copt_box, kCopt, Misplaced::kOpaque, code("comp")) \
  TYPED(kParsed, "inst", jpx_make_inst_box, jpx_read_inst_box, kInst, Misplaced::kOpaque, code("comp")) \
  OPAQUE("jp2c", jpx_make_jp2c_box, jpx_read_jp2c_box, kRoot) \
  OPAQUE("jp2i", jpx_make_jp2i_box, jpx_read_jp2i_box, kRoot) \
  CONTAINER("ftbl", jpx_make_ftbl_box, jpx_read_ftbl_box, kRoot) \
  TYPED(kParsed, "flst", jpx_make_flst_box, jpx_read_flst_box, kFlst, Misplaced::kOpaque, code("comp")) \
  OWN(kSuper, "cref", jpx_make_cref_box, jpx_read_cref_box, &kCref, code("asoc"), code("jplh"), code("jpch")) \
  OWN(kSuper, "dtbl", jpx_make_dtbl_box, jpx_read_dtbl_box, nullptr, kNoParent) \
  TYPED(kParsed, "url ", jpx_make_url__box, jpx_read_url__box, kUrl, Misplaced::kOpaque, code("uinf"), code("dtbl")) \
  CONTAINER("drep", jpx_make_drep_box, jpx_read_drep_box, kRoot) \
  CONTAINER("asoc", jpx_make_asoc_box, jpx_read_asoc_box, kAnyParent) \
  TYPED(kParsed, "nlst", jpx_make_nlst_box, jpx_read_nlst_box, kNlst, Misplaced::kRefused, code("asoc")) \
  TYPED(kParsed, "roid", jpx_make_roid_box, jpx_read_roid_box, kRoid, Misplaced::kRefused, kRoot, code("asoc"), code("jpch"), code("jp2h")) \
  TYPED(kBasic, "uuid", jpx_make_uuid_box, jpx_read_uuid_box, kUuid, Misplaced::kRefused, kRoot) \
  CONTAINER("uinf", jpx_make_uinf_box, jpx_read_uinf_box, kRoot) \
  TYPED(kParsed, "ulst", jpx_make_ulst_box, jpx_read_ulst_box, kUlst, Misplaced::kRefused, code("uinf")) \
  OPAQUE("lbl ", jpx_make_lbl__box, jpx_read_lbl__box, kRoot) \
  OPAQUE("xml ", jpx_make_xml__box, jpx_read_xml__box, kRoot) \
  OPAQUE("mp7b", jpx_make_mp7b_box, jpx_read_mp7b_box, kRoot) \
  OPAQUE("gtso", jpx_make_gtso_box, jpx_read_gtso_box, kRoot) \
  OPAQUE("mdat", jpx_make_mdat_box, jpx_read_mdat_box, kRoot) \
  OPAQUE("free", jpx_make_free_box, jpx_read_free_box, kRoot)
// clang-format on

namespace kvjpx {

// Stand-ins in a row's list of parents.
constexpr uint32_t kAnyParent = 1;  // whatever box, but there must be one
constexpr uint32_t kNoParent = 2;   // whatever box, or none

extern const BoxLayout kJp;
// By the rules of the standard, of the types whose ordinary layout has others (see standard.h).
extern const BoxLayout kStandardFtyp;
extern const BoxLayout kStandardRreq;
extern const BoxLayout kStandardBpcc;
extern const BoxLayout kStandardColr;
extern const BoxLayout kStandardPclr;
extern const BoxLayout kStandardOpct;
extern const BoxLayout kStandardInst;
extern const BoxLayout kStandardUrl;
extern const BoxLayout kStandardNlst;
extern const BoxLayout kStandardUlst;
extern const BoxLayout kCref;
extern const BoxLayout kDtbl;
// Of boxes that were made, and so keep what stands in front of their children.
extern const BoxOperations kCrefOperations;
extern const BoxOperations kDtblOperations;

#define KVJPX_DECLARE(make, read)      \
  extern "C" KVJPX_EXPORT MakeFn make; \
  extern "C" KVJPX_EXPORT ReadFn read;
#define KVJPX_DECLARE_TYPED(kind, type, make, read, layout, ...) \
  KVJPX_DECLARE(make, read)                                      \
  extern const BoxLayout layout;
#define KVJPX_DECLARE_OWN(kind, type, make, read, ...) KVJPX_DECLARE(make, read)
#define KVJPX_DECLARE_PLAIN(type, make, read, ...) KVJPX_DECLARE(make, read)
KVJPX_BOX_TYPES(KVJPX_DECLARE_TYPED, KVJPX_DECLARE_PLAIN, KVJPX_DECLARE_PLAIN, KVJPX_DECLARE_OWN)

}  // namespace kvjpx

#endif  // KVJPX_BOXES_BOXES_H_
