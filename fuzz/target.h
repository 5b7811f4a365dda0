// What a fuzzer provides; target.cpp turns it into libFuzzer's entry points.
#ifndef KVJPX_FUZZ_TARGET_H_
#define KVJPX_FUZZ_TARGET_H_

#include "input.h"

namespace kvjpx::fuzz {

// One run. Returns normally whatever the input is, unless the library breaks a promise.
void run(Input input);

}  // namespace kvjpx::fuzz

#endif  // KVJPX_FUZZ_TARGET_H_
