// The box catalogue: make and read functions of every box type, and the fields of those that have
// any.
#ifndef KVJPX_BOXES_BOXES_H_
#define KVJPX_BOXES_BOXES_H_

#include "box/registry.h"

namespace kvjpx {
extern "C" {

// Decoded into fields.
KVJPX_EXPORT MakeFn jpx_make_jP___box;
KVJPX_EXPORT ReadFn jpx_read_jP___box;
KVJPX_EXPORT MakeFn jpx_make_ftyp_box;
KVJPX_EXPORT ReadFn jpx_read_ftyp_box;
KVJPX_EXPORT MakeFn jpx_make_rreq_box;
KVJPX_EXPORT ReadFn jpx_read_rreq_box;
KVJPX_EXPORT MakeFn jpx_make_ihdr_box;
KVJPX_EXPORT ReadFn jpx_read_ihdr_box;
KVJPX_EXPORT MakeFn jpx_make_bpcc_box;
KVJPX_EXPORT ReadFn jpx_read_bpcc_box;
KVJPX_EXPORT MakeFn jpx_make_colr_box;
KVJPX_EXPORT ReadFn jpx_read_colr_box;
KVJPX_EXPORT MakeFn jpx_make_pclr_box;
KVJPX_EXPORT ReadFn jpx_read_pclr_box;
KVJPX_EXPORT MakeFn jpx_make_cmap_box;
KVJPX_EXPORT ReadFn jpx_read_cmap_box;
KVJPX_EXPORT MakeFn jpx_make_cdef_box;
KVJPX_EXPORT ReadFn jpx_read_cdef_box;
KVJPX_EXPORT MakeFn jpx_make_resc_box;
KVJPX_EXPORT ReadFn jpx_read_resc_box;
KVJPX_EXPORT MakeFn jpx_make_resd_box;
KVJPX_EXPORT ReadFn jpx_read_resd_box;
KVJPX_EXPORT MakeFn jpx_make_opct_box;
KVJPX_EXPORT ReadFn jpx_read_opct_box;
KVJPX_EXPORT MakeFn jpx_make_creg_box;
KVJPX_EXPORT ReadFn jpx_read_creg_box;
KVJPX_EXPORT MakeFn jpx_make_copt_box;
KVJPX_EXPORT ReadFn jpx_read_copt_box;
KVJPX_EXPORT MakeFn jpx_make_inst_box;
KVJPX_EXPORT ReadFn jpx_read_inst_box;
KVJPX_EXPORT MakeFn jpx_make_flst_box;
KVJPX_EXPORT ReadFn jpx_read_flst_box;
KVJPX_EXPORT MakeFn jpx_make_cref_box;
KVJPX_EXPORT ReadFn jpx_read_cref_box;
KVJPX_EXPORT MakeFn jpx_make_dtbl_box;
KVJPX_EXPORT ReadFn jpx_read_dtbl_box;
KVJPX_EXPORT MakeFn jpx_make_url__box;
KVJPX_EXPORT ReadFn jpx_read_url__box;
KVJPX_EXPORT MakeFn jpx_make_nlst_box;
KVJPX_EXPORT ReadFn jpx_read_nlst_box;
KVJPX_EXPORT MakeFn jpx_make_roid_box;
KVJPX_EXPORT ReadFn jpx_read_roid_box;
KVJPX_EXPORT MakeFn jpx_make_ulst_box;
KVJPX_EXPORT ReadFn jpx_read_ulst_box;
KVJPX_EXPORT MakeFn jpx_make_uuid_box;
KVJPX_EXPORT ReadFn jpx_read_uuid_box;

// Containers.
KVJPX_EXPORT MakeFn jpx_make_asoc_box;
KVJPX_EXPORT ReadFn jpx_read_asoc_box;
KVJPX_EXPORT MakeFn jpx_make_cgrp_box;
KVJPX_EXPORT ReadFn jpx_read_cgrp_box;
KVJPX_EXPORT MakeFn jpx_make_comp_box;
KVJPX_EXPORT ReadFn jpx_read_comp_box;
KVJPX_EXPORT MakeFn jpx_make_drep_box;
KVJPX_EXPORT ReadFn jpx_read_drep_box;
KVJPX_EXPORT MakeFn jpx_make_ftbl_box;
KVJPX_EXPORT ReadFn jpx_read_ftbl_box;
KVJPX_EXPORT MakeFn jpx_make_jp2h_box;
KVJPX_EXPORT ReadFn jpx_read_jp2h_box;
KVJPX_EXPORT MakeFn jpx_make_jpch_box;
KVJPX_EXPORT ReadFn jpx_read_jpch_box;
KVJPX_EXPORT MakeFn jpx_make_jplh_box;
KVJPX_EXPORT ReadFn jpx_read_jplh_box;
KVJPX_EXPORT MakeFn jpx_make_res__box;
KVJPX_EXPORT ReadFn jpx_read_res__box;
KVJPX_EXPORT MakeFn jpx_make_uinf_box;
KVJPX_EXPORT ReadFn jpx_read_uinf_box;

// Opaque.
KVJPX_EXPORT MakeFn jpx_make_free_box;
KVJPX_EXPORT ReadFn jpx_read_free_box;
KVJPX_EXPORT MakeFn jpx_make_gtso_box;
KVJPX_EXPORT ReadFn jpx_read_gtso_box;
KVJPX_EXPORT MakeFn jpx_make_jp2c_box;
KVJPX_EXPORT ReadFn jpx_read_jp2c_box;
KVJPX_EXPORT MakeFn jpx_make_jp2i_box;
KVJPX_EXPORT ReadFn jpx_read_jp2i_box;
KVJPX_EXPORT MakeFn jpx_make_lbl__box;
KVJPX_EXPORT ReadFn jpx_read_lbl__box;
KVJPX_EXPORT MakeFn jpx_make_mdat_box;
KVJPX_EXPORT ReadFn jpx_read_mdat_box;
KVJPX_EXPORT MakeFn jpx_make_mp7b_box;
KVJPX_EXPORT ReadFn jpx_read_mp7b_box;
KVJPX_EXPORT MakeFn jpx_make_xml__box;
KVJPX_EXPORT ReadFn jpx_read_xml__box;

}  // extern "C"

extern const FieldTable kFtypFields;
extern const FieldTable kIhdrFields;
extern const FieldTable kBpccFields;
extern const FieldTable kColrFields;
extern const FieldTable kResFields;
extern const FieldTable kPclrFields;
extern const FieldTable kCmapFields;
extern const FieldTable kCdefFields;
extern const FieldTable kOpctFields;
extern const FieldTable kRreqFields;
extern const FieldTable kCoptFields;
extern const FieldTable kCregFields;
extern const FieldTable kInstFields;
extern const FieldTable kFlstFields;
extern const FieldTable kCrefFields;
extern const FieldTable kUrlFields;
extern const FieldTable kNlstFields;
extern const FieldTable kRoidFields;
extern const FieldTable kUlstFields;
extern const FieldTable kUuidFields;

}  // namespace kvjpx

#endif  // KVJPX_BOXES_BOXES_H_
