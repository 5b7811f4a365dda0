/*
 * Keys of the fields of all box types, and the table that describes them.
 *
 * Names and meanings of fields are those of ISO/IEC 15444-1 and 15444-2; the clause stands with
 * each box type. A field that repeats is addressed by key and index, others by key and index 0.
 * Ranges are those that a set takes, any other value is answered with 3; reading judges nothing, so
 * files may hold others. Lengths and counts of a field are told by kv_jpx_get_box_field_count.
 *
 * Where everything is kept (kv_jpx_set_keep_everything) fields mean what the standards say; "kept:"
 * tells what is other then. For all of them: a value must fit the bytes that it is written in, else
 * it is answered with 3, but one that the file has in that place can always be set back; a refused
 * value leaves no entry behind; no index past the last entry is got. Numbers that hide others (a
 * count, METH, EnumCS, OTyp, Ityp) bring back what they hid when they are set back.
 */
#ifndef KVJPX_FIELDS_H_
#define KVJPX_FIELDS_H_

#include <stdint.h>

/* Payload of every opaque box, whatever its type, and of uuid boxes. */
/** The payload, bytes. Any element size is taken by a set; a get reports 1. */
#define JPX_FIELD_JP2C_DATA 0xC5FC8727u

/* ftyp: file type (ISO/IEC 15444-1, I.5.2; 15444-2, M.11). */
/** Brand: four-character code of the standard that the file follows best, e.g. "jpx ". Any
 * value. */
#define JPX_FIELD_FTYP_BR 0x195C828Au
/** Minor version of that standard; 0 in files of today. Any value. */
#define JPX_FIELD_FTYP_MinV 0xE4D6F75Eu
/** Compatibility list: four-character code of each standard that a reader may follow. "jp2 ",
 * "jpx " and "jpxb" stand in front, once each, whatever the order in the file. Any value. Kept: a
 * plain list in the order of the file. */
#define JPX_FIELD_FTYP_CL 0x59703D72u

/* ihdr: image header (15444-1, I.5.3.1). */
/** Depths that differ: one for each component stands in bpcc. */
#define KV_JPX_BPC_VARIES 255u
/** Bit 7 of a bit depth: the samples are signed. */
#define KV_JPX_BPC_SIGNED 0x80u
/** Values of C (15444-1, I.5.3.1; 15444-2, M.11). */
enum kv_jpx_compression {
  KV_JPX_C_UNCOMPRESSED = 0,
  KV_JPX_C_MODIFIED_HUFFMAN = 1,
  KV_JPX_C_MODIFIED_READ = 2,
  KV_JPX_C_MODIFIED_MODIFIED_READ = 3,
  KV_JPX_C_JBIG_BI_LEVEL = 4,
  KV_JPX_C_JPEG = 5,
  KV_JPX_C_JPEG_LS = 6,
  KV_JPX_C_JPEG2000 = 7,
  KV_JPX_C_JBIG2 = 8,
  KV_JPX_C_JBIG = 9
};
/** Height of the image, in samples of the reference grid: 1 to 4294967295. */
#define JPX_FIELD_IHDR_HEIGHT 0x38F827CFu
/** Width of the image, in samples of the reference grid: 1 to 4294967295. */
#define JPX_FIELD_IHDR_WIDTH 0x19659D91u
/** Number of components: 1 to 16384. */
#define JPX_FIELD_IHDR_NC 0x4A9E5AB1u
/** Bit depth of all components: the depth in bits less one in bits 0 to 6, 0 to 37, and
 * KV_JPX_BPC_SIGNED; or KV_JPX_BPC_VARIES, and then a bpcc box has them. */
