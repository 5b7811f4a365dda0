/*
 * The C++17 interface of libkvjpx: a thin, header-only layer over kvjpx.h that needs nothing but
 * the standard library, with or without exceptions and run-time type information.
 *
 * A kvjpx::document owns a file; a kvjpx::box is a light handle to one box of it (two words, copied
 * freely, no memory of its own). Whatever hands out bytes hands out a kvjpx::block, which can be
 * moved, not copied, and gives its bytes back. What can fail returns a kvjpx::result, to be asked
 * (`if (!r) ... r.error()`) or insisted on (`r.value()`, which throws a kvjpx::error, or ends the
 * process with a message where there are no exceptions).
 *
 * Boxes, ranges and blocks refer to their document: it must outlive them; moving it is fine. One
 * thread uses a document at a time. After an ending error (kvjpx.h says which these are) a document
 * has no boxes any more and its blocks are gone; every call on it then answers JPX_ERR_NO_INPUT.
 *
 * Costs are those of kvjpx.h: finding a box by identifier, its neighbours, its fields and its place
 * takes constant time, the next of a type logarithmic time. Where something costs more it says so.
 */
#ifndef KVJPX_HPP_
#define KVJPX_HPP_

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "kvjpx.h"

// Code with exceptions and code without can meet in one program, so they must not share the
// functions that differ in that.
#if defined(__cpp_exceptions)
#define KVJPX_HPP_VERSION v1
#else
#define KVJPX_HPP_VERSION v1_without_exceptions
#endif

