// Opaque boxes with a row of their own: contiguous codestream, intellectual property, XML, label
// and the like. They can be made at the top level only, although the parser takes them anywhere:
// labels and XML below other boxes come from files, not from editing.
#include "box/basic.h"
#include "boxes/boxes.h"

namespace kvjpx {
namespace {

Box* make_opaque(Environment* env, uint32_t code, uint32_t type, Box* parent, uint32_t id) {
  return may_stand(code, parent) ? jpx_make_basic_box(env, type, parent, id) : nullptr;
}

}  // namespace

extern "C" {

Box* jpx_make_free_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_opaque(env, code("free"), type, parent, id);
}
Box* jpx_read_free_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_basic_box(env, type, stream, parent, counter);
}

Box* jpx_make_gtso_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_opaque(env, code("gtso"), type, parent, id);
}
Box* jpx_read_gtso_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_basic_box(env, type, stream, parent, counter);
}

Box* jpx_make_jp2c_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_opaque(env, code("jp2c"), type, parent, id);
}
Box* jpx_read_jp2c_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_basic_box(env, type, stream, parent, counter);
}

Box* jpx_make_jp2i_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_opaque(env, code("jp2i"), type, parent, id);
}
Box* jpx_read_jp2i_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_basic_box(env, type, stream, parent, counter);
}

Box* jpx_make_lbl__box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_opaque(env, code("lbl "), type, parent, id);
}
Box* jpx_read_lbl__box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_basic_box(env, type, stream, parent, counter);
}

Box* jpx_make_mdat_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_opaque(env, code("mdat"), type, parent, id);
}
Box* jpx_read_mdat_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_basic_box(env, type, stream, parent, counter);
}

Box* jpx_make_mp7b_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_opaque(env, code("mp7b"), type, parent, id);
}
Box* jpx_read_mp7b_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_basic_box(env, type, stream, parent, counter);
}

Box* jpx_make_xml__box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_opaque(env, code("xml "), type, parent, id);
}
Box* jpx_read_xml__box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_basic_box(env, type, stream, parent, counter);
}

Box* jpx_make_unknown_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return jpx_make_basic_box(env, type, parent, id);
}
Box* jpx_read_unknown_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                          uint32_t* counter) {
  return jpx_read_basic_box(env, type, stream, parent, counter);
}

}  // extern "C"
}  // namespace kvjpx