#define JPX_FIELD_IHDR_BPC 0x25907340u
/** Compression type: enum kv_jpx_compression; only KV_JPX_C_JPEG2000 can be set. Kept: all can. */
#define JPX_FIELD_IHDR_C 0x8671F681u
/** 1 when the colourspace of the image is not known, 0 when colr says it. */
#define JPX_FIELD_IHDR_UnkC 0x33551A08u
/** 1 when the file has intellectual property rights (a jp2i box), else 0. */
#define JPX_FIELD_IHDR_IPR 0x52C27202u

/* bpcc: bits per component (15444-1, I.5.3.2). */
/** Bit depth of each component, in the order of the codestream, as IHDR_BPC. Bytes are taken as
 * they are. */
#define JPX_FIELD_BPCC_BPC 0xE74C3082u

/* colr: colour, by enumeration, ICC profile or vendor method (15444-1, I.5.3.3; 15444-2, M.11). */
/** Values of METH. */
enum kv_jpx_colr_method {
  KV_JPX_METH_ENUMERATED = 1,
  KV_JPX_METH_RESTRICTED_ICC = 2,
  KV_JPX_METH_ANY_ICC = 3,
  KV_JPX_METH_VENDOR = 4
};
/** Values of APPROX. */
enum kv_jpx_colr_approx {
  KV_JPX_APPROX_ACCURATE = 1,
  KV_JPX_APPROX_EXCEPTIONAL = 2,
  KV_JPX_APPROX_REASONABLE = 3,
  KV_JPX_APPROX_POOR = 4
};
/** Values of EnumCS. */
enum kv_jpx_enum_cs {
  KV_JPX_ENUMCS_BI_LEVEL = 0,
  KV_JPX_ENUMCS_YCBCR_1 = 1,
  KV_JPX_ENUMCS_YCBCR_2 = 3,
  KV_JPX_ENUMCS_YCBCR_3 = 4,
  KV_JPX_ENUMCS_PHOTO_YCC = 9,
  KV_JPX_ENUMCS_CMY = 11,
  KV_JPX_ENUMCS_CMYK = 12,
  KV_JPX_ENUMCS_YCCK = 13,
  KV_JPX_ENUMCS_CIELAB = 14,
  KV_JPX_ENUMCS_BI_LEVEL_2 = 15,
  KV_JPX_ENUMCS_SRGB = 16,
  KV_JPX_ENUMCS_GREYSCALE = 17,
  KV_JPX_ENUMCS_SYCC = 18,
  KV_JPX_ENUMCS_CIEJAB = 19,
  KV_JPX_ENUMCS_E_SRGB = 20,
  KV_JPX_ENUMCS_ROMM_RGB = 21,
  KV_JPX_ENUMCS_YPBPR_1125_60 = 22,
  KV_JPX_ENUMCS_YPBPR_1250_50 = 23,
  KV_JPX_ENUMCS_E_SYCC = 24
};
/** Method by which colour is specified: enum kv_jpx_colr_method. It decides which of the fields
 * below the box has; a set empties those of the other methods, except the UUID. Kept: 0 to 255, and
 * nothing is emptied. */
#define JPX_FIELD_COLR_METH 0x937F581Au
/** Precedence among the colr boxes of a header, a signed byte reported as 0 to 255: the greatest
 * goes first. Any value, of which the low 8 bits are kept. Kept: -128 to 255. */
#define JPX_FIELD_COLR_PREC 0xF60DAD6Eu
/** How well the method approximates the true colourspace: enum kv_jpx_colr_approx. Files of
 * ISO/IEC 15444-1 have 0, which can be read but not set. Kept: it can be set. */
#define JPX_FIELD_COLR_APPROX 0x3A367A02u
/** Enumerated colourspace, METH 1: enum kv_jpx_enum_cs. It is never counted; kept: 1 of 4 bytes. */
#define JPX_FIELD_COLR_EnumCS 0xEF45D07Fu
/** Range of L, a parameter of CIELab (METH 1, EnumCS 14), 32 bits, as any of them. Parameters can
 * be set, but are neither read nor written. Kept: they are; a box has all parameters or none, the
 * first that is set brings the others as 0, and kv_jpx_set_box_field_count(..., 0) takes all away.
 */