namespace kvjpx {
inline namespace KVJPX_HPP_VERSION {

/* ------------------------------------------------------------------------------------ Box types */

/** A four-character code, such as the type of a box. A short one is filled up with blanks, so
 *  type("url") is type("url "). Made at compile time from a literal. */
class type {
 public:
  /** The root's type, and that of no box. */
  constexpr type() = default;
  constexpr explicit type(uint32_t code) : code_(code) {}
  /** From a literal of one to four characters; not explicit, so that "jp2h" serves for a type. */
  template <size_t Size>
  constexpr type(const char (&text)[Size]) : code_(0) {  // NOLINT(google-explicit-constructor)
    static_assert(Size >= 2 && Size <= 5, "a box type has one to four characters");
    for (size_t i = 0; i < 4; ++i) {
      code_ = code_ << 8 | static_cast<unsigned char>(i + 1 < Size ? text[i] : ' ');
    }
  }

  constexpr uint32_t code() const { return code_; }

  /** The printable form that paths use: trailing blanks are left out; characters that cannot be
   *  printed, blanks and those of "/[].#%-=" come as % and two hexadecimal digits. */
  std::string name() const {
    char name[longest_name];
    return {name, put_name(name)};
  }
  /** Writes that form to where there is room for longest_name characters, without a zero behind
   *  it; returns its length. */
  size_t put_name(char* name) const {
    size_t length = 4;
    while (length > 1 && character(length - 1) == ' ') --length;
    size_t size = 0;
    for (size_t i = 0; i < length; ++i) {
      const unsigned char c = character(i);
      const bool is_word = (c >= '0' && c <= '9') || ((c | 32) >= 'a' && (c | 32) <= 'z');
      if (is_word ||
          (c > ' ' && c <= '~' &&
           std::string_view("/[].#%-=").find(static_cast<char>(c)) == std::string_view::npos)) {
        name[size++] = static_cast<char>(c);
      } else {
        const char digits[] = "0123456789abcdef";
        name[size++] = '%';
        name[size++] = digits[c >> 4];
        name[size++] = digits[c & 15];
      }
    }
    return size;
  }
  /** Characters of the longest name. */
  static constexpr size_t longest_name = 12;

  /** Reads that form; nothing when it is not the name of a type. */
  static std::optional<type> parse(std::string_view name) {
    uint32_t code = 0;
    int count = 0;
    for (size_t i = 0; i < name.size(); ++i, ++count) {
      auto c = static_cast<unsigned char>(name[i]);
      if (c == '%') {
        if (name.size() - i < 3) return std::nullopt;
        const char* const digits = name.data() + i + 1;
        const auto read = std::from_chars(digits, digits + 2, c, 16);
        if (read.ec != std::errc() || read.ptr != digits + 2) return std::nullopt;
        i += 2;
      }
      code = code << 8 | c;
    }
    if (count < 1 || count > 4) return std::nullopt;
    for (; count < 4; ++count) code = code << 8 | ' ';
    return type(code);
  }

  friend constexpr bool operator==(type a, type b) { return a.code_ == b.code_; }
  friend constexpr bool operator!=(type a, type b) { return a.code_ != b.code_; }
  friend constexpr bool operator<(type a, type b) { return a.code_ < b.code_; }

 private:
  constexpr unsigned char character(size_t i) const {
    return static_cast<unsigned char>(code_ >> (24 - 8 * i));
  }

  uint32_t code_ = KV_JPX_ROOT;
};

/* ------------------------------------------------------------------------------ Errors, results */

/** What went wrong. Owns its sentence, so it outlives the document. */
class error : public std::exception {
 public:
  error() = default;
  error(int32_t code, std::string text, uint32_t box_id = KV_JPX_ROOT, type box_type = {},
        uint64_t offset = UINT64_MAX)
      : code_(code),
        box_id_(box_id),
        box_type_(box_type),
        offset_(offset),
        text_(std::move(text)) {}

  /** A kv_jpx_error; JPX_OK for an error that is none. */
  int32_t code() const { return code_; }
  /** The box that it is about; KV_JPX_ROOT when there is none. */
  uint32_t box_id() const { return box_id_; }
  /** Its type; type() when there is none. */
  kvjpx::type box_type() const { return box_type_; }
  /** Where in the input it was noticed, in bytes; UINT64_MAX when that is not known. */
  uint64_t offset() const { return offset_; }
  /** The library's sentence, in English. */
  const std::string& text() const { return text_; }
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  int32_t code_ = JPX_OK;
  uint32_t box_id_ = KV_JPX_ROOT;
  kvjpx::type box_type_;
  uint64_t offset_ = UINT64_MAX;
  std::string text_;
};

namespace detail {

[[noreturn]] inline void fail(const error& reason) {
#if defined(__cpp_exceptions)
  throw error(reason);
#else
  std::fprintf(stderr, "kvjpx: %s\n", reason.what());
  std::abort();
#endif
}

inline const error& no_error() {
  static const error none;
  return none;
}

}  // namespace detail

/**
 * A value, or the error that stands in its place. Moves, does not copy. A success costs nothing
 * beside its value.
 *
 * value() insists: where there is an error it throws it, or, compiled without exceptions, prints
 * its sentence on standard error and aborts. operator* and operator-> do not check.
 */
template <class T>
class [[nodiscard]] result {
 public:
  result(T value) : value_(std::move(value)) {}  // NOLINT(google-explicit-constructor)
  result(kvjpx::error reason)                    // NOLINT(google-explicit-constructor)
      : error_(std::make_unique<kvjpx::error>(std::move(reason))) {}

  bool has_value() const { return value_.has_value(); }
  explicit operator bool() const { return has_value(); }
  /** JPX_OK, or the error's code. */
  int32_t code() const { return error().code(); }
  /** One with code JPX_OK where there is a value. */
  const kvjpx::error& error() const { return error_ ? *error_ : detail::no_error(); }

  T& value() & {
    if (!has_value()) detail::fail(error());
    return *value_;
  }
  const T& value() const& {
    if (!has_value()) detail::fail(error());
    return *value_;
  }
  T value() && {
    if (!has_value()) detail::fail(error());
    return std::move(*value_);
  }
  T value_or(T other) && { return has_value() ? std::move(*value_) : std::move(other); }

  T& operator*() & { return *value_; }
  const T& operator*() const& { return *value_; }
  T operator*() && { return std::move(*value_); }
  T* operator->() { return &*value_; }
  const T* operator->() const { return &*value_; }

 private:
  std::optional<T> value_;
  std::unique_ptr<kvjpx::error> error_;
};

/** The same for what has no value to give. */
template <>
class [[nodiscard]] result<void> {
 public:
  result() = default;
  result(kvjpx::error reason)  // NOLINT(google-explicit-constructor)
      : error_(std::make_unique<kvjpx::error>(std::move(reason))) {}

  bool has_value() const { return error_ == nullptr; }
  explicit operator bool() const { return has_value(); }
  int32_t code() const { return error().code(); }
  const kvjpx::error& error() const { return error_ ? *error_ : detail::no_error(); }
  void value() const {
    if (!has_value()) detail::fail(error());
  }

 private:
  std::unique_ptr<kvjpx::error> error_;
};

/* ---------------------------------------------------------------------------------------- Bytes */

/** Bytes that belong to somebody else: a pointer and a length. */
class byte_view {
 public:
  constexpr byte_view() = default;
  constexpr byte_view(const void* data, size_t size) : data_(data), size_(size) {}
  /** Of anything contiguous with elements of one byte: strings, vectors and arrays of bytes. */
  template <class Bytes,
            class Element = std::remove_pointer_t<decltype(std::declval<const Bytes&>().data())>,
            class = std::enable_if_t<sizeof(Element) == 1>>
  constexpr byte_view(const Bytes& bytes)  // NOLINT(google-explicit-constructor)
      : data_(bytes.data()), size_(bytes.size()) {}

  const uint8_t* data() const { return static_cast<const uint8_t*>(data_); }
  constexpr size_t size() const { return size_; }
  constexpr bool empty() const { return size_ == 0; }
  const uint8_t* begin() const { return data(); }
  const uint8_t* end() const { return data() + size_; }
  uint8_t operator[](size_t index) const { return data()[index]; }
  /** A part, cut to what is there. */
  byte_view part(uint64_t offset, uint64_t length = UINT64_MAX) const {
    const uint64_t first = std::min<uint64_t>(offset, size_);
    return {data() + first, static_cast<size_t>(std::min<uint64_t>(length, size_ - first))};
  }
  /** The same bytes as characters. */
  std::string_view text() const { return {static_cast<const char*>(data_), size_}; }

 private:
  const void* data_ = "";
  size_t size_ = 0;
};

namespace detail {

// What the handles of a document point to; it stays in its place when the document is moved.
struct state {
  explicit state(kv_jpx_context* live) : context(live) {}
  state(const state&) = delete;
  state& operator=(const state&) = delete;
  ~state() { kv_jpx_destroy(context); }

  kv_jpx_context* context;
  std::optional<byte_view> source;
};

struct block_deleter {
  kv_jpx_context* context = nullptr;
  void operator()(void* data) const { kv_jpx_free(context, data); }
};

// The error that a call has just returned. Its box stands in for one that the library did not note.
inline error last_error(kv_jpx_context* context, int32_t code, uint32_t id = KV_JPX_ROOT) {
  kv_jpx_error_info info = {};
  info.size = sizeof info;
  if (kv_jpx_get_last_error(context, &info) != JPX_OK || info.code != code) {
    return error(code, kv_jpx_get_error_text(code), id);
  }
  error noted(code, info.text, info.box_id, type(info.box_type), info.offset);
  if (info.box_id != KV_JPX_ROOT || id == KV_JPX_ROOT) return noted;
  uint32_t box_type = KV_JPX_ROOT;
  kv_jpx_get_box_type_by_id(context, id, &box_type);
  return error(code, noted.text(), id, type(box_type), noted.offset());
}

inline result<void> outcome(kv_jpx_context* context, int32_t code, uint32_t id = KV_JPX_ROOT) {
  if (code != JPX_OK) return last_error(context, code, id);
  return {};
}

}  // namespace detail

/** Bytes that the library has handed out, given back (kv_jpx_free) with their block; or, where
 *  they could be had without a copy, a view into the bytes of document::set_source. Moves, does not
 *  copy. Goes before its document does. */
class block {
 public:
  block() = default;
  /** Takes over what a C function has allocated in this context. */
  block(kv_jpx_context* context, void* data, uint64_t size)
      : data_(data, detail::block_deleter{context}),
        view_(data != nullptr ? byte_view(data, static_cast<size_t>(size)) : byte_view()) {}
  /** Owns nothing. */
  explicit block(byte_view borrowed) : view_(borrowed) {}

  /** All of them; the members below are those of this view. */
  byte_view bytes() const { return view_; }
  /** The first byte; null where there are none. */
  const uint8_t* data() const { return view_.data(); }
  /** Number of bytes. */
  size_t size() const { return view_.size(); }
  /** Whether there are none. */
  bool empty() const { return view_.empty(); }
  /** The first byte, for loops. */
  const uint8_t* begin() const { return view_.begin(); }
  /** Behind the last byte. */
  const uint8_t* end() const { return view_.end(); }
  /** A byte; the index is not checked. */
  uint8_t operator[](size_t index) const { return view_[index]; }
  /** The bytes as characters. */
  std::string_view text() const { return view_.text(); }
  /** Whether the bytes are a copy of the library's, and not a view. */
  bool is_owned() const { return data_ != nullptr; }

 private:
  std::unique_ptr<void, detail::block_deleter> data_;
  byte_view view_;
};

/* --------------------------------------------------------------------------------------- Fields */

namespace detail {

constexpr uint32_t kNumber = KV_JPX_FIELD_INTEGER;
constexpr uint32_t kNumbers = KV_JPX_FIELD_INTEGER | KV_JPX_FIELD_REPEATS;
constexpr uint32_t kNumbersOrBytes = kNumbers | KV_JPX_FIELD_BYTES;
constexpr uint32_t kBytes = KV_JPX_FIELD_BYTES;
constexpr uint32_t kByteEntries = KV_JPX_FIELD_BYTES | KV_JPX_FIELD_REPEATS;
constexpr uint32_t kCountOnly = KV_JPX_FIELD_REPEATS;

// What is known of a field at compile time. Value is the type of its numbers.
template <uint32_t Key, uint32_t Width, uint32_t Access, class Value>
struct field {
  using value_type = Value;
  static constexpr uint32_t key = Key;
  static constexpr uint32_t width = Width;
  static constexpr bool is_number = (Access & KV_JPX_FIELD_INTEGER) != 0;
  static constexpr bool is_bytes = (Access & KV_JPX_FIELD_BYTES) != 0;
  static constexpr bool repeats = (Access & KV_JPX_FIELD_REPEATS) != 0;
};

// The type that numbers are set in: wide enough that none is cut on its way to the check.
template <class Value>
using wide = std::conditional_t<std::is_signed_v<Value>, int64_t, uint64_t>;

}  // namespace detail

// Namespace and name here; prefix and name of the key in kvjpx_fields.h; width in bytes; access.
// clang-format off
#define KVJPX_FIELDS_OF_ALL_BOXES(F) \
  F(ftyp,   br,          FTYP, BR,          4,  kNumber,         uint32_t) \
  F(ftyp,   minv,        FTYP, MinV,        4,  kNumber,         uint32_t) \
  F(ftyp,   cl,          FTYP, CL,          4,  kNumbers,        uint32_t) \
  F(rreq,   ml,          RREQ, ML,          4,  kNumber,         uint32_t) \
  F(rreq,   fuam,        RREQ, FUAM,        8,  kNumber,         uint64_t) \
  F(rreq,   dcm,         RREQ, DCM,         8,  kNumber,         uint64_t) \
  F(rreq,   nsf,         RREQ, NSF,         2,  kNumber,         uint16_t) \
  F(rreq,   sf,          RREQ, SF,          2,  kNumbers,        uint16_t) \
  F(rreq,   sm,          RREQ, SM,          8,  kNumbers,        uint64_t) \
  F(rreq,   nvf,         RREQ, NVF,         2,  kNumber,         uint16_t) \
  F(rreq,   vm,          RREQ, VM,          8,  kNumbers,        uint64_t) \
  F(rreq,   vf,          RREQ, VF,          16, kCountOnly,      uint8_t) \
  F(ihdr,   height,      IHDR, HEIGHT,      4,  kNumber,         uint32_t) \
  F(ihdr,   width,       IHDR, WIDTH,       4,  kNumber,         uint32_t) \
  F(ihdr,   nc,          IHDR, NC,          2,  kNumber,         uint16_t) \
  F(ihdr,   bpc,         IHDR, BPC,         1,  kNumber,         uint8_t) \
  F(ihdr,   c,           IHDR, C,           1,  kNumber,         uint8_t) \
  F(ihdr,   unkc,        IHDR, UnkC,        1,  kNumber,         uint8_t) \
  F(ihdr,   ipr,         IHDR, IPR,         1,  kNumber,         uint8_t) \
  F(bpcc,   bpc,         BPCC, BPC,         1,  kNumbersOrBytes, uint8_t) \
  F(colr,   meth,        COLR, METH,        1,  kNumber,         uint8_t) \
  F(colr,   prec,        COLR, PREC,        1,  kNumber,         int8_t) \
  F(colr,   approx,      COLR, APPROX,      1,  kNumber,         uint8_t) \
  F(colr,   enumcs,      COLR, EnumCS,      4,  kNumber,         uint32_t) \
  F(colr,   rl,          COLR, RL,          4,  kNumber,         uint32_t) \
  F(colr,   ol,          COLR, OL,          4,  kNumber,         uint32_t) \
  F(colr,   ra,          COLR, RA,          4,  kNumber,         uint32_t) \
  F(colr,   oa,          COLR, OA,          4,  kNumber,         uint32_t) \
  F(colr,   rb,          COLR, RB,          4,  kNumber,         uint32_t) \
  F(colr,   ob,          COLR, OB,          4,  kNumber,         uint32_t) \
  F(colr,   il,          COLR, IL,          4,  kNumber,         uint32_t) \
  F(colr,   jab_rj,      COLR, JAB_RJ,      4,  kNumber,         uint32_t) \
  F(colr,   jab_oj,      COLR, JAB_OJ,      4,  kNumber,         uint32_t) \
  F(colr,   jab_ra,      COLR, JAB_RA,      4,  kNumber,         uint32_t) \
  F(colr,   jab_oa,      COLR, JAB_OA,      4,  kNumber,         uint32_t) \
  F(colr,   jab_rb,      COLR, JAB_RB,      4,  kNumber,         uint32_t) \
  F(colr,   jab_ob,      COLR, JAB_OB,      4,  kNumber,         uint32_t) \
  F(colr,   icc,         COLR, ICC,         1,  kBytes,          uint8_t) \
  F(colr,   uuid,        COLR, UUID,        16, kBytes,          uint8_t) \
  F(colr,   vendor_data, COLR, VENDOR_DATA, 1,  kBytes,          uint8_t) \
  F(pclr,   ne,          PCLR, NE,          2,  kNumber,         uint16_t) \
  F(pclr,   npc,         PCLR, NPC,         1,  kNumber,         uint8_t) \
  F(pclr,   b,           PCLR, B,           1,  kNumbersOrBytes, uint8_t) \
  F(pclr,   c,           PCLR, C,           4,  kNumbersOrBytes, uint32_t) \
  F(cmap,   cmp,         CMAP, CMP,         2,  kNumbers,        uint16_t) \
  F(cmap,   mtyp,        CMAP, MTYP,        1,  kNumbers,        uint8_t) \
  F(cmap,   pcol,        CMAP, PCOL,        1,  kNumbers,        uint8_t) \
  F(cdef,   n,           CDEF, N,           2,  kNumber,         uint16_t) \
  F(cdef,   cn,          CDEF, Cn,          2,  kNumbers,        uint16_t) \
  F(cdef,   typ,         CDEF, Typ,         2,  kNumbers,        uint16_t) \
  F(cdef,   asoc,        CDEF, Asoc,        2,  kNumbers,        uint16_t) \
  F(resc,   vr_n,        RESC, VR_N,        2,  kNumber,         uint16_t) \
  F(resc,   vr_d,        RESC, VR_D,        2,  kNumber,         uint16_t) \
  F(resc,   hr_n,        RESC, HR_N,        2,  kNumber,         uint16_t) \
  F(resc,   hr_d,        RESC, HR_D,        2,  kNumber,         uint16_t) \
  F(resc,   vr_e,        RESC, VR_E,        1,  kNumber,         int8_t) \
  F(resc,   hr_e,        RESC, HR_E,        1,  kNumber,         int8_t) \
  F(resd,   vr_n,        RESC, VR_N,        2,  kNumber,         uint16_t) \
  F(resd,   vr_d,        RESC, VR_D,        2,  kNumber,         uint16_t) \
  F(resd,   hr_n,        RESC, HR_N,        2,  kNumber,         uint16_t) \
  F(resd,   hr_d,        RESC, HR_D,        2,  kNumber,         uint16_t) \
  F(resd,   vr_e,        RESC, VR_E,        1,  kNumber,         int8_t) \
  F(resd,   hr_e,        RESC, HR_E,        1,  kNumber,         int8_t) \
  F(opct,   otyp,        OPCT, OTyp,        1,  kNumber,         uint8_t) \
  F(opct,   nch,         OPCT, nch,         1,  kNumber,         uint8_t) \
  F(opct,   cv,          OPCT, Cv,          8,  kNumbersOrBytes, uint64_t) \
  F(creg,   xs,          CREG, XS,          2,  kNumber,         uint16_t) \
  F(creg,   ys,          CREG, YS,          2,  kNumber,         uint16_t) \
  F(creg,   cdn,         CREG, CDN,         2,  kNumbers,        uint16_t) \
  F(creg,   xr,          CREG, XR,          1,  kNumbers,        uint8_t) \
  F(creg,   yr,          CREG, YR,          1,  kNumbers,        uint8_t) \
  F(creg,   xo,          CREG, XO,          1,  kNumbers,        uint8_t) \
  F(creg,   yo,          CREG, YO,          1,  kNumbers,        uint8_t) \
  F(copt,   height,      COPT, HEIGHT,      4,  kNumber,         uint32_t) \
  F(copt,   width,       COPT, WIDTH,       4,  kNumber,         uint32_t) \
  F(copt,   loop,        COPT, LOOP,        1,  kNumber,         uint8_t) \
  F(inst,   ityp,        INST, Ityp,        2,  kNumber,         uint16_t) \
  F(inst,   rept,        INST, REPT,        2,  kNumber,         uint16_t) \
  F(inst,   tick,        INST, TICK,        4,  kNumber,         uint32_t) \
  F(inst,   xo,          INST, XO,          4,  kNumbers,        uint32_t) \
  F(inst,   yo,          INST, YO,          4,  kNumbers,        uint32_t) \
  F(inst,   width,       INST, WIDTH,       4,  kNumbers,        uint32_t) \
  F(inst,   height,      INST, HEIGHT,      4,  kNumbers,        uint32_t) \
  F(inst,   persist,     INST, PERSIST,     1,  kNumbers,        uint8_t) \
  F(inst,   life,        INST, LIFE,        4,  kNumbers,        uint32_t) \
  F(inst,   next_use,    INST, NEXT_USE,    4,  kNumbers,        uint32_t) \
  F(inst,   xc,          INST, XC,          4,  kNumbers,        uint32_t) \
  F(inst,   yc,          INST, YC,          4,  kNumbers,        uint32_t) \
  F(inst,   wc,          INST, WC,          4,  kNumbers,        uint32_t) \
  F(inst,   hc,          INST, HC,          4,  kNumbers,        uint32_t) \
  F(flst,   off,         FLST, OFF,         8,  kNumbers,        uint64_t) \
  F(flst,   len,         FLST, LEN,         4,  kNumbers,        uint32_t) \
  F(flst,   dr,          FLST, DR,          2,  kNumbers,        uint16_t) \
  F(cref,   rtyp,        CREF, RTYP,        4,  kNumber,         uint32_t) \
  F(url,    vers,        URL,  VERS,        1,  kNumber,         uint8_t) \
  F(url,    flag,        URL,  FLAG,        3,  kNumber,         uint32_t) \
  F(url,    loc,         URL,  LOC,         1,  kBytes,          uint8_t) \
  F(nlst,   an,          NLST, AN,          4,  kNumbersOrBytes, uint32_t) \
  F(roid,   ri,          ROID, RI,          1,  kNumbers,        uint8_t) \
  F(roid,   rtyp,        ROID, RTYP,        1,  kNumbers,        uint8_t) \
  F(roid,   rcp,         ROID, RCP,         1,  kNumbers,        uint8_t) \
  F(roid,   rlcx,        ROID, RLCX,        4,  kNumbers,        uint32_t) \
  F(roid,   rlcy,        ROID, RLCY,        4,  kNumbers,        uint32_t) \
  F(roid,   rwdt,        ROID, RWDT,        4,  kNumbers,        uint32_t) \
  F(roid,   rht,         ROID, RHT,         4,  kNumbers,        uint32_t) \
  F(uuid,   id,          UUID, ID,          16, kBytes,          uint8_t) \
  F(uuid,   data,        UUID, DATA,        1,  kBytes,          uint8_t) \
  F(ulst,   nu,          ULST, NU,          2,  kNumber,         uint16_t) \
  F(ulst,   id,          ULST, ID,          16, kByteEntries,    uint8_t) \
  F(opaque, data,        JP2C, DATA,        1,  kBytes,          uint8_t)
// clang-format on

// Fields by box type: kvjpx::ihdr::width is JPX_FIELD_IHDR_WIDTH, of which kvjpx_fields.h tells the
// meaning and the range. kvjpx::opaque::data is the payload of every box that has no fields.
#define KVJPX_DEFINE_FIELD(box, field_name, prefix, name, width, access, value)                    \
  namespace box {                                                                                  \
  struct field_name                                                                                \
      : kvjpx::detail::field<JPX_FIELD_##prefix##_##name, width, kvjpx::detail::access, value> {}; \
  }
KVJPX_FIELDS_OF_ALL_BOXES(KVJPX_DEFINE_FIELD)
#undef KVJPX_DEFINE_FIELD

/** A row of field_table: what this header says of a field. */
struct field_row {
  const char* box;   /**< namespace: the type without trailing blanks, or "opaque" */
  const char* field; /**< name of the struct */
  const char* name;  /**< as in kv_jpx_field_info, as the other members */
  uint32_t key;
  uint32_t width;
  uint32_t access;
};

/** All fields above, in the order of kv_jpx_get_field_info. */
inline constexpr field_row field_table[] = {
#define KVJPX_FIELD_ROW(box, field_name, prefix, name, width, access, value) \
  {#box, #field_name, #name, JPX_FIELD_##prefix##_##name, width, detail::access},
    KVJPX_FIELDS_OF_ALL_BOXES(KVJPX_FIELD_ROW)
#undef KVJPX_FIELD_ROW
};
#undef KVJPX_FIELDS_OF_ALL_BOXES

/** The library's own table, for programs that learn of fields at run time: rows by number, from 0
 * on; nothing behind the last. Takes time in proportion to the number of box types. */
inline std::optional<kv_jpx_field_info> field_info(uint32_t index) {
  kv_jpx_field_info info = {};
  info.size = sizeof info;
  if (kv_jpx_get_field_info(index, &info) != JPX_OK) return std::nullopt;
  return info;
}

/** The fields that boxes of a type can have: those of the type, then the payload of opaque boxes.
 *  Which of them one box has now, box::count and box::get tell. */
inline std::vector<kv_jpx_field_info> fields_of(type box_type) {
  std::vector<kv_jpx_field_info> fields;
  for (const uint32_t wanted : {box_type.code(), uint32_t{0}}) {
    for (uint32_t i = 0; const auto info = field_info(i); ++i) {
      if (info->box_type == wanted) fields.push_back(*info);
    }
  }
  return fields;
}

/* ---------------------------------------------------------------------------------------- Boxes */

class child_range;
class walk_range;

/** Where a box stands in the input it was read from; all numbers in bytes. */
struct extent {
  uint32_t flags = 0;          /**< bits of kv_jpx_box_flags */
  uint64_t offset = 0;         /**< of the header */
  uint64_t header_length = 0;  /**< 0 for the root */
  uint64_t content_length = 0; /**< as far as it is there */
  uint64_t tail_length = 0;    /**< end of a container's content that belongs to no box */

  uint64_t content_offset() const { return offset + header_length; }
  uint64_t end() const { return content_offset() + content_length; }
};

/**
 * A handle to a box of a document, or to none. It is a document and an identifier: cheap to copy,
 * changed by nothing, and still safe when its box is gone: then exists() is false and calls answer
 * JPX_ERR_INVALID_ARGUMENT, for identifiers are not used again.
 */
class box {
 public:
  /** No box. Of its members only operator bool and the comparisons may be used. */
  box() = default;
  /** What documents make; ask them: document::by_id. */
  box(const detail::state* document, uint32_t id) : document_(document), id_(id) {}

  /** Whether this is a box, the root included. */
  explicit operator bool() const { return document_ != nullptr; }
  friend bool operator==(box a, box b) { return a.document_ == b.document_ && a.id_ == b.id_; }
  friend bool operator!=(box a, box b) { return !(a == b); }

  /** Identifier; KV_JPX_ROOT for the root. */
  uint32_t id() const { return id_; }
  /** For functions of kvjpx.h. */
  kv_jpx_context* context() const { return document_->context; }
  /** Whether it is the root, which stands for the file and has no header. */
  bool is_root() const { return id_ == KV_JPX_ROOT; }
  /** Whether the document has this box still. */
  bool exists() const {
    uint32_t found = 0;
    return kv_jpx_get_box_type_by_id(context(), id_, &found) == JPX_OK;
  }
  /** type() for the root, and for a box that is gone. */
  kvjpx::type type() const {
    uint32_t code = KV_JPX_ROOT;
    kv_jpx_get_box_type_by_id(context(), id_, &code);
    return kvjpx::type(code);
  }
  /** Whether it holds boxes, or could. */
  bool is_container() const {
    uint8_t answer = 0;
    return kv_jpx_is_box_super(context(), id_, &answer) == JPX_OK && answer != 0;
  }

  /** The container it stands in; no box for the root. */
  box parent() const {
    uint32_t id = KV_JPX_ROOT;
    if (kv_jpx_get_parent_box_id(context(), id_, &id) != JPX_OK) return {};
    return {document_, id};
  }
  /** The siblings beside it and the first box in it; no box where there is none. */
  box next() const { return neighbour(kv_jpx_get_next_box_id); }
  /** See next. */
  box previous() const { return neighbour(kv_jpx_get_previous_box_id); }
  /** See next. */
  box first_child() const { return neighbour(kv_jpx_get_first_child_box_id); }

  /** The boxes directly in it, in order; see child_range. */
  child_range children() const;
  /** All boxes below it, a container before its content; see walk_range. */
  walk_range descendants() const;
  /** The box of this type and number, from 0, among the boxes directly in it; no box when there is
   *  none. Takes time in proportion to the boxes in front. */
  box child(kvjpx::type wanted, uint64_t index = 0) const;
  /** The box at a path from here: "jp2h/ihdr", "asoc[1]/lbl", and "#17" from the root; "/" or ""
   *  is the box itself. An index counts from 0 among siblings of one type. Takes time in proportion
   *  to the boxes in front on each level; box_paths is for many. */
  result<box> find(std::string_view path) const;
  /** Its path from the root, with an index where a sibling has its type; "/" for the root, empty
   *  for a box that is gone. Takes time in proportion to the siblings on each level. */
  std::string path() const;

  /** Where it stood in the input; JPX_ERR_NO_SUCH_FIELD for a box that is not from there. */
  result<kvjpx::extent> extent() const {
    kv_jpx_box_extent found = {};
    found.size = sizeof found;
    if (const int32_t code = kv_jpx_get_box_extent(context(), id_, &found)) return failed(code);
    return kvjpx::extent{found.flags, found.offset, found.header_length, found.content_length,
                         found.tail_length};
  }

  /* Fields by their names, as in box.get<kvjpx::ihdr::width>(). All answer JPX_ERR_NO_SUCH_FIELD
   * when the box has no such field, or none now, or not so many entries. */

  /** A number. */
  template <class Field>
  result<typename Field::value_type> get() const {
    static_assert(!Field::repeats, "one of several entries: get<field>(index)");
    return number<Field>(0);
  }
  /** One entry of a field that repeats, from 0. */
  template <class Field>
  result<typename Field::value_type> get(uint64_t index) const {
    static_assert(Field::repeats, "the field has one entry: get<field>()");
    return number<Field>(index);
  }
  /** Changes a number; JPX_ERR_INVALID_ARGUMENT for one out of the field's range. */
  template <class Field>
  result<void> set(detail::wide<typename Field::value_type> value) const {
    static_assert(!Field::repeats, "one of several entries: set<field>(index, value)");
    return set_number<Field>(0, value);
  }
  /** Changes an entry that is there. */
  template <class Field>
  result<void> set(uint64_t index, detail::wide<typename Field::value_type> value) const {
    static_assert(Field::repeats, "the field has one entry: set<field>(value)");
    auto entries = count<Field>();
    if (!entries) return entries.error();
    if (index >= *entries) return refused(JPX_ERR_NO_SUCH_FIELD);
    return set_number<Field>(index, value);
  }
  /** Adds an entry; other fields of the same list get one, too. */
  template <class Field>
  result<void> append_entry(detail::wide<typename Field::value_type> value) const {
    static_assert(Field::repeats, "the field has one entry: set<field>(value)");
    auto entries = count<Field>();
    if (!entries) return entries.error();
    return set_number<Field>(*entries, value);
  }
  /** Entries of a field; bytes of one that is bytes. */
  template <class Field>
  result<uint64_t> count() const {
    return count(Field::key);
  }
  /** Gives a field another number of entries, as kv_jpx_set_box_field_count. */
  template <class Field>
  result<void> resize(uint64_t entries) const {
    static_assert(Field::repeats, "the field has one entry");
    return resize(Field::key, entries);
  }
  /** All entries, in a vector made for them. */
  template <class Field>
  result<std::vector<typename Field::value_type>> entries() const {
    static_assert(Field::repeats, "the field has one entry: get<field>()");
    auto found = count<Field>();
    if (!found) return found.error();
    std::vector<typename Field::value_type> values;
    values.reserve(static_cast<size_t>(*found));
    for (uint64_t i = 0; i < *found; ++i) {
      auto value = number<Field>(i);
      if (!value) return value.error();
      values.push_back(*value);
    }
    return values;
  }
  /** A field held as bytes: one block, allocated by the library. Numbers of several bytes in it are
   *  in the byte order of the machine. */
  template <class Field>
  result<block> bytes() const {
    static_assert(Field::is_bytes, "the field is numbers: get<field>()");
    return bytes(Field::key);
  }
  /** Replaces a field held as bytes by a copy of these. */
  template <class Field>
  result<void> set_bytes(byte_view value) const {
    static_assert(Field::is_bytes, "the field is numbers: set<field>()");
    return set_bytes(Field::key, value, Field::width);
  }

  /** A number by its key (JPX_FIELD_...). This and those below are for fields that are known at run
   *  time only. */
  result<uint64_t> get(uint32_t key, uint64_t index = 0) const {
    uint64_t value = 0;
    if (const int32_t code = kv_jpx_get_box_field_int(context(), id_, key, index, &value)) {
      return failed(code);
    }
    return value;
  }
  /** As kv_jpx_set_box_field_int: an index behind the last entry appends one. */
  result<void> set(uint32_t key, uint64_t index, uint64_t value) const {
    return outcome(kv_jpx_set_box_field_int(context(), id_, key, index, value));
  }
  /** Entries, or bytes of a field that is bytes. */
  result<uint64_t> count(uint32_t key) const {
    uint64_t entries = 0;
    if (const int32_t code = kv_jpx_get_box_field_count(context(), id_, key, &entries, nullptr)) {
      return failed(code);
    }
    return entries;
  }
  /** As kv_jpx_set_box_field_count. */
  result<void> resize(uint32_t key, uint64_t entries) const {
    return outcome(kv_jpx_set_box_field_count(context(), id_, key, entries));
  }
  /** A field held as bytes. */
  result<block> bytes(uint32_t key) const {
    uint64_t entries = 0;
    uint32_t size = 0;
    void* data = nullptr;
    if (const int32_t code =
            kv_jpx_get_box_field_buffer(context(), id_, key, &entries, &size, &data)) {
      return failed(code);
    }
    return block(context(), data, entries * size);
  }
  /** In entries of `width` bytes, or as single bytes where they do not come out even. */
  result<void> set_bytes(uint32_t key, byte_view value, uint32_t width = 1) const {
    const uint32_t size = width != 0 && value.size() % width == 0 ? width : 1;
    return outcome(
        kv_jpx_set_box_field_buffer(context(), id_, key, value.size() / size, size, value.data()));
  }

  /** The payload of an opaque box (JPX_ERR_NO_SUCH_FIELD for any other), or what stands behind the
   *  UUID in a uuid box. Of a box that is as it was read, in a document that knows its source
   *  (document::set_source), it is a view and costs nothing; else one block. */
  result<block> payload() const {
    auto length = count<opaque::data>();
    if (!length) return length.error();
    const auto unchanged = source_content();
    if (!unchanged || unchanged->size() < *length) return bytes<opaque::data>();
    return block(unchanged->part(unchanged->size() - *length));
  }
  /** Replaces what payload() tells by a copy of these bytes. */
  result<void> set_payload(byte_view value) const { return set_bytes<opaque::data>(value); }
  /** The bytes behind the header as they stood in the input, of whatever box: a view into the
   *  source. Nothing when the document knows no source, and for a box that has changed or is not
   *  from the input. */
  std::optional<byte_view> source_content() const {
    if (!document_->source) return std::nullopt;
    auto place = extent();
    if (!place || (place->flags & KV_JPX_BOX_CHANGED) != 0 ||
        place->end() > document_->source->size()) {
      return std::nullopt;
    }
    return document_->source->part(place->content_offset(), place->content_length);
  }

  /** Adds an empty box: as last or first box in this one, or beside it. All answer
   *  JPX_ERR_CANNOT_MAKE_BOX for a type that may not stand there, JPX_ERR_INVALID_ARGUMENT where
   *  this is no container or too deep, or is the root and nothing can stand beside it. */
  result<box> append(kvjpx::type type) const {
    uint32_t id = KV_JPX_ROOT;
    const int32_t code = kv_jpx_append_box(context(), type.code(), id_, &id);
    return added(code, id);
  }
  /** See append. */
  result<box> add_first(kvjpx::type type) const { return add(type, id_, KV_JPX_PLACE_FIRST_CHILD); }
  /** See append. */
  result<box> add_after(kvjpx::type type) const { return add(type, id_, KV_JPX_PLACE_AFTER); }
  /** See append. */
  result<box> add_before(kvjpx::type type) const {
    const box container = parent();
    // The library puts nothing before a first child by that name.
    if (container && !previous()) return container.add_first(type);
    return add(type, id_, KV_JPX_PLACE_BEFORE);
  }
  /** Moves the box with everything in it, as kv_jpx_move_box. */
  result<void> move(box reference, kv_jpx_placement placement) const {
    return outcome(kv_jpx_move_box(context(), id_, reference.id(), placement));
  }
  /** Replaces all that stands behind the header, as kv_jpx_set_box_content. */
  result<void> set_content(byte_view content) const {
    return outcome(kv_jpx_set_box_content(context(), id_, content.data(), content.size()));
  }
  /** Deletes the box with everything in it; JPX_ERR_INVALID_ARGUMENT for the root. */
  result<void> remove() const { return outcome(kv_jpx_delete_box(context(), id_)); }

 private:
  kvjpx::error failed(int32_t code) const { return detail::last_error(context(), code, id_); }
  result<void> outcome(int32_t code) const { return detail::outcome(context(), code, id_); }
  // What the library was not asked, as it would answer by itself.
  kvjpx::error refused(int32_t code) const {
    return {code, kv_jpx_get_error_text(code), id_, type()};
  }

  box neighbour(int32_t (*step)(kv_jpx_context*, uint32_t, uint32_t*)) const {
    uint32_t id = KV_JPX_ROOT;
    if (step(context(), id_, &id) != JPX_OK || id == KV_JPX_ROOT) return {};
    return {document_, id};
  }

  result<box> added(int32_t code, uint32_t id) const {
    if (code != JPX_OK) return failed(code);
    return box(document_, id);
  }
  result<box> add(kvjpx::type type, uint32_t reference, int32_t placement) const {
    uint32_t id = KV_JPX_ROOT;
    const int32_t code = kv_jpx_add_box(context(), type.code(), reference, placement, &id);
    return added(code, id);
  }

  template <class Field>
  result<typename Field::value_type> number(uint64_t index) const {
    static_assert(Field::is_number, "the field is bytes: bytes<field>()");
    auto value = get(Field::key, index);
    if (!value) return value.error();
    return static_cast<typename Field::value_type>(*value);
  }
  // Numbers that the field's type cannot hold do not reach the library, which keeps the low bits of
  // some of them.
  template <class Field>
  result<void> set_number(uint64_t index, detail::wide<typename Field::value_type> value) const {
    static_assert(Field::is_number, "the field is bytes: set_bytes<field>()");
    using limits = std::numeric_limits<typename Field::value_type>;
    if (value < limits::min() || value > limits::max()) return refused(JPX_ERR_INVALID_ARGUMENT);
    return set(Field::key, index, static_cast<uint64_t>(value));
  }

  friend class child_iterator;
  friend class box_paths;

  const detail::state* document_ = nullptr;
  uint32_t id_ = KV_JPX_ROOT;
};

/* --------------------------------------------------------------------------------------- Ranges */

/**
 * Goes over the boxes of one container. A step takes constant time.
 *
 * While it stands on a box, boxes of the container may be added and removed, the one it stands on
 * included, and it goes on with the next that is left; only when the box it stands on, the next one
 * and the last one passed that was still there are removed in one step, it ends. Boxes added
 * directly behind the one it stands on are not met.
 */
class child_iterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = box;
  using difference_type = std::ptrdiff_t;
  using pointer = const box*;
  using reference = const box&;

  /** The end. */
  child_iterator() = default;
  explicit child_iterator(box container) : container_(container) {
    stand_on(container.first_child());
  }

  const box& operator*() const { return current_; }
  const box* operator->() const { return &current_; }
  child_iterator& operator++() {
    if (current_.exists()) passed_ = current_;
    if (!stand_on(next_)) stand_on(passed_ ? passed_.next() : container_.first_child());
    return *this;
  }
  child_iterator operator++(int) {  // NOLINT(cert-dcl21-cpp)
    child_iterator old = *this;
    ++*this;
    return old;
  }
  friend bool operator==(const child_iterator& a, const child_iterator& b) {
    return a.current_ == b.current_;
  }
  friend bool operator!=(const child_iterator& a, const child_iterator& b) { return !(a == b); }

 private:
  // False for a box that is gone; that there is none is a place, too.
  bool stand_on(box place) {
    uint32_t id = KV_JPX_ROOT;
    if (place && kv_jpx_get_next_box_id(place.context(), place.id(), &id) != JPX_OK) {
      current_ = box();
      return false;
    }
    current_ = place;
    next_ = id != KV_JPX_ROOT ? box(place.document_, id) : box();
    return true;
  }

  box container_;
  box passed_;  // the last one that was still there when it was left
  box current_;
  box next_;
};

/** The boxes directly in a container, in order. */
class child_range {
 public:
  explicit child_range(box container) : container_(container) {}
  child_iterator begin() const { return child_iterator(container_); }
  child_iterator end() const { return {}; }

 private:
  box container_;
};

/**
 * Goes over all boxes below one, a container before its content. A step takes constant time, all
 * levels together; there is no recursion. Boxes may be added and removed meanwhile as for a
 * child_iterator; the boxes in one that is removed are not met.
 */
class walk_iterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = box;
  using difference_type = std::ptrdiff_t;
  using pointer = const box*;
  using reference = const box&;

  /** The end. */
  walk_iterator() = default;
  explicit walk_iterator(box top) { enter(top); }

  const box& operator*() const { return *levels_.back(); }
  const box* operator->() const { return &*levels_.back(); }
  /** 0 for the boxes directly in the box that was asked. */
  size_t depth() const { return levels_.size() - 1; }
  walk_iterator& operator++() {
    if (!enter(**this)) leave();
    return *this;
  }
  walk_iterator operator++(int) {  // NOLINT(cert-dcl21-cpp)
    walk_iterator old = *this;
    ++*this;
    return old;
  }
  /** Goes on behind the content of the present box. */
  void leave() {
    do {
      if (++levels_.back() != child_iterator()) return;
      levels_.pop_back();
    } while (!levels_.empty());
  }
  friend bool operator==(const walk_iterator& a, const walk_iterator& b) {
    return a.levels_ == b.levels_;
  }
  friend bool operator!=(const walk_iterator& a, const walk_iterator& b) { return !(a == b); }

 private:
  bool enter(box container) {
    const child_iterator first(container);
    if (first != child_iterator()) levels_.push_back(first);
    return first != child_iterator();
  }

  std::vector<child_iterator> levels_;
};

/** All boxes below one, in order. */
class walk_range {
 public:
  explicit walk_range(box top) : top_(top) {}
  walk_iterator begin() const { return walk_iterator(top_); }
  walk_iterator end() const { return {}; }

