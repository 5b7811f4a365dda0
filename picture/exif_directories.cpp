#include "exif_directories.h"

namespace kvjpx_picture {
namespace {

constexpr uint16_t kOrientation = 0x112;
constexpr uint16_t kExifDirectory = 0x8769;
constexpr uint16_t kGpsDirectory = 0x8825;
constexpr uint16_t kInteroperabilityDirectory = 0xA005;
// Description, maker, model, software, date, artist, copyright.
constexpr uint16_t kTexts[] = {0x10E, 0x10F, 0x110, 0x131, 0x132, 0x13B, 0x8298};
constexpr uint16_t kText = 2;
constexpr uint32_t kEntrySize = 12;
// Entries that share their values could otherwise make much of little.
constexpr size_t kMaxGrowth = 4;

struct Malformed {};

struct Entry {
  uint16_t tag;
  uint16_t type;
  uint32_t count;
  uint32_t at;     // the entry itself
  uint32_t value;  // or its position
  uint64_t size() const {
    constexpr uint8_t kSizes[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4};
    return type < sizeof kSizes ? uint64_t{count} * kSizes[type] : 0;
  }
};

class Copier {
 public:
  Copier(const std::string& exif, uint32_t position) : exif_(exif), position_(position) {}

  ExifDirectories take() {
    const std::string order = exif_.substr(0, 2);
    if (order != "MM" && order != "II") throw Malformed{};
    result_.is_big_endian = order == "MM";
    if (number(2, 2) != 42) throw Malformed{};
    const uint32_t main = number(4, 4);
    for (const Entry& entry : entries(main)) take_main(entry);
    const uint32_t next_at = main + 2 + number(main, 2) * kEntrySize;
    result_.has_thumbnail = next_at + 4 <= exif_.size() && number(next_at, 4) != 0;
    return std::move(result_);
  }

 private:
  uint32_t number(uint64_t at, uint32_t width) const {
    if (at + width > exif_.size()) throw Malformed{};
    uint32_t value = 0;
    for (uint32_t i = 0; i < width; ++i) {
      const uint64_t place = at + (result_.is_big_endian ? i : width - 1 - i);
      value = value << 8 | static_cast<unsigned char>(exif_[place]);
    }
    return value;
  }

  std::vector<Entry> entries(uint32_t directory) const {
    std::vector<Entry> all(number(directory, 2));
    uint64_t at = uint64_t{directory} + 2;
    for (Entry& entry : all) {
      entry = {static_cast<uint16_t>(number(at, 2)), static_cast<uint16_t>(number(at + 2, 2)),
               number(at + 4, 4), static_cast<uint32_t>(at), number(at + 8, 4)};
      at += kEntrySize;
    }
    return all;
  }

  std::string value_of(const Entry& entry) const {
    const uint64_t at = entry.size() > 4 ? entry.value : entry.at + 8;
    if (at + entry.size() > exif_.size()) throw Malformed{};
    return exif_.substr(at, entry.size());
  }

  void take_main(const Entry& entry) {
    if (entry.tag == kExifDirectory) result_.exif_at = copy(entry.value);
    if (entry.tag == kGpsDirectory) result_.gps_at = copy(entry.value);
    if (entry.tag == kOrientation) {
      result_.orientation = static_cast<uint16_t>(number(entry.at + 8, 2));
    }
    for (const uint16_t text : kTexts) {
      if (entry.tag != text || entry.type != kText) continue;
      const std::string value = value_of(entry);
      result_.texts.emplace_back(text, value.substr(0, value.find('\0')));
    }
  }

  void patch(size_t at, uint32_t value) {
    for (uint32_t i = 0; i < 4; ++i, value >>= 8) {
      result_.bytes[at + (result_.is_big_endian ? 3 - i : i)] = static_cast<char>(value);
    }
  }

  size_t append(const std::string& bytes) {
    result_.bytes.append(result_.bytes.size() % 2, '\0');
    const size_t begin = result_.bytes.size();
    result_.bytes += bytes;
    if (result_.bytes.size() > kMaxGrowth * exif_.size()) throw Malformed{};
    return begin;
  }

  // The directory and what belongs to it. Returns where it will be.
  uint32_t copy(uint32_t directory) {
    const std::vector<Entry> all = entries(directory);
    const size_t begin = append(exif_.substr(directory, 2 + all.size() * kEntrySize));
    result_.bytes.append(4, '\0');  // no directory follows
    for (size_t i = 0; i < all.size(); ++i) {
      const size_t value_at = begin + 2 + i * kEntrySize + 8;
      if (all[i].tag == kInteroperabilityDirectory && !is_within_) {
        is_within_ = true;
        patch(value_at, copy(all[i].value));
        is_within_ = false;
      } else if (all[i].size() > 4) {
        patch(value_at, position_ + static_cast<uint32_t>(append(value_of(all[i]))));
      }
    }
    return position_ + static_cast<uint32_t>(begin);
  }

  const std::string& exif_;
  const uint32_t position_;
  bool is_within_ = false;
  ExifDirectories result_;
};

}  // namespace

std::optional<ExifDirectories> exif_directories(const std::string& exif, uint32_t position) {
  try {
    return Copier(exif, position).take();
  } catch (const Malformed&) {
    return std::nullopt;
  }
}

}  // namespace kvjpx_picture
