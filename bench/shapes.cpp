// The shapes (see shapes.h).
#include "shapes.h"

namespace {

constexpr uint32_t kDeepest = 250;  // containers; the library takes 256

std::string big_endian(uint64_t value, int width) {
  std::string bytes;
  while (width-- > 0) bytes += static_cast<char>(value >> (8 * width));
  return bytes;
}

std::string box(const std::string& type, const std::string& payload) {
  return big_endian(8 + payload.size(), 4) + type + payload;
}

std::string repeated(const std::string& text, uint32_t count) {
  std::string all;
  all.reserve(text.size() * count);
  while (count-- > 0) all += text;
  return all;
}

std::string file_of(const std::string& boxes) {
  return box("jP  ", big_endian(0x0D0A870A, 4)) + boxes;
}

std::string nested(std::string content, uint32_t depth) {
  while (depth-- > 0) content = box("asoc", content);
  return content;
}

std::string image_header(uint32_t components) {
  return box("ihdr", big_endian(1, 4) + big_endian(1, 4) + big_endian(components, 2) +
                         std::string("\7\7\0\0", 4));
}

// One grey sample in one empty packet (ISO/IEC 15444-1, annex A).
std::string codestream() {
  const std::string size = big_endian(0xFF51, 2) + big_endian(41, 2) + big_endian(0, 2) +
                           big_endian(1, 4) + big_endian(1, 4) + big_endian(0, 8) +
                           big_endian(1, 4) + big_endian(1, 4) + big_endian(0, 8) +
                           big_endian(1, 2) + std::string("\7\1\1", 3);
  const std::string coding =
      big_endian(0xFF52, 2) + big_endian(12, 2) + std::string("\0\0\0\1\0\0\4\4\0\1", 10);
  const std::string quantization = big_endian(0xFF5C, 2) + big_endian(4, 2) + "\x40\x40";
  const std::string tile = big_endian(0xFF90, 2) + big_endian(10, 2) + big_endian(0, 2) +
                           big_endian(15, 4) + std::string("\0\1", 2) + big_endian(0xFF93, 2) +
                           std::string(1, '\0');
  return big_endian(0xFF4F, 2) + size + coding + quantization + tile + big_endian(0xFFD9, 2);
}

std::string wide(uint32_t count) { return file_of(repeated(box("free", ""), count)); }

std::string distinct_types(uint32_t count) {
  std::string boxes;
  for (uint32_t i = 0; i < count; ++i) {
    std::string type = "zzzz";
    uint32_t rest = i;
    for (char& letter : type) {
      letter = static_cast<char>('A' + rest % 26);
      rest /= 26;
    }
    boxes += box(type, "");
  }
  return file_of(boxes);
}

std::string deep(uint32_t count) {
  return file_of(repeated(nested("", kDeepest), count / kDeepest));
}

// Every length of a container's counts all the leaves.
std::string deep_then_wide(uint32_t count) {
  return file_of(nested(repeated(box("free", ""), count - kDeepest), kDeepest));
}

std::string pairs(uint32_t count) {
  return file_of(repeated(nested(box("free", ""), 2), count / 3));
}

// Searches by type that start in a gap between two boxes of the type have far to go.
std::string clusters(uint32_t count) {
  const std::string uuids = repeated(box("abcd", ""), count / 6);
  const std::string others = repeated(box("free", ""), count / 6);
  return file_of(uuids + others + uuids + others + uuids + others);
}

std::string annotated(uint32_t count) {
  const std::string region = std::string("\1\0\0\5", 4) + std::string(16, '\0');
  return file_of(repeated(
      box("asoc", box("lbl ", "annotation") + box("nlst", big_endian(1, 4)) + box("roid", region)),
      count / 4));
}

std::string headers(uint32_t count) {
  const std::string resolution =
      big_endian(1, 2) + big_endian(1, 2) + big_endian(1, 2) + big_endian(1, 2) + "\1\1";
  const std::string colour = std::string("\1\0\0", 3) + big_endian(17, 4);
  return file_of(
      repeated(box("jp2h", image_header(3) + box("bpcc", "\7\7\7") + box("colr", colour) +
                               box("cmap", big_endian(1, 4)) +
                               box("cdef", big_endian(1, 2) + big_endian(1, 6)) +
                               box("res ", box("resc", resolution) + box("resd", resolution))),
               count / 9));
}

// What the program mends in outputs.
std::string palettes(uint32_t count) {
  const std::string palette = box("pclr", big_endian(2, 2) + "\1\7" + "\1\2");
  return file_of(repeated(box("jp2h", palette), count / 2));
}

std::string references(uint32_t count) {
  return file_of(repeated(box("asoc", box("cref", "free" + box("free", ""))), count / 3));
}

// Each container ends with the box that may not stand in it.
std::string refused(uint32_t count) {
  return file_of(repeated(box("asoc", image_header(1)), count / 2));
}

std::string labels(uint32_t count) {
  return file_of(repeated(box("asoc", box("lbl ", std::string(200, 'l'))), count / 2));
}

std::string long_label(uint32_t count) {
  return file_of(box("asoc", box("lbl ", std::string(uint64_t{count} * 8, 'l'))));
}

std::string long_list(uint32_t count) {
  return file_of(box("asoc", box("nlst", repeated(big_endian(1, 4), count))));
}

std::string many_brands(uint32_t count) {
  return file_of(box("ftyp", "jpx " + big_endian(0, 4) + repeated("abcd", count)));
}

std::string many_instructions(uint32_t count) {
  const std::string head = big_endian(1, 2) + big_endian(1, 2) + big_endian(1, 4);
  return file_of(box("comp", box("inst", head + repeated(big_endian(0, 8), count))));
}

std::string codestreams(uint32_t count) {
  return file_of(box("jp2h", image_header(1)) + repeated(box("jp2c", codestream()), count));
}

}  // namespace

const std::vector<Shape>& all_shapes() {
  static const std::vector<Shape> shapes = {
      {"wide", wide, "DATA=hex:00"},
      {"distinct_types", distinct_types, "DATA=hex:00"},
      {"deep", deep, nullptr},
      {"deep_then_wide", deep_then_wide, "DATA=hex:00"},
      {"pairs", pairs, "DATA=hex:00"},
      {"clusters", clusters, "DATA=hex:00"},
      {"annotated", annotated, "RLCX[0]=5"},
      {"headers", headers, "VR_N=2"},
      {"palettes", palettes, "C[0]=2"},
      {"references", references, "DATA=hex:00"},
      {"refused", refused, nullptr},
      {"labels", labels, "DATA=hex:00"},
      {"long_label", long_label, "DATA=hex:00"},
      {"long_list", long_list, "AN[0]=2"},
      {"many_brands", many_brands, "CL[0]=5"},
      {"many_instructions", many_instructions, "REPT=2"},
      {"codestreams", codestreams, "DATA=hex:00"},
  };
  return shapes;
}