 private:
  box top_;
};

/** Goes over the boxes of one type in the whole document, by identifier: those of the input in its
 *  order, then added ones. A step takes logarithmic time. Boxes may be added and removed meanwhile
 *  at will; added ones are met. */
class type_iterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = box;
  using difference_type = std::ptrdiff_t;
  using pointer = const box*;
  using reference = const box&;

  /** The end. */
  type_iterator() = default;
  type_iterator(const detail::state* document, kvjpx::type wanted)
      : document_(document), wanted_(wanted), current_(document, 0) {
    // The search for a type begins behind identifier 0.
    if (wanted == kvjpx::type() || current_.type() != wanted) ++*this;
  }

  const box& operator*() const { return current_; }
  const box* operator->() const { return &current_; }
  type_iterator& operator++() {
    uint32_t id = KV_JPX_ROOT;
    const int32_t code =
        kv_jpx_get_next_box_id_by_type(document_->context, wanted_.code(), current_.id(), &id);
    current_ = code == JPX_OK && id != KV_JPX_ROOT ? box(document_, id) : box();
    return *this;
  }
  type_iterator operator++(int) {  // NOLINT(cert-dcl21-cpp)
    const type_iterator old = *this;
    ++*this;
    return old;
  }
  friend bool operator==(const type_iterator& a, const type_iterator& b) {
    return a.current_ == b.current_;
  }
  friend bool operator!=(const type_iterator& a, const type_iterator& b) { return !(a == b); }

