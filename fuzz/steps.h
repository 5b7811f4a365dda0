// Inputs that are a file followed by steps to take on it.
#ifndef KVJPX_FUZZ_STEPS_H_
#define KVJPX_FUZZ_STEPS_H_

#include <algorithm>
#include <string_view>

#include "session.h"

namespace kvjpx::fuzz {

struct FileAndSteps {
  Treatment treatment;
  Bytes file;
  Bytes steps;

  Input step_input() const { return {steps.data(), steps.size()}; }
};

// A treatment (see session.h), the file, the word "STEP", the steps. Without the word the file's
// own bytes are the steps as well, so that plain files are good seeds.
inline FileAndSteps take_file_and_steps(Input input) {
  constexpr std::string_view kWord = "STEP";
  FileAndSteps result;
  result.treatment = take_treatment(input);
  result.file = input.bytes(input.size());
  const auto word = std::search(result.file.begin(), result.file.end(), kWord.begin(), kWord.end());
  if (word == result.file.end()) {
    result.steps = result.file;
  } else {
    result.steps.assign(word + kWord.size(), result.file.end());
    result.file.erase(word, result.file.end());
  }
  return result;
}

// Any of them, or the root when there is none.
inline BoxInfo pick_box(Input& input, const std::vector<BoxInfo>& boxes) {
  const size_t choice = input.byte();
  if (boxes.empty()) return {KV_JPX_ROOT, KV_JPX_ROOT, KV_JPX_ROOT, 0, true};
  return boxes[choice % boxes.size()];
}

}  // namespace kvjpx::fuzz

#endif  // KVJPX_FUZZ_STEPS_H_
