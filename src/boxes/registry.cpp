// The box registry (see registry.h), made from the list of box types.
#include "box/registry.h"

#include "box/code_table.h"
#include "boxes/boxes.h"

namespace kvjpx {
namespace {

#define KVJPX_TYPED_ROW(kind, type, make, read, layout, misplaced, ...)         \
  {code(type), kind,  read,         make, &layout, &Typed<layout>::kOperations, \
   misplaced,  false, {__VA_ARGS__}},
#define KVJPX_PLAIN_ROW(kind, type, make, read, ...) \
  {code(type), kind, read, make, nullptr, nullptr, Misplaced::kTaken, false, {__VA_ARGS__}},
#define KVJPX_CONTAINER_ROW(...) KVJPX_PLAIN_ROW(kSuper, __VA_ARGS__)
#define KVJPX_OPAQUE_ROW(...) KVJPX_PLAIN_ROW(kBasic, __VA_ARGS__)
#define KVJPX_OWN_ROW(kind, type, make, read, layout, ...) \
  {code(type), kind, read, make, layout, nullptr, Misplaced::kTaken, true, {__VA_ARGS__}},
constexpr BoxType kRows[] = {
    KVJPX_BOX_TYPES(KVJPX_TYPED_ROW, KVJPX_CONTAINER_ROW, KVJPX_OPAQUE_ROW, KVJPX_OWN_ROW)};
constexpr CodeTable kTable(kRows);

}  // namespace

BoxTypes all_box_types() { return {kRows, sizeof(kRows) / sizeof(kRows[0])}; }

bool may_stand(const BoxType& row, const Box* parent) {
  if (row.parents[0] == kNoParent) return true;
  if (parent == nullptr) return false;
  if (row.parents[0] == kAnyParent) return true;
  for (const uint32_t allowed : row.parents) {
    if (allowed != 0 && allowed == parent->type) return true;
  }
  return false;
}

Box* make_by_row(const BoxType& row, Environment* env, uint32_t type, Box* parent, uint32_t id) {
  if (!may_stand(row, parent)) return nullptr;
  if (row.kind == kSuper) return jpx_make_super_box(env, type, parent, id);
  if (row.layout == nullptr) return jpx_make_basic_box(env, type, parent, id);
  return make_record(env, row.layout->record_size, row.kind, type, parent, id, *row.operations);
}

const BoxType* find_box_type(uint32_t code) { return kTable.find(code); }

bool may_stand(uint32_t code, const Box* parent) {
  const BoxType* const row = find_box_type(code);
  return row == nullptr || may_stand(*row, parent);
}

extern "C" {

// The functions of all rows but those that have their own.
#define KVJPX_DEFINE(type_code, make, read)                                                    \
  Box* make(Environment* env, uint32_t type, Box* parent, uint32_t id) {                       \
    constexpr const BoxType& kRow = *kTable.find(code(type_code));                             \
    return make_by_row(kRow, env, type, parent, id);                                           \
  }                                                                                            \
  Box* read(Environment* env, uint32_t type, Stream* stream, Box* parent, uint32_t* counter) { \
    constexpr const BoxType& kRow = *kTable.find(code(type_code));                             \
    return read_by_row(kRow, env, type, stream, parent, counter);                              \
  }
#define KVJPX_DEFINE_TYPED(kind, type, make, read, ...) KVJPX_DEFINE(type, make, read)
#define KVJPX_DEFINE_PLAIN(type, make, read, ...) KVJPX_DEFINE(type, make, read)
#define KVJPX_DEFINE_NOTHING(...)
KVJPX_BOX_TYPES(KVJPX_DEFINE_TYPED, KVJPX_DEFINE_PLAIN, KVJPX_DEFINE_PLAIN, KVJPX_DEFINE_NOTHING)

Box* jpx_make_unknown_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return jpx_make_basic_box(env, type, parent, id);
}
Box* jpx_read_unknown_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                          uint32_t* counter) {
  return jpx_read_basic_box(env, type, stream, parent, counter);
}

}  // extern "C"
}  // namespace kvjpx
