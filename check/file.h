// A file as the rules see it, and how they tell what they find.
#ifndef KVJPX_CHECK_FILE_H_
#define KVJPX_CHECK_FILE_H_

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "check.h"
#include "codestream/codestream.h"

namespace kvjpx_check {

constexpr uint32_t code(const char (&text)[5]) { return kvjpx::type(text).code(); }

// Big-endian numbers in bytes; 0 where there are none.
class Fields {
 public:
  explicit Fields(kvjpx::byte_view bytes) : bytes_(bytes) {}
  uint64_t size() const { return bytes_.size(); }
  bool has(uint64_t at, uint64_t length) const { return at <= size() && length <= size() - at; }
  uint64_t number(uint64_t at, unsigned width) const;
  uint32_t u8(uint64_t at) const { return static_cast<uint32_t>(number(at, 1)); }
  uint32_t u16(uint64_t at) const { return static_cast<uint32_t>(number(at, 2)); }
  uint32_t u32(uint64_t at) const { return static_cast<uint32_t>(number(at, 4)); }
  std::string_view text(uint64_t at, uint64_t length) const {
    return bytes_.part(at, length).text();
  }

 private:
  kvjpx::byte_view bytes_;
};

constexpr uint32_t kNoBox = 0xFFFFFFFF;

struct Box {
  kvjpx::box handle;
  uint32_t type = kNoBox;
  uint32_t flags = 0;  // bits of kv_jpx_box_flags
  uint64_t offset = 0;
  uint64_t header_length = 0;
  uint64_t content_length = 0;
  uint64_t tail_length = 0;
  bool is_in_part_1 = true;  // whether all around it are containers of ISO/IEC 15444-1
  // Places in the array of boxes.
  uint32_t place = 0;
  uint32_t parent = kNoBox;
  uint32_t first = kNoBox;
  uint32_t next = kNoBox;

  uint64_t content_offset() const { return offset + header_length; }
  uint64_t end() const { return content_offset() + content_length; }
  bool has(uint32_t flag) const { return (flags & flag) != 0; }
};

// A jp2c box, a fragment table, or a file that is nothing but a codestream.
struct Codestream {
  const Box* box = nullptr;
  bool is_readable = false;  // in this file, and JPEG 2000
  kvjpx_codestream::Summary summary;
  std::vector<kvjpx_codestream::Problem> problems;
  // What it consists of, in the file.
  struct Piece {
    uint64_t offset;  // in the file
    uint64_t length;
    uint64_t begin;  // in the codestream
  };
  using Pieces = std::vector<Piece>;
  Pieces pieces;

  // The piece that holds a byte; the last for those behind it.
  static Pieces::const_iterator piece_at(const Pieces& pieces, uint64_t offset);
  // Where one of its bytes stands in the file.
  uint64_t in_file(uint64_t offset) const;
};

class File {
 public:
  File(const kvjpx::document& document, kvjpx::byte_view bytes);

  const kvjpx::document& document() const { return document_; }
  kvjpx::byte_view bytes() const { return bytes_; }
  bool is_bare_codestream() const { return is_bare_; }
  // In the compatibility list.
  bool is_listed(uint32_t brand) const;

  const std::vector<Box>& boxes() const { return boxes_; }  // the root first
  const Box& root() const { return boxes_[0]; }
  const Box& parent(const Box& box) const { return boxes_[box.parent]; }
  const Box* first(const Box& box) const { return at(box.first); }
  const Box* next(const Box& box) const { return at(box.next); }
  // The first of this type directly in a box, and how many there are; null when there is none.
  const Box* child(const Box& parent, uint32_t type) const;
  uint32_t count(const Box& parent, uint32_t type) const;
  // Of this type anywhere.
  const std::vector<uint32_t>& all(uint32_t type) const;
  const Box* by_id(uint32_t id) const;

  kvjpx::byte_view content(const Box& box) const {
    return bytes_.part(box.content_offset(), box.content_length);
  }
  Fields fields(const Box& box) const { return Fields(content(box)); }