 private:
  const detail::state* document_ = nullptr;
  kvjpx::type wanted_;
  box current_;
};

/** The boxes of one type in a document. */
class type_range {
 public:
  type_range(const detail::state* document, kvjpx::type wanted)
      : document_(document), wanted_(wanted) {}
  type_iterator begin() const { return {document_, wanted_}; }
  type_iterator end() const { return {}; }

 private:
  const detail::state* document_;
  kvjpx::type wanted_;
};

inline child_range box::children() const { return child_range(*this); }
inline walk_range box::descendants() const { return walk_range(*this); }

inline box box::child(kvjpx::type wanted, uint64_t index) const {
  for (box found = first_child(); found; found = found.next()) {
    if (found.type() == wanted && index-- == 0) return found;
  }
  return {};
}

/* ---------------------------------------------------------------------------------------- Paths */

namespace detail {

// Decimal, or hexadecimal behind 0x.
inline std::optional<uint64_t> parse_number(std::string_view text) {
  const bool is_hexadecimal = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
  if (is_hexadecimal) text.remove_prefix(2);
  uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, number, is_hexadecimal ? 16 : 10);
  if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
  return number;
}

struct path_step {
  type wanted;
  uint64_t index;
};

inline std::optional<path_step> parse_step(std::string_view text) {
  const size_t bracket = text.find('[');
  const std::optional<type> wanted = type::parse(text.substr(0, bracket));
  if (!wanted) return std::nullopt;
  if (bracket == std::string_view::npos) return path_step{*wanted, 0};
  if (text.back() != ']') return std::nullopt;
  const auto index = parse_number(text.substr(bracket + 1, text.size() - bracket - 2));
  if (!index) return std::nullopt;
  return path_step{*wanted, *index};
}

