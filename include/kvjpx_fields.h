/*
 * Keys of the fields of all box types, and the table that describes them.
 *
 * Names and meanings of fields are those of ISO/IEC 15444-1 and 15444-2; the clause stands with
 * each box type. A field that repeats is addressed by key and index, others by key and index 0.
 */
#ifndef KVJPX_FIELDS_H_
#define KVJPX_FIELDS_H_

#include <stdint.h>

/* Payload of every opaque box, whatever its type, and of uuid boxes. */
#define JPX_FIELD_JP2C_DATA 0xC5FC8727u

/* ftyp: file type (ISO/IEC 15444-1, I.5.2; 15444-2, M.11). */
#define JPX_FIELD_FTYP_BR 0x195C828Au
#define JPX_FIELD_FTYP_MinV 0xE4D6F75Eu
#define JPX_FIELD_FTYP_CL 0x59703D72u

/* ihdr: image header (15444-1, I.5.3.1). */
#define JPX_FIELD_IHDR_HEIGHT 0x38F827CFu
#define JPX_FIELD_IHDR_WIDTH 0x19659D91u
#define JPX_FIELD_IHDR_NC 0x4A9E5AB1u
#define JPX_FIELD_IHDR_BPC 0x25907340u
#define JPX_FIELD_IHDR_C 0x8671F681u
#define JPX_FIELD_IHDR_UnkC 0x33551A08u
#define JPX_FIELD_IHDR_IPR 0x52C27202u

/* bpcc: bits per component (15444-1, I.5.3.2). */
#define JPX_FIELD_BPCC_BPC 0xE74C3082u

/* colr: colour, by enumeration, ICC profile or vendor method (15444-1, I.5.3.3; 15444-2, M.11). */
#define JPX_FIELD_COLR_METH 0x937F581Au
#define JPX_FIELD_COLR_PREC 0xF60DAD6Eu
#define JPX_FIELD_COLR_APPROX 0x3A367A02u
#define JPX_FIELD_COLR_EnumCS 0xEF45D07Fu
#define JPX_FIELD_COLR_RL 0x5BB3E4FCu
#define JPX_FIELD_COLR_OL 0x5D6E666Bu
#define JPX_FIELD_COLR_RA 0x5BB3E4F1u
#define JPX_FIELD_COLR_OA 0x5D6E6666u
#define JPX_FIELD_COLR_RB 0x5BB3E4F2u
#define JPX_FIELD_COLR_OB 0x5D6E6665u
#define JPX_FIELD_COLR_IL 0x5D4FE1EDu
#define JPX_FIELD_COLR_JAB_RJ 0x48144550u
#define JPX_FIELD_COLR_JAB_OJ 0x48609003u
#define JPX_FIELD_COLR_JAB_RA 0x4814455Bu
#define JPX_FIELD_COLR_JAB_OA 0x48609008u
#define JPX_FIELD_COLR_JAB_RB 0x48144558u
#define JPX_FIELD_COLR_JAB_OB 0x4860900Bu
#define JPX_FIELD_COLR_ICC 0x3DFEE9E0u
#define JPX_FIELD_COLR_UUID 0x20BBC27Bu
#define JPX_FIELD_COLR_VENDOR_DATA 0x66914D74u

/* resc and resd: capture and default display resolution (15444-1, I.5.3.7). */
#define JPX_FIELD_RESC_VR_N 0xC933A5B0u
#define JPX_FIELD_RESC_VR_D 0xC933A5BAu
#define JPX_FIELD_RESC_VR_E 0xC933A5BBu
#define JPX_FIELD_RESC_HR_N 0x2475C5EAu
#define JPX_FIELD_RESC_HR_D 0x2475C5E0u
#define JPX_FIELD_RESC_HR_E 0x2475C5E1u

/* pclr: palette (15444-1, I.5.3.4). */
#define JPX_FIELD_PCLR_NE 0x7AE0D246u
#define JPX_FIELD_PCLR_NPC 0x713656C3u
#define JPX_FIELD_PCLR_B 0x7A29B68Eu
#define JPX_FIELD_PCLR_C 0x9FC386B4u

/* cmap: component mapping (15444-1, I.5.3.5). */
#define JPX_FIELD_CMAP_CMP 0xC9A5D068u
#define JPX_FIELD_CMAP_MTYP 0xD4B93F61u
#define JPX_FIELD_CMAP_PCOL 0x159E219Bu

/* cdef: channel definition (15444-1, I.5.3.6). */
#define JPX_FIELD_CDEF_N 0x37A268EFu
#define JPX_FIELD_CDEF_Cn 0x94AE9969u
#define JPX_FIELD_CDEF_Typ 0xBFBCA9C4u
#define JPX_FIELD_CDEF_Asoc 0x203F6F46u

