// Boxes of tiny files.
#include "sample_boxes.h"

std::string big_endian(uint64_t value, unsigned width) {
  std::string bytes;
  while (width-- > 0) bytes += static_cast<char>(value >> (8 * width));
  return bytes;
}

std::string box(const std::string& type, const std::string& content) {
  return big_endian(content.size() + 8, 4) + type + content;
}

std::string signature_box() { return box("jP  ", "\r\n\x87\n"); }

std::string file_type_box() { return box("ftyp", "jp2 " + big_endian(0, 4) + "jp2 "); }

std::string image_header_box() {
  return box("ihdr",
             big_endian(3, 4) + big_endian(5, 4) + big_endian(1, 2) + big_endian(0x07070000, 4));
}

std::string srgb_box() { return box("colr", big_endian(0x010000, 3) + big_endian(16, 4)); }

std::string gray_box() { return box("colr", big_endian(0x010000, 3) + big_endian(17, 4)); }

std::string small_jp2() {
  return signature_box() + file_type_box() +
         box("jp2h", image_header_box() + srgb_box() + gray_box()) + box("lbl ", "Nemo") +
         box("jp2c", std::string("\xFF\x4F\x00\x01\xFF\xD9", 6));
}
