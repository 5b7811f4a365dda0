// Goes through the rendered bytes and the context's tree side by side and writes every box anew:
// its content completed, its length counted.
#include "mending.h"

#include <algorithm>
#include <functional>
#include <vector>

#include "box_path.h"
#include "failure.h"
#include "kvjpx_fields.h"

namespace kvjpx_tool {
namespace {

constexpr uint32_t kPalette = KV_JPX_TYPE('p', 'c', 'l', 'r');
constexpr uint32_t kCrossReference = KV_JPX_TYPE('c', 'r', 'e', 'f');
constexpr uint32_t kJp2Header = KV_JPX_TYPE('j', 'p', '2', 'h');

constexpr uint64_t kHeaderSize = 8;
constexpr uint64_t kLongHeaderSize = 16;
constexpr uint64_t kShortLimit = 0xFFFFFFFF;

std::string to_big_endian(uint64_t value, unsigned width) {
  std::string bytes;
  while (width-- > 0) bytes += static_cast<char>(value >> (8 * width));
  return bytes;
}

uint32_t type_of(kv_jpx_context* context, uint32_t id) {
  uint32_t type = KV_JPX_ROOT;
  kv_jpx_get_box_type_by_id(context, id, &type);
  return type;
}

// Calls `visit` for the identifier of every box in a container, as the library has them now.
void for_each_id(kv_jpx_context* context, uint32_t container,
                 const std::function<void(uint32_t)>& visit) {
  for (const uint32_t id : child_ids(context, container)) {
    visit(id);
    for_each_id(context, id, visit);
  }
}

// What decides the size of a palette.
class Palette {
 public:
  // Nothing for a box that is no palette, or one whose content the library leaves alone.
  static std::optional<Palette> find(kv_jpx_context* context, uint32_t id) {
    const auto number = [&](uint32_t key, uint64_t index) {
      uint64_t value = 0;
      const int32_t code = kv_jpx_get_box_field_int(context, id, key, index, &value);
      return code == JPX_OK ? std::optional<uint64_t>(value) : std::nullopt;
    };
    if (type_of(context, id) != kPalette) return std::nullopt;
    const std::optional<uint64_t> rows = number(JPX_FIELD_PCLR_NE, 0);
    if (!rows) return std::nullopt;
    Palette palette;
    palette.rows_ = *rows;
    const uint64_t columns = number(JPX_FIELD_PCLR_NPC, 0).value_or(0);
    for (uint64_t i = 0; i < columns; ++i) {
      palette.depths_.push_back(number(JPX_FIELD_PCLR_B, i).value_or(0) & 0x7F);
    }
    return palette;
  }

  // The content's length by which the library judges how much it will write, and what it writes.
  uint64_t declared_length() const {
    uint64_t row = 1;
    for (const uint64_t depth : depths_) row += (depth + 7) / 8;
    return 3 + rows_ * row;
  }
  uint64_t written_length() const {
    uint64_t row = 0;
    for (const uint64_t depth : depths_) row += written_width(depth);
    return 3 + depths_.size() + rows_ * row;
  }

  // Whether the library reads and writes all values as the file format has them. It gives some
  // depths a byte too few, and keeps 32 bits of a value.
  bool is_faithful() const {
    return std::all_of(depths_.begin(), depths_.end(), [](uint64_t depth) {
      return depth < 32 && written_width(depth) == depth / 8 + 1;
    });
  }

 private:
  // For a depth as the file has it, less one.
  static uint64_t written_width(uint64_t depth) {
    if (depth <= 8) return 1;
    return depth > 32 ? 5 : (depth + 7) / 8;
  }

  uint64_t rows_ = 0;
  std::vector<uint64_t> depths_;
};

// Whether the library writes the box without its own fields: a container that was in the file,
// not one that was added since.
bool lacks_prefix(const Box* original) {
  return original && original->is_container && prefix_length(original->type) > 0;
}

// The library makes room for what the boxes declare and gives up when they write more, as do
// palettes with fewer rows than columns or with columns of one bit. Other palettes declare more
// than they write; a header box full of such, at the end of the file while this lives, makes up for
// it.
class SpareRoom {
 public:
  explicit SpareRoom(const Document& document) : document_(document) {
    for (int64_t missing = missing_room(); missing > 0; missing -= kGain) add_palette();
  }
  ~SpareRoom() {
    if (header_ != KV_JPX_ROOT) kv_jpx_delete_box(document_.context(), header_);
  }
  SpareRoom(const SpareRoom&) = delete;
  SpareRoom& operator=(const SpareRoom&) = delete;

 private:
  // A palette of this many rows with one column of the deepest kind, and the room that it gives.
  static constexpr uint64_t kRows = 1024;
  static constexpr uint8_t kDeepest = 127;
  static constexpr int64_t kGain = (3 + kRows * 17) - (4 + kRows * 5);

  int64_t missing_room() const {
    uint64_t missing = 0;
    for_each_id(document_.context(), KV_JPX_ROOT, [&](uint32_t id) {
      const auto palette = Palette::find(document_.context(), id);
      if (palette) missing += palette->written_length() - palette->declared_length();
    });
    return static_cast<int64_t>(missing);
  }

