#include "file.h"

#include <algorithm>
#include <map>

namespace kvjpx_check {
namespace {

using kvjpx_codestream::Component;
using kvjpx_codestream::Problem;

// The bytes of a codestream, wherever they are.
class PieceSource final : public kvjpx_codestream::Source {
 public:
  PieceSource(kvjpx::byte_view bytes, const Codestream::Pieces& pieces)
      : bytes_(bytes), pieces_(pieces) {}
  uint64_t size() const override {
    return pieces_.empty() ? 0 : pieces_.back().begin + pieces_.back().length;
  }
  bool read(uint64_t offset, size_t length, uint8_t* to) override {
    for (auto piece = Codestream::piece_at(pieces_, offset); length > 0; ++piece) {
      if (piece == pieces_.end()) return false;
      const uint64_t skipped = offset - piece->begin;
      const kvjpx::byte_view part =
          bytes_.part(piece->offset + skipped, std::min<uint64_t>(length, piece->length - skipped));
      to = std::copy(part.begin(), part.end(), to);
      length -= part.size();
      offset += part.size();
    }
    return true;
  }

 private:
  kvjpx::byte_view bytes_;
  const Codestream::Pieces& pieces_;
};

// Keeps as many problems of each kind as are ever told.
class Collector final : public kvjpx_codestream::Observer {
 public:
  explicit Collector(std::vector<Problem>& problems) : problems_(problems) {}
  bool wants_fields() const override { return false; }
  void problem(const Problem& problem) override {
    if (counts_[problem.kind]++ <= kMostOfARule) problems_.push_back(problem);
  }