#define JPX_FIELD_COLR_RL 0x5BB3E4FCu
/** Offset of L, in the same way. */
#define JPX_FIELD_COLR_OL 0x5D6E666Bu
/** Range of a. */
#define JPX_FIELD_COLR_RA 0x5BB3E4F1u
/** Offset of a. */
#define JPX_FIELD_COLR_OA 0x5D6E6666u
/** Range of b. */
#define JPX_FIELD_COLR_RB 0x5BB3E4F2u
/** Offset of b. */
#define JPX_FIELD_COLR_OB 0x5D6E6665u
/** Illuminant of CIELab: a four-character code such as 0x00443530 (D50), or CT and a temperature in
 * kelvin. */
#define JPX_FIELD_COLR_IL 0x5D4FE1EDu
/** Range of J, a parameter of CIEJab (METH 1, EnumCS 19), as those of CIELab. */
#define JPX_FIELD_COLR_JAB_RJ 0x48144550u
/** Offset of J. */
#define JPX_FIELD_COLR_JAB_OJ 0x48609003u
/** Range of a. */
#define JPX_FIELD_COLR_JAB_RA 0x4814455Bu
/** Offset of a. */
#define JPX_FIELD_COLR_JAB_OA 0x48609008u
/** Range of b. */
#define JPX_FIELD_COLR_JAB_RB 0x48144558u
/** Offset of b. */
#define JPX_FIELD_COLR_JAB_OB 0x4860900Bu
/** ICC profile, METH 2 and 3, as ISO 15076-1 (ICC.1) has it; bytes of element size 1. */
#define JPX_FIELD_COLR_ICC 0x3DFEE9E0u
/** UUID of a vendor's method, METH 4: one entry of 16 bytes. */
#define JPX_FIELD_COLR_UUID 0x20BBC27Bu
/** Data of a vendor's method, METH 4; bytes of element size 1. */
#define JPX_FIELD_COLR_VENDOR_DATA 0x66914D74u

/* resc and resd: capture and default display resolution (15444-1, I.5.3.7). */
/** Numerator of the vertical resolution, in samples of the reference grid a metre: VR_N / VR_D x
 * 10^VR_E. 1 to 65535. The keys serve resc and resd boxes. */
#define JPX_FIELD_RESC_VR_N 0xC933A5B0u
/** Denominator of the vertical resolution: 1 to 65535. */
#define JPX_FIELD_RESC_VR_D 0xC933A5BAu
/** Exponent of the vertical resolution, to the base of 10: set as -128 to 127 (a 64-bit number in
 * two's complement), got as 0 to 255. Kept: set as either. */
#define JPX_FIELD_RESC_VR_E 0xC933A5BBu
/** Numerator of the horizontal resolution, in the same way. */
#define JPX_FIELD_RESC_HR_N 0x2475C5EAu
/** Denominator of the horizontal resolution. */
#define JPX_FIELD_RESC_HR_D 0x2475C5E0u
/** Exponent of the horizontal resolution. */
#define JPX_FIELD_RESC_HR_E 0x2475C5E1u

/* pclr: palette (15444-1, I.5.3.4). */
/** Number of entries: 1 to 1024. Values stay where they are in their block; new ones are 0. Kept:
 * values stay in their row and column. */
#define JPX_FIELD_PCLR_NE 0x7AE0D246u
/** Number of columns, the components that the palette makes: 1 to 255. */
#define JPX_FIELD_PCLR_NPC 0x713656C3u
/** Bit depth of each column, as IHDR_BPC without KV_JPX_BPC_VARIES: 0 to 0xA5, of which bit 6 is
 * dropped. Setting bytes, 1 to 255 of them, sets the number of columns as well. Kept: depths of 1
 * to 32 bits; a palette with others is opaque. */