struct step_text {
  step_text(type box_type, uint64_t index, bool is_only) : size(box_type.put_name(text)) {
    if (is_only) return;
    text[size++] = '[';
    char* end = std::to_chars(text + size, text + sizeof text - 1, index).ptr;
    *end++ = ']';
    size = static_cast<size_t>(end - text);
  }

  char text[type::longest_name + 24];
  size_t size;
};

inline void prepend_step(std::string& path, const step_text& step) {
  if (!path.empty()) path.insert(0, 1, '/');
  path.insert(0, step.text, step.size);
}

// Goes from `start` along a path; child(box, type, index) finds a box in another.
template <class Child>
result<box> follow_path(box start, const detail::state* document, std::string_view path,
                        const Child& child) {
  box place = start;
  const auto fail = [&](const std::string& reason) {
    return error(JPX_ERR_INVALID_ARGUMENT, std::string(path) + ": " + reason, place.id(),
                 place.type());
  };
  for (std::string_view rest = path; !rest.empty();) {
    const std::string_view step = rest.substr(0, rest.find('/'));
    rest.remove_prefix(std::min(step.size() + 1, rest.size()));
    if (step.empty()) continue;
    box found;
    if (step[0] == '#' && place.is_root()) {
      const auto id = parse_number(step.substr(1));
      if (id && *id < KV_JPX_ROOT) found = box(document, static_cast<uint32_t>(*id));
      if (!found || !found.exists()) return fail("there is no box with this identifier");
    } else {
      const auto wanted = parse_step(step);
      if (!wanted) return fail("'" + std::string(step) + "' is not TYPE or TYPE[INDEX]");
      found = child(place, wanted->wanted, wanted->index);
      if (!found) return fail("there is no box '" + std::string(step) + "' in " + place.path());
    }
    place = found;
  }
  return place;
}

}  // namespace detail

