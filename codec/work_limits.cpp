// Holds work against the limits, and says which of them forbids it.
#include "work_limits.h"

#include <algorithm>
#include <cstdio>

#include "failure.h"

namespace kvj2k {

void Limits::check(Cost cost, size_t length) const {
  const Cost by_length = static_cast<Cost>(max_per_byte) * static_cast<Cost>(length);
  const Cost by_size = std::max(static_cast<Cost>(free), by_length);
  const Cost allowed = std::min(static_cast<Cost>(max), by_size);
  if (cost <= allowed) return;
  const bool is_maximum = cost > static_cast<Cost>(max);
  char text[256];
  std::snprintf(text, sizeof text,
                "the codestream asks for work on %.4g million samples, and %.4g million are "
                "allowed for its %zu bytes; more with a larger %s in kv_j2k_set_limits",
                cost / 1e6, allowed / 1e6, length,
                is_maximum ? "'max'" : "'free' or 'max_per_byte'");
  throw Failure(KV_J2K_ERR_LIMIT, text);
}

}  // namespace kvj2k