#define JPX_FIELD_PCLR_B 0x7A29B68Eu
/** Values: NE x NPC numbers of 4 bytes, as bytes entry by entry in the byte order of the machine.
 * By index i, row i / NE and column i % NE. Range by the depth of the column. Kept: row i / NPC and
 * column i % NPC; a value is got as it is written, and set so or as a number of either sign. */
#define JPX_FIELD_PCLR_C 0x9FC386B4u

/* cmap: component mapping (15444-1, I.5.3.5). */
/** Values of MTYP. */
enum kv_jpx_cmap_type {
  KV_JPX_MTYP_DIRECT = 0, /**< the component is the channel */
  KV_JPX_MTYP_PALETTE = 1 /**< it is looked up in column PCOL of the palette */
};
/** Component of the codestream that the channel is made from: 0 to 16383 in a file, 1 to 16384 by
 * a set. Kept: 0 to 16383. */
#define JPX_FIELD_CMAP_CMP 0xC9A5D068u
/** How: enum kv_jpx_cmap_type. */
#define JPX_FIELD_CMAP_MTYP 0xD4B93F61u
/** Column of the palette, from 0; 0 for a channel without palette. Any value, of which the low
 * 8 bits are kept. */
#define JPX_FIELD_CMAP_PCOL 0x159E219Bu

/* cdef: channel definition (15444-1, I.5.3.6). */
/** Values of Typ. */
enum kv_jpx_cdef_type {
  KV_JPX_TYP_COLOUR = 0,
  KV_JPX_TYP_OPACITY = 1,
  KV_JPX_TYP_PREMULTIPLIED_OPACITY = 2,
  KV_JPX_TYP_UNSPECIFIED = 65535
};
/** Values of Asoc that are no colours. */
enum kv_jpx_cdef_association { KV_JPX_ASOC_WHOLE_IMAGE = 0, KV_JPX_ASOC_NONE = 65535 };
/** Number of definitions: 1 to 65535. */
#define JPX_FIELD_CDEF_N 0x37A268EFu
/** Channel that the definition is of, from 0 in the order of cmap, or of the components without
 * one: 0 to 65535. */
#define JPX_FIELD_CDEF_Cn 0x94AE9969u
/** What the channel holds: enum kv_jpx_cdef_type. */
#define JPX_FIELD_CDEF_Typ 0xBFBCA9C4u
/** Colour that the channel belongs to: 1 and up, in the order of the colourspace, or enum
 * kv_jpx_cdef_association. */
#define JPX_FIELD_CDEF_Asoc 0x203F6F46u

/* opct: opacity (15444-2, M.11). */
/** Values of OTyp. */
enum kv_jpx_opct_type {
  KV_JPX_OTYP_OPACITY = 0,               /**< the last channel is opacity */
  KV_JPX_OTYP_PREMULTIPLIED_OPACITY = 1, /**< and the colours are multiplied by it */
  KV_JPX_OTYP_CHROMA_KEY = 2
};
/** How opacity is specified: enum kv_jpx_opct_type. A set of a type without chroma key is made and
 * answered with 4. Kept: with 0. */
#define JPX_FIELD_OPCT_OTyp 0x18F10EE6u
/** Number of channels with a chroma key, OTyp 2 only: 0 to 255. A set empties the values. Kept:
 * values stay, and new ones are 0. */
#define JPX_FIELD_OPCT_nch 0xF0113FC8u
/** Chroma key: sample value of each channel that is fully transparent, OTyp 2 only. 8 bytes each,
 * of which a file holds one. Bytes come in the byte order of the machine. Kept: a file holds as
 * many bytes as the channel needs, or equally many for each where those of the image do not fit; a
 * value is got as it is written, set so or as a number of either sign. */
#define JPX_FIELD_OPCT_Cv 0xC9EF5CE3u

/* rreq: reader requirements (15444-2, M.11). */
/** Mask length, in bytes: 1, 2, 4 or 8 by a set, 0 to 255 in a file. Kept: a length that is too
 * small for one of the masks is answered with 3, and a box with masks longer than 8 is opaque. */
