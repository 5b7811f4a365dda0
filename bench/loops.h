// The loops that hosts run over a file with the library's public functions.
#ifndef KVJPX_BENCH_LOOPS_H_
#define KVJPX_BENCH_LOOPS_H_

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "kvjpx.h"
#include "measure.h"

// What a loop works on.
struct Subject {
  kv_jpx_context* context;
  std::string file;
  std::string path;        // of the same bytes on disk
  std::string spare_path;  // for outputs
  uint32_t count;
  std::vector<uint32_t> ids;       // of all boxes, in the order of the file
  std::vector<uint32_t> shuffled;  // the same
};

struct Loop {
  std::string name;
  std::function<void(Subject&)> run;
  bool is_of_empty_file;  // it makes its own items
};

const std::vector<Loop>& all_loops();

// The cost of the loop alone, without loading; memory counts all that the context has.
Cost run_loop(const Loop& loop, const std::string& path, uint32_t count);

// What a box costs when a file is loaded in the default mode and with everything kept, which may be
// more boxes. Measured in turns; the least of each.
std::pair<Cost, Cost> compare_loads(const std::string& file);

#endif  // KVJPX_BENCH_LOOPS_H_