  const std::vector<Codestream>& codestreams() const { return codestreams_; }
  // Whether these, and the headers below, are all that there are: later boxes of ISO/IEC 15444-2
  // hold further ones.
  bool has_all_codestreams() const {
    return child(root(), code("j2cx")) == nullptr && child(root(), code("jclx")) == nullptr;
  }
  // Codestream header boxes at the top level, in order; and those of layers.
  const std::vector<uint32_t>& codestream_headers() const { return jpch_; }
  const std::vector<uint32_t>& layer_headers() const { return jplh_; }

  // What a box that describes components is about. `header` is the jp2h, jpch or jplh that it
  // stands in: what a header does not have itself, the JP2 header has for all.
  const Box* in_header(const Box& header, uint32_t type) const;
  const Codestream* codestream_of(const Box& header) const;
  std::optional<uint32_t> components_of(const Box& header) const;
  std::optional<uint32_t> channels_of(const Box& header) const;

 private:
  const Box* at(uint32_t place) const { return place == kNoBox ? nullptr : &boxes_[place]; }
  void read_boxes();
  void read_codestreams();
  void add_fragments(Codestream& codestream, const Box& table, uint64_t& budget) const;
  void walk(Codestream& codestream) const;

  const kvjpx::document& document_;
  kvjpx::byte_view bytes_;
  bool is_bare_ = false;
  std::vector<Box> boxes_;
  std::vector<uint32_t> place_of_;  // by identifier
  std::unordered_map<uint32_t, std::vector<uint32_t>> by_type_;
  struct Kin {
    uint32_t first = kNoBox;
    uint32_t count = 0;
  };
  std::unordered_map<uint64_t, Kin> kin_;  // by place of the parent << 32 | type
  std::vector<Codestream> codestreams_;
  std::vector<uint32_t> jpch_;
  std::vector<uint32_t> jplh_;
};

// One rule at one box.
class Check {
 public:
  class Sink {
   public:
    virtual ~Sink() = default;
    virtual void take(const Rule& rule, const Box& box, uint64_t offset, std::string found,
                      std::string expected) = 0;
    // Whether something was found about this box already.
    virtual bool knows(const Box& box) const = 0;
  };

  Check(const File& file, Profile profile, const Rule& rule, Sink& sink)
      : file(file), profile(profile), rule_(rule), sink_(sink) {}

  const File& file;
  const Profile profile;
  const Box* box = nullptr;  // the root for rules about the file

  Fields fields() const { return file.fields(*box); }
  const Box& parent() const { return file.parent(*box); }
  bool is_known(const Box& about) const { return sink_.knows(about); }

  // At an offset in the content of the box.
  void tell(uint64_t at, std::string found = {}, std::string expected = {}) const {
    tell_at(*box, box->content_offset() + at, std::move(found), std::move(expected));
  }
  void tell_at(const Box& about, uint64_t offset, std::string found = {},
               std::string expected = {}) const {
    sink_.take(rule_, about, offset, std::move(found), std::move(expected));
  }
  // That a number of `width` bytes is one of these, or in a range.
  void need(uint64_t at, unsigned width, std::initializer_list<uint64_t> values) const;
  void need_range(uint64_t at, unsigned width, uint64_t least, uint64_t most) const;

 private:
  const Rule& rule_;
  Sink& sink_;
};

std::string type_name(uint32_t type);
std::string hexadecimal(uint64_t value);  // "0x1F"
// "8 bits, unsigned", of a depth byte as in ihdr, bpcc and SIZ.
std::string depth_words(uint32_t value);
uint32_t depth_byte(const kvjpx_codestream::Component& component);
// Offset of the first byte that is not UTF-8; nothing when all is.
std::optional<uint64_t> broken_utf8(std::string_view text);

}  // namespace kvjpx_check

#endif  // KVJPX_CHECK_FILE_H_