inline result<box> box::find(std::string_view path) const {
  return detail::follow_path(*this, document_, path, [](box place, kvjpx::type type, uint64_t i) {
    return place.child(type, i);
  });
}

inline std::string box::path() const {
  if (!exists()) return {};
  std::string path;
  for (box place = *this; place && !place.is_root(); place = place.parent()) {
    const kvjpx::type type = place.type();
    uint64_t index = 0;
    for (box other = place.previous(); other; other = other.previous())
      index += other.type() == type;
    bool is_only = index == 0;
    for (box other = place.next(); is_only && other; other = other.next()) {
      is_only = other.type() != type;
    }
    detail::prepend_step(path, detail::step_text(type, index, is_only));
  }
  return path.empty() ? "/" : path;
}

/* ------------------------------------------------------------------------------------- Document */

/** Something that a strict reader would refuse. Owns its sentence. */
struct finding {
  uint32_t kind = 0;   /**< a kv_jpx_finding_kind */
  box place;           /**< the box it is about; the root for the file itself */
  type box_type;       /**< of that box, or of what looks like one */
  uint64_t offset = 0; /**< in the input, in bytes */
  std::string text;    /**< a sentence in English */
};

/** What came of a decoding; as kv_jpx_decode_report. Owns its sentence. */
struct decode_report {
  uint32_t delivered = 0;  /**< codestreams that the codec delivered samples of */
  uint32_t failed = 0;     /**< codestreams that the codec answered with an error for */
  uint32_t skipped = 0;    /**< codestreams that were not needed or could not be handed over */
  box failed_box;          /**< the first that failed; no box when none did */
  int32_t codec_code = 0;  /**< the codec's answer for it */
  int32_t output_code = 0; /**< the codec's answer for the output */
  std::string text;        /**< about the first failure, in English; empty when there was none */
};

