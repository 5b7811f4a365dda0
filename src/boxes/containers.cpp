// Plain containers: boxes of one type that hold others and no fields. Their reader is the parser
// itself, which does not ask where they stand.
#include "box/super.h"
#include "boxes/boxes.h"

namespace kvjpx {
namespace {

Box* make_container(Environment* env, uint32_t code, uint32_t type, Box* parent, uint32_t id) {
  return may_stand(code, parent) ? jpx_make_super_box(env, type, parent, id) : nullptr;
}

}  // namespace

extern "C" {

Box* jpx_make_asoc_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_container(env, code("asoc"), type, parent, id);
}
Box* jpx_read_asoc_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_super_box(env, type, stream, parent, counter);
}

Box* jpx_make_cgrp_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_container(env, code("cgrp"), type, parent, id);
}
Box* jpx_read_cgrp_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_super_box(env, type, stream, parent, counter);
}

Box* jpx_make_comp_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_container(env, code("comp"), type, parent, id);
}
Box* jpx_read_comp_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_super_box(env, type, stream, parent, counter);
}

Box* jpx_make_drep_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_container(env, code("drep"), type, parent, id);
}
Box* jpx_read_drep_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_super_box(env, type, stream, parent, counter);
}

Box* jpx_make_ftbl_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_container(env, code("ftbl"), type, parent, id);
}
Box* jpx_read_ftbl_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_super_box(env, type, stream, parent, counter);
}

Box* jpx_make_jp2h_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_container(env, code("jp2h"), type, parent, id);
}
Box* jpx_read_jp2h_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_super_box(env, type, stream, parent, counter);
}

Box* jpx_make_jpch_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_container(env, code("jpch"), type, parent, id);
}
Box* jpx_read_jpch_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_super_box(env, type, stream, parent, counter);
}

Box* jpx_make_jplh_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_container(env, code("jplh"), type, parent, id);
}
Box* jpx_read_jplh_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_super_box(env, type, stream, parent, counter);
}

Box* jpx_make_res__box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_container(env, code("res "), type, parent, id);
}
Box* jpx_read_res__box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_super_box(env, type, stream, parent, counter);
}

Box* jpx_make_uinf_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_container(env, code("uinf"), type, parent, id);
}
Box* jpx_read_uinf_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return jpx_read_super_box(env, type, stream, parent, counter);
}

}  // extern "C"
}  // namespace kvjpx