  void add_palette() {
    if (header_ == KV_JPX_ROOT) header_ = add_header();
    uint32_t id = KV_JPX_ROOT;
    check(kv_jpx_add_box(document_.context(), kPalette, header_, 2, &id));
    check(kv_jpx_set_box_field_int(document_.context(), id, JPX_FIELD_PCLR_NE, 0, kRows));
    check(kv_jpx_set_box_field_buffer(document_.context(), id, JPX_FIELD_PCLR_B, 1, 1, &kDeepest));
  }

  uint32_t add_header() {
    const uint32_t last = child_ids(document_.context(), KV_JPX_ROOT).back();
    uint32_t header = KV_JPX_ROOT;
    check(kv_jpx_add_box(document_.context(), kJp2Header, last, 1, &header));
    return header;
  }

  void check(int32_t code) const {
    if (code != JPX_OK) throw library_failure(document_.label(), code, kEditRefused);
  }

  const Document& document_;
  uint32_t header_ = KV_JPX_ROOT;
};

LibraryBlock render(const Document& document) {
  const SpareRoom room(document);
  return document.output();
}

bool needs_mending(const Document& document) {
  bool is_needed = false;
  for_each_id(document.context(), KV_JPX_ROOT, [&](uint32_t id) {
    is_needed |=
        Palette::find(document.context(), id).has_value() || lacks_prefix(document.tree().find(id));
  });
  return is_needed;
}

class Mender {
 public:
  Mender(const Document& document, std::string_view rendered, bool is_forced)
      : document_(document), rendered_(rendered), is_forced_(is_forced) {}

  // What follows the last box in the rendered bytes is spare room.
  std::string mend() {
    mended_.reserve(rendered_.size());
    mend_children(KV_JPX_ROOT);
    return std::move(mended_);
  }

 private:
  void mend_children(uint32_t container) {
    for (const uint32_t id : child_ids(context(), container)) mend_box(id);
  }

  void mend_box(uint32_t id) {
    const uint64_t declared = take_header(id);
    const size_t begin = mended_.size();
    mended_.append(kHeaderSize, '\0');
    if (is_container(context(), id)) {
      append_prefix(id);
      mend_children(id);
    } else if (const std::optional<Palette> palette = Palette::find(context(), id)) {
      append_palette(id, *palette);
    } else {
      mended_ += take(declared);
    }
    write_header(begin, type_of(context(), id));
  }

  // Goes behind a rendered header, and returns the content's length that it declares.
  uint64_t take_header(uint32_t id) {
    const uint64_t begin = position_;
    const std::string_view header = take(kHeaderSize);
    if (big_endian(header, 4, 4) != type_of(context(), id)) lose_track(begin);
    const uint64_t length = big_endian(header, 0, 4);
    if (length != 1) return length - kHeaderSize;
    return big_endian(take(kLongHeaderSize - kHeaderSize), 0, 8) - kLongHeaderSize;
  }

  void append_prefix(uint32_t id) {
    const Box* const original = document_.tree().find(id);
    if (!lacks_prefix(original)) {
      mended_ += take(prefix_length(type_of(context(), id)));
    } else if (original->type == kCrossReference) {
      mended_ += document_.bytes().substr(original->content_begin, prefix_length(kCrossReference));
    } else {
      mended_ += to_big_endian(child_ids(context(), id).size(), 2);
    }
  }

  // Where the rendered palette begins the original one, nobody has changed it. The original may be
  // longer, as the library does not read all of every palette, so it is what is written.
  void append_palette(uint32_t id, const Palette& palette) {
    const std::string_view written = take(palette.written_length());
    const Box* const original = document_.tree().find(id);
    if (original) {
      const std::string_view content = document_.bytes().substr(
          original->content_begin, original->end - original->content_begin);
      if (content.substr(0, written.size()) == written) {
        mended_ += content;
        return;
      }
    }
    if (!palette.is_faithful() && !is_forced_) {
      throw Failure(
          kEditRefused,
          document_.label() +
              ": a palette has a column of 9, 17, 25 or more than 32 bits, whose values "
              "the library cannot hold; nothing is written (--force writes it all the same)");
    }
    mended_ += written;
  }

  // The form of headers is the library's: with an XLBox only where the length needs it.
  void write_header(size_t begin, uint32_t type) {
    const uint64_t length = mended_.size() - begin;
    std::string header = to_big_endian(length > kShortLimit ? 1 : length, 4);
    header += to_big_endian(type, 4);
    if (length > kShortLimit) {
      header += to_big_endian(length + kLongHeaderSize - kHeaderSize, 8);
    }
    mended_.replace(begin, kHeaderSize, header);
  }

  std::string_view take(uint64_t length) {
    if (length > rendered_.size() - position_) lose_track(position_);
    const std::string_view bytes = rendered_.substr(position_, length);
    position_ += length;
    return bytes;
  }

  [[noreturn]] void lose_track(uint64_t position) const {
    throw Failure(kEditRefused, document_.label() + ": the boxes behind offset " +
                                    std::to_string(position) +
                                    " of the result cannot be located; nothing is written");
  }

  kv_jpx_context* context() const { return document_.context(); }

  const Document& document_;
  const std::string_view rendered_;
  const bool is_forced_;
  uint64_t position_ = 0;
  std::string mended_;
};

}  // namespace

MendedFile::MendedFile(const Document& document, bool is_forced) : rendered_(render(document)) {
  if (!needs_mending(document)) return;
  mended_ = Mender(document, rendered_.bytes(), is_forced).mend();
}

}  // namespace kvjpx_tool