/* opct: opacity (15444-2, M.11). */
#define JPX_FIELD_OPCT_OTyp 0x18F10EE6u
#define JPX_FIELD_OPCT_nch 0xF0113FC8u
#define JPX_FIELD_OPCT_Cv 0xC9EF5CE3u

/* rreq: reader requirements (15444-2, M.11). */
#define JPX_FIELD_RREQ_ML 0xEF905DA7u
#define JPX_FIELD_RREQ_FUAM 0xB713AA5Fu
#define JPX_FIELD_RREQ_DCM 0x3C56DCDDu
#define JPX_FIELD_RREQ_NSF 0x3F0A4620u
#define JPX_FIELD_RREQ_SF 0x177A2D49u
#define JPX_FIELD_RREQ_SM 0x17C678F8u
#define JPX_FIELD_RREQ_NVF 0x3F380D6Fu
#define JPX_FIELD_RREQ_VM 0x9D93D289u
#define JPX_FIELD_RREQ_VF 0x9DE01E38u

/* copt: composition options (15444-2, M.11). */
#define JPX_FIELD_COPT_HEIGHT 0x50F1F369u
#define JPX_FIELD_COPT_WIDTH 0xFDB9626Bu
#define JPX_FIELD_COPT_LOOP 0xBA8399D4u

/* creg: codestream registration (15444-2, M.11). */
#define JPX_FIELD_CREG_XS 0x21E54414u
#define JPX_FIELD_CREG_YS 0x21D60257u
#define JPX_FIELD_CREG_CDN 0x48CAB65Fu
#define JPX_FIELD_CREG_XR 0xF6980E3Fu
#define JPX_FIELD_CREG_YR 0x29759B3Au
#define JPX_FIELD_CREG_XO 0xF8340B28u
#define JPX_FIELD_CREG_YO 0x2B301CA1u

/* inst: instruction set (15444-2, M.11). */
#define JPX_FIELD_INST_Ityp 0xBBB4752Cu
#define JPX_FIELD_INST_REPT 0xB38F8847u
#define JPX_FIELD_INST_TICK 0x87749093u
#define JPX_FIELD_INST_XO 0xBED13A0Du
#define JPX_FIELD_INST_YO 0xBEE07CC2u
#define JPX_FIELD_INST_WIDTH 0x72171E15u
#define JPX_FIELD_INST_HEIGHT 0x4CF3937Bu
#define JPX_FIELD_INST_PERSIST 0x800F716Fu
#define JPX_FIELD_INST_LIFE 0x1C756676u
#define JPX_FIELD_INST_NEXT_USE 0x66C41C23u
#define JPX_FIELD_INST_XC 0xBED13A01u
#define JPX_FIELD_INST_YC 0xBEE07CCEu
#define JPX_FIELD_INST_WC 0xBF791360u
#define JPX_FIELD_INST_HC 0xBDDD1671u

/* flst: fragment list (15444-2, M.11). */
#define JPX_FIELD_FLST_OFF 0x22E992C9u
#define JPX_FIELD_FLST_LEN 0xADA384D7u
#define JPX_FIELD_FLST_DR 0xD961173Bu

/* cref: cross-reference (15444-2, M.11). */
#define JPX_FIELD_CREF_RTYP 0xC6E626A7u

/* url : data entry URL (15444-1, I.7.3.2). */
#define JPX_FIELD_URL_VERS 0x5B6F1674u
#define JPX_FIELD_URL_FLAG 0xDA9790FCu
#define JPX_FIELD_URL_LOC 0x8745EFA3u

/* nlst: number list (15444-2, M.11). */
#define JPX_FIELD_NLST_AN 0x1890C10Eu

/* roid: region of interest description (15444-2, M.11). */
#define JPX_FIELD_ROID_RI 0xF9AD3683u
#define JPX_FIELD_ROID_RTYP 0x08030EB1u
#define JPX_FIELD_ROID_RCP 0x7DF5378Au
#define JPX_FIELD_ROID_RLCX 0x337CACEBu
#define JPX_FIELD_ROID_RLCY 0x336D6A2Cu
#define JPX_FIELD_ROID_RWDT 0xDBBA51A5u
#define JPX_FIELD_ROID_RHT 0xF980B220u

/* ulst: UUID list (15444-1, I.7.3.1). */
#define JPX_FIELD_ULST_NU 0x648DC597u
#define JPX_FIELD_ULST_ID 0x892F88DBu

/* uuid: UUID (15444-1, I.7.2). */
#define JPX_FIELD_UUID_DATA 0x0CA96D93u
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