#define JPX_FIELD_RREQ_ML 0xEF905DA7u
/** Fully understand aspects mask: the features that are needed to understand all of the file; a bit
 * a feature, bit 8 x ML - 1 the first. 0 to 2^(8 x ML) - 1 for ML 1 and 2, else only 0 can be set.
 * Kept: for every ML. */
#define JPX_FIELD_RREQ_FUAM 0xB713AA5Fu
/** Display completely mask: the features that are needed to show the file as meant; as FUAM. */
#define JPX_FIELD_RREQ_DCM 0x3C56DCDDu
/** Number of standard features: 0 to 65535. */
#define JPX_FIELD_RREQ_NSF 0x3F0A4620u
/** Standard feature, a number from ISO/IEC 15444-2, M.11: 0 to 65535. */
#define JPX_FIELD_RREQ_SF 0x177A2D49u
/** Mask of the standard feature: its bit in FUAM and DCM; range as FUAM. */
#define JPX_FIELD_RREQ_SM 0x17C678F8u
/** Number of vendor features: 0 to 65535. */
#define JPX_FIELD_RREQ_NVF 0x3F380D6Fu
/** Mask of the vendor feature; as SM. */
#define JPX_FIELD_RREQ_VM 0x9D93D289u
/** UUID of the vendor feature, 16 bytes; can be counted only. */
#define JPX_FIELD_RREQ_VF 0x9DE01E38u

/* copt: composition options (15444-2, M.11). */
/** LOOP without end. */
#define KV_JPX_LOOP_FOREVER 255u
/** Height of the rendered result, in samples: 0 to 4294967295. */
#define JPX_FIELD_COPT_HEIGHT 0x50F1F369u
/** Width of the rendered result, in samples: 0 to 4294967295. */
#define JPX_FIELD_COPT_WIDTH 0xFDB9626Bu
/** How often the instructions are done again after the first time: 0 to 254, or
 * KV_JPX_LOOP_FOREVER. */
#define JPX_FIELD_COPT_LOOP 0xBA8399D4u

/* creg: codestream registration (15444-2, M.11). */
/** Width of the registration grid's unit, the divisor of XO and XR: 0 to 65535. */
#define JPX_FIELD_CREG_XS 0x21E54414u
/** Height of the same, for YO and YR: 0 to 65535. */
#define JPX_FIELD_CREG_YS 0x21D60257u
/** Number of the codestream, from 0: 0 to 65535. */
#define JPX_FIELD_CREG_CDN 0x48CAB65Fu
/** Horizontal distance of the codestream's samples, in units of the registration grid: 0 to 255. */
#define JPX_FIELD_CREG_XR 0xF6980E3Fu
/** Vertical distance of the codestream's samples, in the same units: 0 to 255. */
#define JPX_FIELD_CREG_YR 0x29759B3Au
/** Horizontal offset of the codestream, in 1/XS: 0 to 255 and less than XS. */
#define JPX_FIELD_CREG_XO 0xF8340B28u
/** Vertical offset of the codestream, in 1/YS: 0 to 255 and less than YS. */
#define JPX_FIELD_CREG_YO 0x2B301CA1u

/* inst: instruction set (15444-2, M.11). */
/** Bits of Ityp: the groups that instructions have. */
enum kv_jpx_inst_type {
  KV_JPX_ITYP_OFFSETS = 0x01,     /**< XO, YO */
  KV_JPX_ITYP_SCALING = 0x02,     /**< WIDTH, HEIGHT */
  KV_JPX_ITYP_PERSISTENCE = 0x08, /**< PERSIST, LIFE, NEXT_USE */
  KV_JPX_ITYP_CROPPING = 0x20     /**< XC, YC, WC, HC */
};
/** Which groups each instruction has: bits of enum kv_jpx_inst_type. Any value, of which the low
 * 16 bits are kept. Kept: these bits only; a box with others is opaque. Numbers of groups that are
 * not there can be set, and are written once they are. */