 private:
  std::vector<Problem>& problems_;
  std::map<kvjpx_codestream::ProblemKind, uint64_t> counts_;
};

bool is_part_1_container(const Box& box) {
  if (box.place == 0) return true;
  return box.is_in_part_1 &&
         (box.type == code("jp2h") || box.type == code("res ") || box.type == code("uinf"));
}

}  // namespace

uint64_t Fields::number(uint64_t at, unsigned width) const {
  if (!has(at, width)) return 0;
  uint64_t value = 0;
  for (unsigned i = 0; i < width; ++i) value = value << 8 | bytes_[at + i];
  return value;
}

Codestream::Pieces::const_iterator Codestream::piece_at(const Pieces& pieces, uint64_t offset) {
  const auto is_before = [](uint64_t wanted, const Piece& piece) { return wanted < piece.begin; };
  const auto next = std::upper_bound(pieces.begin(), pieces.end(), offset, is_before);
  return next == pieces.begin() ? next : next - 1;
}

uint64_t Codestream::in_file(uint64_t offset) const {
  const auto piece = piece_at(pieces, offset);
  return piece == pieces.end() ? 0 : piece->offset + (offset - piece->begin);
}

File::File(const kvjpx::document& document, kvjpx::byte_view bytes)
    : document_(document), bytes_(bytes) {
  is_bare_ = Fields(bytes).u32(0) == 0xFF4FFF51;
  read_boxes();
  read_codestreams();
}

bool File::is_listed(uint32_t brand) const {
  const Box* const box = child(root(), code("ftyp"));
  if (box == nullptr) return false;
  const Fields ftyp = fields(*box);
  for (uint64_t at = 8; ftyp.has(at, 4); at += 4) {
    if (ftyp.u32(at) == brand) return true;
  }
  return false;
}

void File::read_boxes() {
  boxes_.emplace_back();
  boxes_[0].handle = document_.root();
  boxes_[0].content_length = bytes_.size();
  if (const auto extent = document_.root().extent()) boxes_[0].tail_length = extent->tail_length;
  if (is_bare_) return;
  std::vector<uint32_t> last{0};  // on each level, the box that was met last
  for (auto at = document_.boxes().begin(); at != kvjpx::walk_iterator(); ++at) {
    const size_t level = at.depth() + 1;
    const auto extent = at->extent();
    if (!extent) continue;
    Box box;
    box.handle = *at;
    box.type = at->type().code();
    box.flags = extent->flags;
    box.offset = extent->offset;
    box.header_length = extent->header_length;
    box.content_length = extent->content_length;
    box.tail_length = extent->tail_length;
    box.place = static_cast<uint32_t>(boxes_.size());
    box.parent = last[level - 1];
    box.is_in_part_1 = is_part_1_container(boxes_[box.parent]);
    const bool is_first = last.size() == level;
    if (is_first) last.push_back(0);
    (is_first ? boxes_[box.parent].first : boxes_[last[level]].next) = box.place;
    last.resize(level + 1);
    last[level] = box.place;
    const uint32_t id = at->id();
    if (id >= place_of_.size()) place_of_.resize(size_t{id} + 1, kNoBox);
    place_of_[id] = box.place;
    by_type_[box.type].push_back(box.place);
    Kin& kin = kin_[uint64_t{box.parent} << 32 | box.type];
    if (kin.count++ == 0) kin.first = box.place;
    if (level == 1 && box.type == code("jpch")) jpch_.push_back(box.place);
    if (level == 1 && box.type == code("jplh")) jplh_.push_back(box.place);
    boxes_.push_back(box);
  }
}

void File::read_codestreams() {
  if (is_bare_) {
    Codestream codestream;
    codestream.box = &root();
    codestream.is_readable = true;
    codestream.pieces.push_back({0, bytes_.size(), 0});
    codestreams_.push_back(std::move(codestream));
  }
  uint64_t budget = bytes_.size();  // that tables of the same fragments do not multiply the work
  for (const Box* box = first(root()); box != nullptr; box = next(*box)) {
    if (box->type != code("jp2c") && box->type != code("ftbl")) continue;
    Codestream codestream;
    codestream.box = box;
    if (box->type == code("ftbl")) {
      add_fragments(codestream, *box, budget);
    } else {
      codestream.pieces.push_back({box->content_offset(), box->content_length, 0});
      codestream.is_readable = true;
    }
    codestreams_.push_back(std::move(codestream));
  }
  const Box* const header = child(root(), code("jp2h"));
  for (size_t i = 0; i < codestreams_.size(); ++i) {
    const Box* const own = i < jpch_.size() ? &boxes_[jpch_[i]] : header;
    const Box* const ihdr = own != nullptr ? in_header(*own, code("ihdr")) : nullptr;
    // What other compressions' codestreams look like is not for this standard to say.
    const bool is_foreign = ihdr != nullptr && fields(*ihdr).has(11, 1) &&
                            fields(*ihdr).u8(11) < 10 && fields(*ihdr).u8(11) != 7 &&
                            Fields(content(*codestreams_[i].box)).u16(0) != 0xFF4F;
    if (is_foreign) codestreams_[i].is_readable = false;
    walk(codestreams_[i]);
  }
}

void File::add_fragments(Codestream& codestream, const Box& table, uint64_t& budget) const {
  const Box* const list = child(table, code("flst"));
  if (list == nullptr) return;
  const Fields fields = this->fields(*list);
  const uint64_t count = fields.u16(0);
  if (count == 0 || fields.size() < 2 + 14 * count) return;
  uint64_t begin = 0;
  for (uint64_t i = 0; i < count; ++i) {
    const uint64_t at = 2 + 14 * i;
    const uint64_t offset = fields.number(at, 8);
    const uint64_t length = fields.u32(at + 8);
    if (fields.u16(at + 12) != 0 || offset > bytes_.size() || length > bytes_.size() - offset ||
        length > budget) {
      codestream.pieces.clear();
      return;
    }
    budget -= length;
    if (length > 0) codestream.pieces.push_back({offset, length, begin});
    begin += length;
  }
  codestream.is_readable = !codestream.pieces.empty();
}

void File::walk(Codestream& codestream) const {
  if (!codestream.is_readable) return;
  PieceSource source(bytes_, codestream.pieces);
  Collector collector(codestream.problems);
  codestream.summary = kvjpx_codestream::walk(source, collector);
}

const Box* File::child(const Box& parent, uint32_t type) const {
  const auto kin = kin_.find(uint64_t{parent.place} << 32 | type);
  return kin != kin_.end() ? &boxes_[kin->second.first] : nullptr;
}

uint32_t File::count(const Box& parent, uint32_t type) const {
  const auto kin = kin_.find(uint64_t{parent.place} << 32 | type);
  return kin != kin_.end() ? kin->second.count : 0;
}

const std::vector<uint32_t>& File::all(uint32_t type) const {
  static const std::vector<uint32_t> none;
  const auto row = by_type_.find(type);
  return row != by_type_.end() ? row->second : none;
}

const Box* File::by_id(uint32_t id) const {
  if (id >= place_of_.size() || place_of_[id] == kNoBox) return nullptr;
  return &boxes_[place_of_[id]];
}

const Box* File::in_header(const Box& header, uint32_t type) const {
  const Box* const own = child(header, type);
  if (own != nullptr || header.type == code("jp2h")) return own;
  const Box* const common = child(root(), code("jp2h"));
  return common != nullptr ? child(*common, type) : nullptr;
}

const Codestream* File::codestream_of(const Box& header) const {
  size_t number = 0;
  if (header.type == code("jpch")) {
    number = static_cast<size_t>(std::lower_bound(jpch_.begin(), jpch_.end(), header.place) -
                                 jpch_.begin());
  } else if (!jpch_.empty() && child(boxes_[jpch_[0]], code("ihdr")) != nullptr) {
    return nullptr;
  }
  if (number >= codestreams_.size() || !codestreams_[number].summary.has_image) return nullptr;
  return &codestreams_[number];
}

std::optional<uint32_t> File::components_of(const Box& header) const {
  const Box* const ihdr = in_header(header, code("ihdr"));
  if (ihdr == nullptr || !fields(*ihdr).has(8, 2)) return std::nullopt;
  return fields(*ihdr).u16(8);
}

std::optional<uint32_t> File::channels_of(const Box& header) const {
  const Box* const cmap = in_header(header, code("cmap"));
  if (cmap == nullptr) return components_of(header);
  return static_cast<uint32_t>(cmap->content_length / 4);
}

void Check::need(uint64_t at, unsigned width, std::initializer_list<uint64_t> values) const {
  const Fields bytes = fields();
  if (!bytes.has(at, width)) return;
  const uint64_t value = bytes.number(at, width);
  if (std::find(values.begin(), values.end(), value) != values.end()) return;
  std::string expected;
  for (const uint64_t one : values)
    expected += (expected.empty() ? "" : ", ") + std::to_string(one);
  tell(at, std::to_string(value), std::move(expected));
}

void Check::need_range(uint64_t at, unsigned width, uint64_t least, uint64_t most) const {
  const Fields bytes = fields();
  if (!bytes.has(at, width)) return;
  const uint64_t value = bytes.number(at, width);
  if (value >= least && value <= most) return;
  tell(at, std::to_string(value), std::to_string(least) + " to " + std::to_string(most));
}

std::string type_name(uint32_t type) { return kvjpx::type(type).name(); }

std::string hexadecimal(uint64_t value) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  do {
    text.insert(text.begin(), kDigits[value & 15]);
    value >>= 4;
  } while (value != 0);
  return "0x" + text;
}

std::string depth_words(uint32_t value) {
  if (value == KV_JPX_BPC_VARIES) return "255 (depths in bpcc)";
  return std::to_string((value & 0x7F) + 1) + " bits, " + (value & 0x80 ? "signed" : "unsigned");
}

uint32_t depth_byte(const Component& component) {
  return (component.depth - 1) | (component.is_signed ? KV_JPX_BPC_SIGNED : 0);
}

std::optional<uint64_t> broken_utf8(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    const auto byte = [&](size_t at) {
      return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
    };
    const unsigned lead = byte(i);
    const size_t length = lead < 0x80 ? 1 : lead >> 5 == 6 ? 2 : lead >> 4 == 14 ? 3 : 4;
    if (length == 4 && lead >> 3 != 30) return i;
    uint32_t value = length == 1 ? lead : lead & (0x7FU >> length);
    for (size_t k = 1; k < length; ++k) {
      if (byte(i + k) >> 6 != 2) return i;
      value = value << 6 | (byte(i + k) & 0x3F);
    }
    constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < kLeast[length] || value > 0x10FFFF || value >> 11 == 27) return i;
    i += length;
  }
  return std::nullopt;
}

}  // namespace kvjpx_check
