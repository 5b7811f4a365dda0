// What looks for breaches: one function a rule, by the part of the standard. table.cpp says which
// boxes each of them is called with.
#ifndef KVJPX_CHECK_RULES_H_
#define KVJPX_CHECK_RULES_H_

#include "file.h"

namespace kvjpx_check {

// Stand in a row for a type of box.
constexpr uint32_t kTheFile = 1;        // once, with the root
constexpr uint32_t kEveryBox = 2;       // also the root
constexpr uint32_t kAnyCodestream = 3;  // once; the file may be nothing but a codestream

// structure.cpp: boxes as such (15444-1, I.4) and the order of those at the top level (I.5).
template <uint32_t kKind>
void reader_finding(Check& check);
void open_ended_inside(Check& check);
void signature_first(Check& check);
void signature_bytes(Check& check);
void signature_length(Check& check);
void ftyp_second(Check& check);
void ftyp_brand(Check& check);
void ftyp_version(Check& check);
void ftyp_jp2(Check& check);
void ftyp_jpx(Check& check);
void ftyp_jph(Check& check);
void ftyp_other(Check& check);
void header_missing(Check& check);
void header_late(Check& check);
void codestream_missing(Check& check);
void codestream_more(Check& check);
void too_many_at_top(Check& check);
void too_many_in_container(Check& check);
void ipr_flag(Check& check);

// header.cpp: the JP2 header and the boxes like it (15444-1, I.5.3).
void ihdr_missing(Check& check);
void ihdr_missing_jpx(Check& check);
void ihdr_first(Check& check);
void ihdr_size(Check& check);
void ihdr_components(Check& check);
void ihdr_depth(Check& check);
void ihdr_compression_jp2(Check& check);
void ihdr_compression_jpx(Check& check);
void ihdr_unknown_colour(Check& check);
void ihdr_ipr(Check& check);
void ihdr_size_of_codestream(Check& check);
void ihdr_components_of_codestream(Check& check);
void ihdr_depth_of_codestream(Check& check);
void bpcc_missing(Check& check);
void bpcc_needless(Check& check);
void bpcc_count(Check& check);
void bpcc_depth(Check& check);
void bpcc_of_codestream(Check& check);
void pclr_entries(Check& check);
void pclr_columns(Check& check);
void pclr_depth(Check& check);
void pclr_without_cmap(Check& check);
void cmap_without_pclr(Check& check);
void cmap_component(Check& check);
void cmap_type(Check& check);
void cmap_column(Check& check);
void cdef_empty(Check& check);
void cdef_channel(Check& check);
void cdef_twice(Check& check);
void cdef_type(Check& check);
void cdef_association(Check& check);
void cdef_pair(Check& check);
void cdef_incomplete(Check& check);
void res_empty(Check& check);
void res_zero(Check& check);

// colour.cpp: colr boxes (15444-1, I.5.3.3; 15444-2, M.11.7.3).
void colr_missing(Check& check);
void colr_scattered(Check& check);
void colr_method_jp2(Check& check);
void colr_method_jpx(Check& check);
void colr_precedence(Check& check);
void colr_approximation(Check& check);
void colr_space_jp2(Check& check);
void colr_space_jpx(Check& check);
void colr_channels(Check& check);
void colr_extra_channels(Check& check);
void icc_short(Check& check);
void icc_size(Check& check);
void icc_signature(Check& check);
void icc_class(Check& check);
void icc_space(Check& check);
void icc_connection(Check& check);
void icc_tags(Check& check);
void icc_lookup(Check& check);

// metadata.cpp: XML, UUID information, labels, references (15444-1, I.7; 15444-2, M.11).
void xml_form(Check& check);
void xml_encoding(Check& check);
void uinf_list(Check& check);
void uinf_url(Check& check);
void url_version(Check& check);
void url_flags(Check& check);
void url_end(Check& check);
void url_utf8(Check& check);
void label_utf8(Check& check);
void label_characters(Check& check);

// extended.cpp: what 15444-2 adds (Annex M).
void rreq_missing(Check& check);
void rreq_second(Check& check);
void rreq_mask_length(Check& check);
void rreq_masks(Check& check);
void rreq_layers(Check& check);
void rreq_fragments(Check& check);
void rreq_palette(Check& check);
void rreq_opacity(Check& check);
void rreq_any_icc(Check& check);
void rreq_composition(Check& check);
void rreq_extensions(Check& check);
void codestream_headers(Check& check);
void layer_headers(Check& check);
void layer_colour(Check& check);
void creg_all(Check& check);
void creg_grid(Check& check);
void creg_codestream(Check& check);
void creg_distance(Check& check);
void creg_offset(Check& check);
void cgrp_empty(Check& check);
void opct_type(Check& check);
void opct_and_cdef(Check& check);
void comp_copt(Check& check);
void comp_inst(Check& check);
void copt_size(Check& check);
void inst_type(Check& check);
void asoc_few(Check& check);
void nlst_reserved(Check& check);
void nlst_target(Check& check);
void ftbl_list(Check& check);
void cref_list(Check& check);
void cref_type(Check& check);
void flst_empty(Check& check);
void flst_reference(Check& check);
void flst_range(Check& check);
void flst_length(Check& check);
void dtbl_count(Check& check);

// codestream.cpp: the codestream (15444-1, Annex A).
template <kvjpx_codestream::ProblemKind kKind>
void problem(Check& check);
void codestream_of_part_1(Check& check);
void codestream_high_throughput(Check& check);

}  // namespace kvjpx_check

#endif  // KVJPX_CHECK_RULES_H_
