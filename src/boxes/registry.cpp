// The box registry (see registry.h): a new box type adds its file and its row here.
#include "box/registry.h"

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

// Stand-ins in a row's list of parents.
constexpr uint32_t kAnyParent = 1;  // whatever box, but there must be one
constexpr uint32_t kNoParent = 2;   // whatever box, or none

// clang-format off
constexpr BoxType kRows[] = {
    {code("jP  "), kParsed, jpx_read_jP___box, jpx_make_jP___box, {kRoot}, nullptr},
    {code("ftyp"), kParsed, jpx_read_ftyp_box, jpx_make_ftyp_box, {kRoot}, &kFtypFields},
    {code("rreq"), kParsed, jpx_read_rreq_box, jpx_make_rreq_box, {kRoot}, &kRreqFields},
    {code("jp2h"), kSuper, jpx_read_jp2h_box, jpx_make_jp2h_box, {kRoot}, nullptr},
    {code("ihdr"), kParsed, jpx_read_ihdr_box, jpx_make_ihdr_box, {code("jp2h")}, &kIhdrFields},
    {code("bpcc"), kParsed, jpx_read_bpcc_box, jpx_make_bpcc_box, {code("jp2h")}, &kBpccFields},
    {code("colr"), kParsed, jpx_read_colr_box, jpx_make_colr_box, {code("jp2h"), code("cgrp")}, &kColrFields},
    {code("pclr"), kParsed, jpx_read_pclr_box, jpx_make_pclr_box, {code("jp2h")}, &kPclrFields},
    {code("cmap"), kParsed, jpx_read_cmap_box, jpx_make_cmap_box, {code("jp2h")}, &kCmapFields},
    {code("cdef"), kParsed, jpx_read_cdef_box, jpx_make_cdef_box, {code("jp2h")}, &kCdefFields},
    {code("res "), kSuper, jpx_read_res__box, jpx_make_res__box, {code("jp2h")}, nullptr},
    {code("resc"), kParsed, jpx_read_resc_box, jpx_make_resc_box, {code("res ")}, &kResFields},
    {code("resd"), kParsed, jpx_read_resd_box, jpx_make_resd_box, {code("res ")}, &kResFields},
    {code("jpch"), kSuper, jpx_read_jpch_box, jpx_make_jpch_box, {kRoot}, nullptr},
    {code("jplh"), kSuper, jpx_read_jplh_box, jpx_make_jplh_box, {kRoot}, nullptr},
    {code("cgrp"), kSuper, jpx_read_cgrp_box, jpx_make_cgrp_box, {code("jplh")}, nullptr},
    {code("opct"), kParsed, jpx_read_opct_box, jpx_make_opct_box, {code("jplh")}, &kOpctFields},
    {code("creg"), kParsed, jpx_read_creg_box, jpx_make_creg_box, {code("jplh")}, &kCregFields},
    {code("comp"), kSuper, jpx_read_comp_box, jpx_make_comp_box, {kRoot}, nullptr},
    {code("copt"), kParsed, jpx_read_copt_box, jpx_make_copt_box, {code("comp")}, &kCoptFields},
    {code("inst"), kParsed, jpx_read_inst_box, jpx_make_inst_box, {code("comp")}, &kInstFields},
    {code("jp2c"), kBasic, jpx_read_jp2c_box, jpx_make_jp2c_box, {kRoot}, nullptr},
    {code("jp2i"), kBasic, jpx_read_jp2i_box, jpx_make_jp2i_box, {kRoot}, nullptr},
    {code("ftbl"), kSuper, jpx_read_ftbl_box, jpx_make_ftbl_box, {kRoot}, nullptr},
    {code("flst"), kParsed, jpx_read_flst_box, jpx_make_flst_box, {code("comp")}, &kFlstFields},
    {code("cref"), kSuper, jpx_read_cref_box, jpx_make_cref_box, {code("asoc"), code("jplh"), code("jpch")}, &kCrefFields},
    {code("dtbl"), kSuper, jpx_read_dtbl_box, jpx_make_dtbl_box, {kNoParent}, nullptr},
    {code("url "), kParsed, jpx_read_url__box, jpx_make_url__box, {code("uinf"), code("dtbl")}, &kUrlFields},
    {code("drep"), kSuper, jpx_read_drep_box, jpx_make_drep_box, {kRoot}, nullptr},
    {code("asoc"), kSuper, jpx_read_asoc_box, jpx_make_asoc_box, {kAnyParent}, nullptr},
    {code("nlst"), kParsed, jpx_read_nlst_box, jpx_make_nlst_box, {code("asoc")}, &kNlstFields},
    {code("roid"), kParsed, jpx_read_roid_box, jpx_make_roid_box, {kRoot, code("asoc"), code("jpch"), code("jp2h")}, &kRoidFields},
    {code("uuid"), kBasic, jpx_read_uuid_box, jpx_make_uuid_box, {kRoot}, &kUuidFields},
    {code("uinf"), kSuper, jpx_read_uinf_box, jpx_make_uinf_box, {kRoot}, nullptr},
    {code("ulst"), kParsed, jpx_read_ulst_box, jpx_make_ulst_box, {code("uinf")}, &kUlstFields},
    {code("lbl "), kBasic, jpx_read_lbl__box, jpx_make_lbl__box, {kRoot}, nullptr},
    {code("xml "), kBasic, jpx_read_xml__box, jpx_make_xml__box, {kRoot}, nullptr},
    {code("mp7b"), kBasic, jpx_read_mp7b_box, jpx_make_mp7b_box, {kRoot}, nullptr},
    {code("gtso"), kBasic, jpx_read_gtso_box, jpx_make_gtso_box, {kRoot}, nullptr},
    {code("mdat"), kBasic, jpx_read_mdat_box, jpx_make_mdat_box, {kRoot}, nullptr},
    {code("free"), kBasic, jpx_read_free_box, jpx_make_free_box, {kRoot}, nullptr},
};
// clang-format on

}  // namespace

BoxTypes all_box_types() { return {kRows, sizeof(kRows) / sizeof(kRows[0])}; }

const BoxType* find_box_type(uint32_t code) {
  for (const BoxType& row : kRows) {
    if (row.code == code) return &row;
  }
  return nullptr;
}

bool may_stand(uint32_t code, const Box* parent) {
  const BoxType* const row = find_box_type(code);
  if (row == nullptr || row->parents[0] == kNoParent) return true;
  if (parent == nullptr) return false;
  if (row->parents[0] == kAnyParent) return true;
  for (const uint32_t allowed : row->parents) {
    if (allowed != 0 && allowed == parent->type) return true;
  }
  return false;
}

}  // namespace kvjpx
