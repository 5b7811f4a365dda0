// Files of about n boxes (or list entries), each of a shape that has once made, or might make, some
// work cost more than in proportion.
#ifndef KVJPX_BENCH_SHAPES_H_
#define KVJPX_BENCH_SHAPES_H_

#include <cstdint>
#include <string>
#include <vector>

struct Shape {
  const char* name;
  std::string (*make)(uint32_t count);
  const char* assignment;  // FIELD=VALUE of its last box; null: that has no fields
};

const std::vector<Shape>& all_shapes();

#endif  // KVJPX_BENCH_SHAPES_H_
