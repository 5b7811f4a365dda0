// A file descriptor that is closed with its scope.
#ifndef KVJPX_TOOLS_DESCRIPTOR_H_
#define KVJPX_TOOLS_DESCRIPTOR_H_

#include <unistd.h>

namespace kvjpx_tool {

class Descriptor {
 public:
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  ~Descriptor() { close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return descriptor_; }

  // For writers, to whom closing can report a late error.
  bool close() {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    return descriptor < 0 || ::close(descriptor) == 0;
  }

 private:
  int descriptor_;
};

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_DESCRIPTOR_H_
