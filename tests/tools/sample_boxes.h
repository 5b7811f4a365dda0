// Tiny files, put together from boxes.
#ifndef KVJPX_TESTS_TOOLS_SAMPLE_BOXES_H_
#define KVJPX_TESTS_TOOLS_SAMPLE_BOXES_H_

#include <cstdint>
#include <string>

std::string big_endian(uint64_t value, unsigned width);

// A box with the 8-byte header.
std::string box(const std::string& type, const std::string& content);

std::string signature_box();
std::string file_type_box();
// Header of an image of 3 rows and 5 columns with one component.
std::string image_header_box();
std::string srgb_box();
std::string gray_box();

// Signature, file type, header with two colour specifications, a label, and a codestream box: exact
// 8-byte headers throughout, so it is written back as it was read.
std::string small_jp2();

#endif  // KVJPX_TESTS_TOOLS_SAMPLE_BOXES_H_
