// Why a picture can't be had.
#ifndef KVJPX_PICTURE_ERROR_H_
#define KVJPX_PICTURE_ERROR_H_

#include <stdexcept>
#include <string>

namespace kvjpx_picture {

class Error : public std::runtime_error {
 public:
  enum class Kind {
    kNoSuchPart,  // the layer, codestream, frame or region that was asked for does not exist
    kUndecodable,
    kTooLarge,  // the limits forbid it
    kMemory
  };
  Error(Kind kind, const std::string& reason) : std::runtime_error(reason), kind_(kind) {}

  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

}  // namespace kvjpx_picture

#endif  // KVJPX_PICTURE_ERROR_H_