#define JPX_FIELD_INST_Ityp 0xBBB4752Cu
/** How often the instructions of the box are done again: 0 to 65535. */
#define JPX_FIELD_INST_REPT 0xB38F8847u
/** Unit of LIFE in the file, milliseconds. The field answers REPT and sets it. Kept: it is itself,
 * 0 to 4294967295. */
#define JPX_FIELD_INST_TICK 0x87749093u
/** Horizontal offset at which the layer is placed, in samples of the result: 0 to 4294967295. */
#define JPX_FIELD_INST_XO 0xBED13A0Du
/** Vertical offset of the same. */
#define JPX_FIELD_INST_YO 0xBEE07CC2u
/** Width to which the layer is scaled, in samples of the result; 4294967295, which a new
 * instruction holds, is this library's stand-in for a group that the box does not have. */
#define JPX_FIELD_INST_WIDTH 0x72171E15u
/** Height of the same. */
#define JPX_FIELD_INST_HEIGHT 0x4CF3937Bu
/** 1 when the layer stays on the result after its life, 0 when it goes; a set takes any value but
 * 0 for 1. */
#define JPX_FIELD_INST_PERSIST 0x800F716Fu
/** How long the instruction lasts, in ticks: 0 to 2147483647. */
#define JPX_FIELD_INST_LIFE 0x1C756676u
/** How many instructions later the layer is used again; 0: never. */
#define JPX_FIELD_INST_NEXT_USE 0x66C41C23u
/** Left edge of the part of the layer that is shown, in samples of the layer: 0 to 4294967295. */
#define JPX_FIELD_INST_XC 0xBED13A01u
/** Top edge of the same. */
#define JPX_FIELD_INST_YC 0xBEE07CCEu
/** Width of that part, in samples; 4294967295 as in WIDTH. */
#define JPX_FIELD_INST_WC 0xBF791360u
/** Height of that part. */
#define JPX_FIELD_INST_HC 0xBDDD1671u

/* flst: fragment list (15444-2, M.11). */
/** DR of a fragment in the file itself. */
#define KV_JPX_DR_THIS_FILE 0u
/** Where the fragment begins in its file, in bytes: 0 to 2^64 - 1. */
#define JPX_FIELD_FLST_OFF 0x22E992C9u
/** Length of the fragment, in bytes: 0 to 4294967295. */
#define JPX_FIELD_FLST_LEN 0xADA384D7u
/** File that the fragment is in: number of the url box in the data references, from 1, or
 * KV_JPX_DR_THIS_FILE. 0 to 65535. */
#define JPX_FIELD_FLST_DR 0xD961173Bu

/* cref: cross-reference (15444-2, M.11). */
/** Four-character code of the box that the reference stands for. Any value. */
#define JPX_FIELD_CREF_RTYP 0xC6E626A7u

/* url : data entry URL (15444-1, I.7.3.2). */
/** Version of the box: 0. A value with a low byte of 0 is taken, too; kept: it is not. */
#define JPX_FIELD_URL_VERS 0x5B6F1674u
/** Flags, 24 bits: 0; as VERS. */
#define JPX_FIELD_URL_FLAG 0xDA9790FCu
/** The URL, UTF-8, in files with a zero at the end; bytes of element size 1. */
#define JPX_FIELD_URL_LOC 0x8745EFA3u

/* nlst: number list (15444-2, M.11). */
/** High byte of AN. */
#define KV_JPX_AN_CODESTREAM 0x01000000u
#define KV_JPX_AN_LAYER 0x02000000u
/** What is meant: 0 the rendered result, KV_JPX_AN_CODESTREAM or KV_JPX_AN_LAYER plus the number of
 * a codestream or compositing layer, from 0 to 16777215. */
