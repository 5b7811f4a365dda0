// Portable anymap: PGM and PPM, and PAM for the numbers of components that those two don't have.
#include <string>

#include "encode.h"

namespace kvj2k {
namespace {

std::string plain_header(char kind, const Image& image) {
  return std::string("P") + kind + "\n" + std::to_string(image.width) + " " +
         std::to_string(image.height) + "\n255\n";
}

std::string pam_header(const Image& image) {
  std::string header = "P7\nWIDTH " + std::to_string(image.width) + "\nHEIGHT " +
                       std::to_string(image.height) + "\nDEPTH " +
                       std::to_string(image.components) + "\nMAXVAL 255\n";
  if (image.components == 2) header += "TUPLTYPE GRAYSCALE_ALPHA\n";
  if (image.components == 4) header += "TUPLTYPE RGB_ALPHA\n";
  return header + "ENDHDR\n";
}

}  // namespace

Bytes write_pnm(const Image& image) {
  const std::string header = image.components == 1   ? plain_header('5', image)
                             : image.components == 3 ? plain_header('6', image)
                                                     : pam_header(image);
  return write_interleaved(image, header);
}

}  // namespace kvj2k
