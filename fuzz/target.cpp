// The entry points that libFuzzer, AFL++ and the replay program call.
#include "target.h"

extern "C" int LLVMFuzzerInitialize(int*, char***);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Printed trees are of no interest here, only that printing them does no harm.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  return freopen("/dev/null", "w", stdout) == nullptr ? 1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kvjpx::fuzz::run({data, size});
  return 0;
}