#define JPX_FIELD_NLST_AN 0x1890C10Eu

/* roid: region of interest description (15444-2, M.11). */
/** Values of RTYP. */
enum kv_jpx_roid_type { KV_JPX_RTYP_RECTANGLE = 0, KV_JPX_RTYP_ELLIPSE = 1 };
/** 1 when the codestream itself has the region of interest coded, else 0. Any value, of which the
 * low 8 bits are kept. */
#define JPX_FIELD_ROID_RI 0xF9AD3683u
/** Shape of the region: enum kv_jpx_roid_type. */
#define JPX_FIELD_ROID_RTYP 0x08030EB1u
/** Coding priority, 0 to 255; the greatest goes first. */
#define JPX_FIELD_ROID_RCP 0x7DF5378Au
/** Horizontal place of the region, in samples of the reference grid: left edge of a rectangle,
 * centre of an ellipse. 0 to 4294967295. */
#define JPX_FIELD_ROID_RLCX 0x337CACEBu
/** Vertical place of the same: top edge or centre. */
#define JPX_FIELD_ROID_RLCY 0x336D6A2Cu
/** Width of the region, in samples: 0 to 4294967295. */
#define JPX_FIELD_ROID_RWDT 0xDBBA51A5u
/** Height of the same. */
#define JPX_FIELD_ROID_RHT 0xF980B220u

/* ulst: UUID list (15444-1, I.7.3.1). */
/** Number of UUIDs: 0 to 65535. UUIDs that are not there count as zeros. */
#define JPX_FIELD_ULST_NU 0x648DC597u
/** UUID, 16 bytes each. */
#define JPX_FIELD_ULST_ID 0x892F88DBu

/* uuid: UUID (15444-1, I.7.2). */
/** Payload behind the UUID; bytes, any element size. */
#define JPX_FIELD_UUID_DATA 0x0CA96D93u
/** UUID that says what the payload is: one entry of 16 bytes. */
#define JPX_FIELD_UUID_ID 0x1CD76192u

/** How a field is reached (bits of kv_jpx_field_info.access). */
enum kv_jpx_field_access {
  /** kv_jpx_get_box_field_int and kv_jpx_set_box_field_int serve it. */
  KV_JPX_FIELD_INTEGER = 1,
  /** kv_jpx_get_box_field_buffer and kv_jpx_set_box_field_buffer serve it. */
  KV_JPX_FIELD_BYTES = 2,
  /** It has one entry for each of the box's records, counted by kv_jpx_get_box_field_count. */
  KV_JPX_FIELD_REPEATS = 4
};

/** One field of one box type. */
typedef struct kv_jpx_field_info {
  /** sizeof(kv_jpx_field_info), set by the caller; 0 stands for the members that are here now. */
  uint32_t size;
  /** Four-character code of the box type; 0 for the payload of all opaque boxes. */
  uint32_t box_type;
  /** JPX_FIELD_... constant. */
  uint32_t key;
  /** Name by which people address it, e.g. "HEIGHT"; a static string. */
  const char* name;
  /** Size of one entry in bytes, as kv_jpx_get_box_field_count reports it. */
  uint32_t width;
  /** Bits of kv_jpx_field_access. A field with neither INTEGER nor BYTES can only be counted. */
  uint32_t access;
} kv_jpx_field_info;

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Describes field number `index` (from 0) of all fields of all box types, so that a program or a
 * binding needs no code for each box type. Fields of one box type stand together in the order of
 * their format. Needs no context.
 *
 * info  receives the description; the caller owns it, the name it points to is static.
 * Returns 0; 3 when info is null or index is past the last field.
 */
#if defined(__GNUC__) || defined(__clang__)
__attribute__((visibility("default")))
#endif
int32_t
kv_jpx_get_field_info(uint32_t index, kv_jpx_field_info* info);

#ifdef __cplusplus
}
#endif

#endif /* KVJPX_FIELDS_H_ */
