// What colr boxes need to know of an ICC profile (ISO 15076-1).
#ifndef KVJPX_TOOLS_ICC_PROFILE_H_
#define KVJPX_TOOLS_ICC_PROFILE_H_

#include <memory>
#include <string>
#include <string_view>

namespace kvjpx_tool {

class IccProfile {
 public:
  explicit IccProfile(std::string_view bytes);

  // Why the bytes are no profile; empty when they are one. The rest is for profiles only.
  const std::string& fault() const { return fault_; }
  // Whether it is of the restricted kind: input or display, grey or three components by a matrix
  // (ISO/IEC 15444-1, I.5.3.3).
  bool is_restricted() const;
  unsigned channels() const;
  // In English where there is a choice; UTF-8.
  std::string description() const;

 private:
  struct Close {
    void operator()(void* profile) const;
  };
  std::unique_ptr<void, Close> profile_;
  std::string fault_;
};

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_ICC_PROFILE_H_
