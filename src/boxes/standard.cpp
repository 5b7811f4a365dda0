// Box types as the standard has them (see standard.h).
#include "box/standard.h"

#include "box/code_table.h"
#include "boxes/boxes.h"
#include "kvjpx.h"
#include "stream/view.h"

namespace kvjpx {
namespace {

constexpr uint32_t kMaxPlaces = 6;
constexpr uint32_t kAnywhere = 1;  // in whatever container

struct StandardType {
  uint32_t code;
  const BoxLayout* layout;  // null: a plain container or an opaque payload
  const BoxOperations* operations;
  uint32_t places[kMaxPlaces];  // types of container, the root included; 0: none further
};

// A layout's operations, by the rules of the standard.
template <const BoxLayout& Layout>
struct ByStandard {
  static int32_t set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
    const Field* const field = find_field(Layout, box, key);
    if (field == nullptr) return JPX_ERR_NO_SUCH_FIELD;
    return set_field(*field, box, env, index, value, Rules::kStandard);
  }
  static int32_t get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
    const Field* const field = find_field(Layout, box, key);
    if (field == nullptr) return JPX_ERR_NO_SUCH_FIELD;
    return get_field(*field, box, index, value, Rules::kStandard);
  }
  static constexpr BoxOperations operations() {
    BoxOperations operations = Typed<Layout>::kOperations;
    operations.set_int_field = set_int_field;
    operations.get_int_field = get_int_field;
    return operations;
  }
  static constexpr BoxOperations kOperations = operations();
};

#define KVJPX_LAYOUT(layout) &layout, &ByStandard<layout>::kOperations
#define KVJPX_PLAIN nullptr, nullptr
// clang-format off
constexpr StandardType kTypes[] = {
    {code("jP  "), KVJPX_LAYOUT(kJp), {kRoot}},
    {code("ftyp"), KVJPX_LAYOUT(kStandardFtyp), {kRoot}},
    {code("rreq"), KVJPX_LAYOUT(kStandardRreq), {kRoot}},
    {code("jp2h"), KVJPX_PLAIN, {kRoot}},
    {code("ihdr"), KVJPX_LAYOUT(kIhdr), {code("jp2h"), code("jpch")}},
    {code("bpcc"), KVJPX_LAYOUT(kStandardBpcc), {code("jp2h"), code("jpch")}},
    {code("colr"), KVJPX_LAYOUT(kStandardColr), {code("jp2h"), code("cgrp")}},
    {code("pclr"), KVJPX_LAYOUT(kStandardPclr), {code("jp2h"), code("jpch")}},
    {code("cmap"), KVJPX_LAYOUT(kCmap), {code("jp2h"), code("jpch")}},
    {code("cdef"), KVJPX_LAYOUT(kCdef), {code("jp2h"), code("jplh")}},
    {code("res "), KVJPX_PLAIN, {code("jp2h"), code("jplh")}},
    {code("resc"), KVJPX_LAYOUT(kRes), {code("res ")}},
    {code("resd"), KVJPX_LAYOUT(kRes), {code("res ")}},
    {code("jpch"), KVJPX_PLAIN, {kRoot}},
    {code("jplh"), KVJPX_PLAIN, {kRoot}},
    {code("cgrp"), KVJPX_PLAIN, {code("jplh")}},
    {code("opct"), KVJPX_LAYOUT(kStandardOpct), {code("jplh")}},
    {code("creg"), KVJPX_LAYOUT(kCreg), {code("jplh")}},
    {code("comp"), KVJPX_PLAIN, {kRoot}},
    {code("copt"), KVJPX_LAYOUT(kCopt), {code("comp")}},
    {code("inst"), KVJPX_LAYOUT(kStandardInst), {code("comp")}},
    {code("jp2c"), KVJPX_PLAIN, {kRoot}},
    {code("jp2i"), KVJPX_PLAIN, {kRoot}},
    {code("ftbl"), KVJPX_PLAIN, {kRoot}},
    {code("flst"), KVJPX_LAYOUT(kFlst), {code("ftbl"), code("cref"), code("jpch"), code("jplh"), code("comp")}},
    {code("cref"), &kCref, &kCrefOperations, {code("jp2h"), code("jpch"), code("jplh"), code("asoc"), code("cgrp")}},
    {code("dtbl"), &kDtbl, &kDtblOperations, {kRoot}},
    {code("url "), KVJPX_LAYOUT(kStandardUrl), {code("uinf"), code("dtbl")}},
    {code("drep"), KVJPX_PLAIN, {kRoot}},
    {code("gtso"), KVJPX_PLAIN, {code("drep")}},
    {code("asoc"), KVJPX_PLAIN, {kAnywhere}},
    {code("nlst"), KVJPX_LAYOUT(kStandardNlst), {code("asoc")}},
    {code("lbl "), KVJPX_PLAIN, {kAnywhere}},
    {code("roid"), KVJPX_LAYOUT(kRoid), {kRoot, code("asoc"), code("jpch"), code("jp2h")}},
    {code("uuid"), KVJPX_LAYOUT(kUuid), {kAnywhere}},
    {code("uinf"), KVJPX_PLAIN, {kRoot, code("asoc")}},
    {code("ulst"), KVJPX_LAYOUT(kStandardUlst), {code("uinf")}},
    {code("xml "), KVJPX_PLAIN, {kAnywhere}},
    {code("mp7b"), KVJPX_PLAIN, {kAnywhere}},
    {code("mdat"), KVJPX_PLAIN, {kRoot}},
    {code("free"), KVJPX_PLAIN, {kAnywhere}},
};
// clang-format on
constexpr CodeTable kTable(kTypes);