/** Goes over findings. A step takes constant time. */
class finding_iterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = finding;
  using difference_type = std::ptrdiff_t;
  using pointer = const finding*;
  using reference = const finding&;

  /** The end. */
  finding_iterator() = default;
  explicit finding_iterator(const detail::state* document) : document_(document) { load(); }

  const finding& operator*() const { return current_; }
  const finding* operator->() const { return &current_; }
  finding_iterator& operator++() {
    ++index_;
    load();
    return *this;
  }
  finding_iterator operator++(int) {  // NOLINT(cert-dcl21-cpp)
    finding_iterator old = *this;
    ++*this;
    return old;
  }
  friend bool operator==(const finding_iterator& a, const finding_iterator& b) {
    return a.document_ == b.document_ && a.index_ == b.index_;
  }
  friend bool operator!=(const finding_iterator& a, const finding_iterator& b) { return !(a == b); }

 private:
  void load() {
    kv_jpx_finding found = {};
    found.size = sizeof found;
    if (kv_jpx_get_finding(document_->context, index_, &found) != JPX_OK) {
      *this = finding_iterator();
      return;
    }
    current_ = {found.kind, box(document_, found.box_id), type(found.box_type), found.offset,
                found.text};
  }

  const detail::state* document_ = nullptr;
  uint32_t index_ = 0;
  finding current_;
};

/** What the reader of a document met, in order of the file. */
class finding_range {
 public:
  explicit finding_range(const detail::state* document) : document_(document) {}
  finding_iterator begin() const { return finding_iterator(document_); }
  finding_iterator end() const { return {}; }

 private:
  const detail::state* document_;
};

/** How a file is read and written. */
enum class reading {
  /** Everything loads and nothing is lost: kv_jpx_set_keep_everything. */
  keep_everything,
  /** Damaged files are refused, and what is written is normalised. */
  strict
};

/** A file as a tree of boxes. Owns all that the library holds of it. Moves, does not copy; boxes,
 *  ranges and blocks stay good when it moves. A document that was moved from can be assigned to and
 *  destroyed only. */
class document {
 public:
  /** Maps a file, which is not copied; nobody may shorten it meanwhile
   *  (kv_jpx_set_input_image_mapped). With everything kept it fails for memory and for the system's
   *  refusals only: JPX_ERR_OPEN_FILE, JPX_ERR_FILE_IO. The strict way also answers
   *  JPX_ERR_BAD_SIGNATURE, JPX_ERR_READ_PAST_END and JPX_ERR_INVALID_ARGUMENT (nested too deep).
   */
  static result<document> open(const char* path, reading mode = reading::keep_everything) {
    return load(mode, [path](kv_jpx_context* context) {
      return kv_jpx_set_input_image_mapped(context, path);
    });
  }
  static result<document> open(const std::string& path, reading mode = reading::keep_everything) {
    return open(path.c_str(), mode);
  }
  /** Reads a file that is in memory; the library keeps a copy of it. */
  static result<document> read(byte_view file, reading mode = reading::keep_everything) {
    return load(mode, [file](kv_jpx_context* context) {
      return kv_jpx_set_input_image(context, file.data(), file.size());
    });
  }
  /** A document without a box. */
  static result<document> create(reading mode = reading::keep_everything) {
    return read(byte_view(), mode);
  }
  /** Takes over a context that was made otherwise, with an allocator of one's own, say, and
   *  destroys it in the end. */
  static document adopt(kv_jpx_context* context) { return document(context); }

  /** For functions of kvjpx.h; the document keeps it. */
  kv_jpx_context* context() const { return state_->context; }

  /** Tells the document where the bytes of its input are, so that payloads of unchanged boxes are
   *  views into them. They must be those that were read, and stay where they are and as they are as
   *  long as the document is used. */
  void set_source(byte_view file) { state_->source = file; }

  box root() const { return {state_.get(), KV_JPX_ROOT}; }
  /** All boxes in their order, a container before its content; see walk_iterator. */
  walk_range boxes() const { return root().descendants(); }
  /** All boxes of a type; see type_iterator. */
  type_range boxes(type wanted) const { return {state_.get(), wanted}; }
  /** The first of them; no box when there is none. */
  box first(type wanted) const { return *boxes(wanted).begin(); }
  uint32_t count(type wanted) const {
    uint32_t count = 0;
    kv_jpx_get_box_count_by_type(context(), wanted.code(), &count);
    return count;
  }
  /** The box with an identifier; no box when there is none. */
  box by_id(uint32_t id) const {
    const box found(state_.get(), id);
    return found.exists() ? found : box();
  }
  /** The box at a path, as box::find from the root. */
  result<box> find(std::string_view path) const { return root().find(path); }

  /** What a strict reader would have refused; after a save also fragments that could not follow
   *  their bytes. Empty for a document that was read the strict way. */
  finding_range findings() const { return finding_range(state_.get()); }

  /** Writes the file, as kv_jpx_get_output_image_file: to another place or over itself, never half.
   *  JPX_ERR_OPEN_FILE, JPX_ERR_FILE_IO. */
  result<void> save(const char* path) const { return write(path, KV_JPX_OUTPUT_JPX); }
  result<void> save(const std::string& path) const { return save(path.c_str()); }
  /** Writes it to a descriptor, as kv_jpx_write_jpx. JPX_ERR_FILE_IO. */
  result<void> save_to(int descriptor) const {
    return detail::outcome(context(), kv_jpx_write_jpx(context(), descriptor));
  }
  /** The same in one block. */
  result<block> save_to_memory() const { return output(KV_JPX_OUTPUT_JPX); }

