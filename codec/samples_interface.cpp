// The exported functions of kv_j2k_samples.h.
#include <algorithm>
#include <limits>
#include <numeric>

#include "guarded.h"
#include "kv_j2k_samples.h"

using kvj2k::Area;
using kvj2k::CodestreamHeader;
using kvj2k::ComponentHeader;
using kvj2k::Failure;
using kvj2k::guarded;
using kvj2k::SampleRequest;
using kvj2k::Session;

namespace {

[[noreturn]] void refuse(const char* text) { throw Failure(KV_J2K_ERR_INVALID_ARGUMENT, text); }

// Every structure begins with its size, by which a caller of another time is known.
template <typename Structure>
void check_size(const Structure* structure) {
  if (structure == nullptr) refuse("a pointer is null");
  if (structure->size != sizeof(Structure)) refuse("a structure has another size than expected");
}

Area area_of(const kv_j2k_sample_request& request, const CodestreamHeader& header) {
  const Area image = {{header.x.begin, header.x.end}, {header.y.begin, header.y.end}};
  if ((request.left | request.top | request.right | request.bottom) == 0) return image;
  const Area area = {{request.left, request.right}, {request.top, request.bottom}};
  if (area.is_empty()) refuse("the rectangle is empty");
  if (!(area.x.intersected(image.x) == area.x && area.y.intersected(image.y) == area.y)) {
    refuse("the rectangle reaches beyond the image area");
  }
  return area;
}

std::vector<uint32_t> components_of(const kv_j2k_sample_request& request, size_t count) {
  std::vector<uint32_t> components(request.components == nullptr ? count : request.component_count);
  if (components.empty()) refuse("no component is asked for");
  if (request.components == nullptr) {
    std::iota(components.begin(), components.end(), 0);
    return components;
  }
  std::copy_n(request.components, components.size(), components.begin());
  if (components.back() >= count ||
      std::adjacent_find(components.begin(), components.end(),
                         [](uint32_t a, uint32_t b) { return a >= b; }) != components.end()) {
    refuse("a component does not exist, or the components are not in ascending order");
  }
  return components;
}

SampleRequest read_request(const kv_j2k_sample_request& request, const CodestreamHeader& header) {
  SampleRequest result;
  result.area = area_of(request, header);
  if (request.reduction > header.fewest_levels) {
    refuse("the codestream has fewer decomposition levels than halvings are asked for");
  }
  result.reduction = request.reduction;
  result.layers = request.layers;
  result.threads = request.threads;
  result.is_partial = (request.flags & KV_J2K_SAMPLES_PARTIAL) != 0;
  result.components = components_of(request, header.components.size());
  return result;
}

}  // namespace

extern "C" {

int32_t kv_j2k_set_input_borrowed(void* codec, const void* data, uint64_t length) {
  return guarded(codec, [&](Session& session) {
    session.borrow_codestream(static_cast<const uint8_t*>(data), length);
  });
}

int32_t kv_j2k_get_codestream(void* codec, kv_j2k_codestream* out) {
  return guarded(codec, [&](Session& session) {
    check_size(out);
    const CodestreamHeader& header = session.codestream().header;
    out->components = static_cast<uint32_t>(header.components.size());
    out->left = header.x.begin;
    out->top = header.y.begin;
    out->right = header.x.end;
    out->bottom = header.y.end;
    out->tile_left = header.x.tile_begin;
    out->tile_top = header.y.tile_begin;
    out->tile_width = header.x.tile_size;
    out->tile_height = header.y.tile_size;
    out->levels = header.fewest_levels;
  });
}

int32_t kv_j2k_get_component(void* codec, uint32_t index, kv_j2k_component* out) {
  return guarded(codec, [&](Session& session) {
    check_size(out);
    const auto& components = session.codestream().header.components;
    if (index >= components.size()) refuse("there is no such component");
    const ComponentHeader& component = components[index];
    out->precision = component.precision;
    out->is_signed = component.is_signed;
    out->dx = component.dx;
    out->dy = component.dy;
  });
}

int32_t kv_j2k_decode_samples(void* codec, const kv_j2k_sample_request* request,
                              kv_j2k_samples** samples) {
  if (samples != nullptr) *samples = nullptr;
  return guarded(codec, [&](Session& session) {
    if (samples == nullptr) refuse("there is nowhere to deliver to");
    check_size(request);
    const CodestreamHeader& header = session.codestream().header;
    *samples = session.decode_samples(read_request(*request, header)).release();
  });
}

void kv_j2k_free_samples(kv_j2k_samples* samples) {
  delete static_cast<kvj2k::SampleSet*>(samples);
}

}  // extern "C"
