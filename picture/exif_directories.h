// Exif within TIFF: its directories become ones of the file around it.
#ifndef KVJPX_PICTURE_EXIF_DIRECTORIES_H_
#define KVJPX_PICTURE_EXIF_DIRECTORIES_H_

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kvjpx_picture {

struct ExifDirectories {
  bool is_big_endian = false;  // as the TIFF that takes them must be
  std::string bytes;           // to be placed where they were made for
  uint32_t exif_at = 0;        // position in the TIFF; 0: there is none
  uint32_t gps_at = 0;
  // Those of the main directory, by their tags.
  std::vector<std::pair<uint16_t, std::string>> texts;
  uint16_t orientation = 0;  // 0: not said
  bool has_thumbnail = false;
};

// Nothing for a structure with ends that lead nowhere. `position` is even.
std::optional<ExifDirectories> exif_directories(const std::string& exif, uint32_t position);

}  // namespace kvjpx_picture

#endif  // KVJPX_PICTURE_EXIF_DIRECTORIES_H_