const StandardType* find_standard_type(uint32_t type) { return kTable.find(type); }

Box* read_container(Environment* env, Stream* stream, const BoxLayout* layout, SuperBox* box,
                    uint32_t* counter) {
  if (layout != nullptr) read_numbers(env, stream, layout->single, box);
  const uint8_t is_bad = stream->content_is_bad;
  read_children(env, stream, box, counter);
  stream->content_is_bad |= is_bad;
  // Its numbers can only be judged now.
  if (layout != nullptr && layout->own.read != nullptr) layout->own.read(env, stream, box);
  return box;
}

}  // namespace

bool belongs(uint32_t type, const Box* parent) {
  const StandardType* const row = find_standard_type(type);
  if (row == nullptr || parent == nullptr || row->places[0] == kAnywhere) return true;
  for (const uint32_t place : row->places) {
    if (place != 0 && place == parent->type) return true;
  }
  return false;
}

Box* make_standard_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  const StandardType* const row = find_standard_type(type);
  const BoxType* const known = find_box_type(type);
  if (row != nullptr && row->layout != nullptr) {
    return make_record(env, row->layout->record_size, known->kind, type, parent, id,
                       *row->operations);
  }
  const bool is_container = known != nullptr && known->kind == kSuper;
  return (is_container ? jpx_make_super_box : jpx_make_basic_box)(env, type, parent, id);
}

Box* read_standard_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  Box* const box = make_standard_box(env, type, parent, *counter);
  const BoxLayout* const layout = standard_layout(type);
  if (box->kind == kSuper) {
    return read_container(env, stream, layout, static_cast<SuperBox*>(box), counter);
  }
  if (layout != nullptr) {
    read_typed(env, stream, *layout, box);
  } else {
    jpx_read_basic_box_data(env, stream, box);
  }
  return box;
}

// Reads the content once more.
bool stood_there(Environment* env, BoxIndex* index, Stream* input, Box* box, uint32_t key,
                 uint64_t index_of_entry, uint64_t value) {
  if (box->kind == kSuper || box->id >= index->count) return false;
  const BoxEntry entry = *index_entry(index, box->id);
  if (entry.box != box || entry.header_length == 0 || (entry.flags & KV_JPX_BOX_MALFORMED) != 0)
    return false;
  const uint64_t begin = entry.offset + entry.header_length;
  require_present(env, input, begin, entry.content_length);
  bs_set_current_position(env, input, begin);
  bs_push_read_limit(env, input, begin + entry.content_length);
  uint32_t counter = box->id;
  Box* const read = read_standard_box(env, box->type, input, box->parent, &counter);
  bs_pop_read_limit(env, input);
  uint64_t stood;
  const bool stands = read->get_int_field(read, key, index_of_entry, &stood) == JPX_OK;
  index_forget(index, read);  // so that no one takes its end for a change of the tree
  read->destroy(read, env);
  JPX_SafeFreeInternal(env, read);
  return stands && stood == value;
}

const BoxLayout* layout_of(const Box* box) {
  const BoxType* const known = find_box_type(box->type);
  if (known != nullptr && known->operations != nullptr &&
      known->operations->set_int_field == box->set_int_field) {
    return known->layout;
  }
  const StandardType* const row = find_standard_type(box->type);
  const bool is_standard = row != nullptr && row->layout != nullptr &&
                           row->operations->set_int_field == box->set_int_field;
  return is_standard ? row->layout : nullptr;
}

const BoxLayout* standard_layout(uint32_t type) {
  const StandardType* const row = find_standard_type(type);
  return row != nullptr ? row->layout : nullptr;
}

}  // namespace kvjpx
