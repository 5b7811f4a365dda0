// Finds sub-bands without a quantization step size (ISO/IEC 15444-1, A.6.4 and A.6.5).
#ifndef KVJPX_CODESTREAM_STEP_CHECK_H_
#define KVJPX_CODESTREAM_STEP_CHECK_H_

#include <utility>
#include <vector>

#include "markers.h"

namespace kvjpx_codestream {

// The number of steps comes from QCD and QCC, that of sub-bands from COD and COC; both kinds may
// stand in the main header and in a tile's, for all components or for one. A tile is checked in
// time of its own segments, however many the main header has.
class StepCheck {
 public:
  // Checks the main header.
  StepCheck(const Scope& main, size_t components, Observer& observer);
  // Checks what a tile's header changes.
  void check_tile(const Scope& tile) const;

 private:
  // The components that a header has segments for.
  void check_own(const Scope& header) const;
  void compare(const Coding* coding, const Quantizer* quantizer, int64_t component) const;

  const Scope& main_;
  size_t components_;
  Observer& observer_;
  // The main header's, the fewest steps and the most levels first; kNone stands for all components
  // without segments of their own.
  std::vector<std::pair<const Quantizer*, int64_t>> quantizers_;
  std::vector<std::pair<const Coding*, int64_t>> codings_;
};

}  // namespace kvjpx_codestream

#endif  // KVJPX_CODESTREAM_STEP_CHECK_H_