  /** Bounds the image that decoding composes, as kv_jpx_set_decode_limits: 0 is no bound. An output
   *  beyond it fails with JPX_ERR_INVALID_ARGUMENT. */
  void set_decode_limits(uint64_t max_samples, uint32_t max_components = 0) {
    kv_jpx_set_decode_limits(context(), max_samples, max_components);
  }
  /** What came of the last decoding. output and write succeed whatever the codec says of
   *  codestreams. */
  decode_report last_decoding() const {
    kv_jpx_decode_report report = {};
    report.size = sizeof report;
    if (kv_jpx_get_decode_report(context(), &report) != JPX_OK) return {};
    return {report.delivered,  report.failed,
            report.skipped,    report.failed != 0 ? box(state_.get(), report.failed_box_id) : box(),
            report.codec_code, report.output_code,
            report.text};
  }

  /** The output in one of the types of kv_jpx_set_output_type, a decoded picture, say; empty when
   *  it cannot be made. Region, resolution and quality are set through context(). A type that there
   *  is not is an ending error. */
  result<block> output(int32_t output_type) const {
    void* data = nullptr;
    uint64_t length = 0;
    int32_t code = kv_jpx_set_output_type(context(), output_type);
    if (code == JPX_OK) code = kv_jpx_get_output_image(context(), &data, &length);
    if (code != JPX_OK) return detail::last_error(context(), code);
    return block(context(), data, length);
  }
  result<void> write(const char* path, int32_t output_type) const {
    int32_t code = kv_jpx_set_output_type(context(), output_type);
    if (code == JPX_OK) code = kv_jpx_get_output_image_file(context(), path);
    return detail::outcome(context(), code);
  }

 private:
  explicit document(kv_jpx_context* context) : state_(std::make_unique<detail::state>(context)) {}

  template <class SetInput>
  static result<document> load(reading mode, const SetInput& set_input) {
    document made(nullptr);
    kv_jpx_context*& context = made.state_->context;
    if (const int32_t code = kv_jpx_create(&context)) return detail::last_error(nullptr, code);
    kv_jpx_set_keep_everything(context, mode == reading::keep_everything);
    if (const int32_t code = set_input(context)) return detail::last_error(context, code);
    return made;
  }

  std::unique_ptr<detail::state> state_;
};

/**
 * The boxes of a document as it is now, with their paths, for programs that need many: making it
 * takes n log n time for n boxes and 32 bytes a box; a path then takes time in proportion to its
 * length only, and finding one a logarithm a step. Boxes that are added later are not in it; those
 * that are removed must not be asked for.
 */
class box_paths {
 public:
  explicit box_paths(const document& file) : root_(file.root()) {
    list_boxes();
    uint32_t largest_id = 0;
    for (size_t i = 1; i < entries_.size(); ++i) {
      ++entries_[entries_[i].parent].child_count;
      largest_id = std::max(largest_id, entries_[i].id);
    }
    // The ends of the containers' parts of by_type_, which become their beginnings by filling them.
    uint32_t end = 0;
    for (entry& container : entries_) container.children = end += container.child_count;
    by_type_.resize(size());
    place_of_.resize(size() > 0 ? size_t{largest_id} + 1 : 0);
    for (size_t i = size(); i > 0; --i) {
      by_type_[--entries_[entries_[i].parent].children] = static_cast<uint32_t>(i);
      place_of_[entries_[i].id] = static_cast<uint32_t>(i);
    }
    for (const entry& container : entries_) number_children(container);
  }

  /** The number of boxes. */
  size_t size() const { return entries_.size() - 1; }

  /** A box as it stood in the order of the document. */
  struct item {
    kvjpx::box box;     /**< the box itself */
    kvjpx::type type;   /**< as box::type, without asking for it */
    size_t child_count; /**< boxes directly in it */
  };
  /** The boxes in their order, a container before its content, from 1 to size(); 0 is the root.
   *  Takes constant time. */
  item operator[](size_t place) const {
    const entry& found = entries_[place];
    return {{root_.document_, found.id}, type(found.box_type), found.child_count};
  }

  /** As box::path; empty for a box that was not there. */
  std::string path(box wanted) const {
    std::string path;
    append_path(path, wanted);
    return path;
  }
  /** The same behind other text. */
  void append_path(std::string& text, box wanted) const {
    if (wanted.is_root()) {
      text += '/';
    } else if (const entry* const found = entry_of(wanted)) {
      append(text, *found);
    }
  }

  /** As box::child, in logarithmic time. */
  box child(box container, type wanted, uint64_t index = 0) const {
    const entry* const place = entry_of(container);
    if (place == nullptr) return {};
    const auto first = by_type_.begin() + place->children;
    const auto last = first + place->child_count;
    const auto begin = std::lower_bound(first, last, wanted, [this](uint32_t child, type other) {
      return type(entries_[child].box_type) < other;
    });
    if (index >= static_cast<uint64_t>(last - begin)) return {};
    const entry& found = entries_[begin[static_cast<std::ptrdiff_t>(index)]];
    return type(found.box_type) == wanted ? box(root_.document_, found.id) : box();
  }

  /** As document::find. */
  result<box> find(std::string_view path) const {
    return detail::follow_path(
        root_, root_.document_, path,
        [this](box place, type wanted, uint64_t index) { return child(place, wanted, index); });
  }

 private:
  struct entry {
    uint32_t parent;  // place in entries_
    uint32_t box_type;
    uint32_t id;
    uint32_t index;     // among the siblings of its type; kOnly: there is no other
    uint32_t children;  // place in by_type_
    uint32_t child_count;
  };
  static constexpr uint32_t kOnly = UINT32_MAX;

  void list_boxes() {
    entries_.push_back({0, KV_JPX_ROOT, KV_JPX_ROOT, 0, 0, 0});
    uint32_t parent = 0;
    box current = root_.first_child();
    while (current || parent != 0) {
      if (!current) {
        current = box(root_.document_, entries_[parent].id).next();
        parent = entries_[parent].parent;
        continue;
      }
      entries_.push_back({parent, current.type().code(), current.id(), 0, 0, 0});
      const box child = current.first_child();
      if (child) parent = static_cast<uint32_t>(entries_.size() - 1);
      current = child ? child : current.next();
    }
  }

  void number_children(const entry& container) {
    const auto begin = by_type_.begin() + container.children;
    const auto end = begin + container.child_count;
    const auto is_before = [this](uint32_t a, uint32_t b) {
      return entries_[a].box_type < entries_[b].box_type;
    };
    if (!std::is_sorted(begin, end, is_before)) std::stable_sort(begin, end, is_before);
    for (auto first = begin; first != end;) {
      entry& one = entries_[*first];
      auto next = first + 1;
      for (; next != end && entries_[*next].box_type == one.box_type; ++next) {
        entries_[*next].index = static_cast<uint32_t>(next - first);
      }
      one.index = next - first == 1 ? kOnly : 0;
      first = next;
    }
  }

  const entry* entry_of(box wanted) const {
    if (wanted.is_root()) return &entries_[0];
    const uint32_t place = wanted.id() < place_of_.size() ? place_of_[wanted.id()] : 0;
    return place != 0 ? &entries_[place] : nullptr;
  }

  void append(std::string& path, const entry& found) const {
    if (found.parent != 0) {
      append(path, entries_[found.parent]);
      path += '/';
    }
    const detail::step_text step(type(found.box_type), found.index, found.index == kOnly);
    path.append(step.text, step.size);
  }

  box root_;
  std::vector<entry> entries_;  // in the order of the document; first the root
  // Places in entries_, of the boxes of one container after the other: by type, those of one in
  // order.
  std::vector<uint32_t> by_type_;
  std::vector<uint32_t> place_of_;  // in entries_, by identifier; 0: no such box
};

}  // namespace KVJPX_HPP_VERSION
}  // namespace kvjpx

#undef KVJPX_HPP_VERSION

#endif  // KVJPX_HPP_
