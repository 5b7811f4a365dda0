// Reads the picture of a file, for whoever writes it or hands it on.
#ifndef KVJPX_TOOLS_PICTURE_READING_H_
#define KVJPX_TOOLS_PICTURE_READING_H_

#include <cstdint>
#include <functional>
#include <string>

#include "failure.h"
#include "opened_file.h"
#include "picture/picture.h"

namespace kvjpx_tool {

constexpr uint64_t kMillion = 1000000;
// Million samples: an RGB picture of 10,000 x 10,000.
constexpr uint64_t kDefaultDecodeLimit = 540;

// `region` with 0 for a right or bottom edge means the picture's.
void set_region(kvjpx_picture::Request& request, kvjpx_picture::Rectangle region);
// In million samples; 0: the default, and what the codec takes to be fair.
void set_limit(kvjpx_picture::Request& request, uint64_t limit);

// `remedy` stands behind the message about a picture that is too large.
Failure decoding_failure(const std::string& label, const kvjpx_picture::Error& error,
                         const std::string& remedy = "");

// All rows from top to bottom, some at a time: the samples, the first row and how many they are.
using TakeRows = std::function<void(const uint16_t* samples, uint32_t first, uint32_t count)>;
// Throws a Failure where nothing was there to be decoded.
void read_all_rows(const OpenedFile& file, kvjpx_picture::Picture& picture, const TakeRows& take);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_PICTURE_READING_H_
