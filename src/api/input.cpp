// Public functions: setting the input. The whole file is parsed at once into the tree of boxes.
#include "api/lookup.h"
#include "kvjpx.h"

namespace kvjpx {
namespace {

// The tree goes before the stream that its payloads lie in.
void discard_input(Context& context) {
  destroy_tree(context);
  destroy_stream(&context.environment, context.input);
}

// open(env) gives the reader of the new input.
template <class Open>
int32_t set_input(Context* context, const Open& open) {
  return guarded(context, [&](Context& live) -> int32_t {
    Environment* const env = &live.environment;
    discard_input(live);
    live.input = open(env);
    live.index = make_index(env, &live.at);
    live.input->index = live.index;
    live.input->keeps_everything = live.keeps_everything != 0;
    live.index->keeps_everything = live.input->keeps_everything;
    live.root = jpx_read_super_box(env, kRoot, live.input, nullptr, &live.next_id);
    live.input->index = nullptr;
    live.index->root = live.root;
    live.index->findings_of_reader = live.index->findings.count;
    live.index->root_entry.content_length = live.input->size;
    return JPX_OK;
  });
}

}  // namespace
}  // namespace kvjpx

using namespace kvjpx;

int32_t kv_jpx_set_input_image(kv_jpx_context* context, const void* data, uint64_t length) {
  if (data == nullptr && length != 0) {
    return guarded(context, [](Context&) -> int32_t { return JPX_ERR_INVALID_ARGUMENT; });
  }
  return set_input(context,
                   [&](Environment* env) { return bs_reader_from_buffer(env, data, length); });
}

int32_t kv_jpx_set_input_image_file(kv_jpx_context* context, const char* path) {
  return set_input(context, [&](Environment* env) {
    return context->keeps_everything != 0 ? open_whole_file(env, path)
                                          : open_regular_file(env, kFile, path);
  });
}

int32_t kv_jpx_set_input_image_mapped(kv_jpx_context* context, const char* path) {
  return set_input(context, [&](Environment* env) {
    if (context->keeps_everything != 0) return open_whole_file(env, path);
    Stream* const stream = open_regular_file(env, kMapped, path);
    bs_map_pointer(env, stream, stream->size);
    return stream;
  });
}
