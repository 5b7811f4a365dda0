// Asks the codec.
#include "codestream.h"

#include "error.h"

namespace kvjpx_picture {
namespace {

void* make_codec() {
  void* codec = nullptr;
  if (kv_j2k_create(&codec) != KV_J2K_OK) throw Error(Error::Kind::kMemory, "not enough memory");
  return codec;
}

}  // namespace

Codestream::Codestream(std::string_view bytes, const Effort& effort)
    : effort_(effort), codec_(make_codec()) {
  kv_j2k_set_limits(codec_.get(), effort.work_limit, 0, effort.work_limit);
  int32_t code = kv_j2k_set_input_borrowed(codec_.get(), bytes.data(), bytes.size());
  header_.size = sizeof header_;
  if (code == KV_J2K_OK) code = kv_j2k_get_codestream(codec_.get(), &header_);
  if (code != KV_J2K_OK) fail(code);
  components_.resize(header_.components);
}

const kv_j2k_component& Codestream::component(uint32_t index) {
  kv_j2k_component& component = components_[index];
  if (component.size == 0) {
    component.size = sizeof component;
    const int32_t code = kv_j2k_get_component(codec_.get(), index, &component);
    if (code != KV_J2K_OK) fail(code);
  }
  return component;
}

Codestream::Samples Codestream::decode(const GridRectangle& part, uint32_t reduction,
                                       const std::vector<uint32_t>& components,
                                       std::string& damage) {
  kv_j2k_sample_request request = {};
  request.size = sizeof request;
  request.flags = effort_.is_strict ? 0 : KV_J2K_SAMPLES_PARTIAL;
  request.left = static_cast<uint32_t>(part.left);
  request.top = static_cast<uint32_t>(part.top);
  request.right = static_cast<uint32_t>(part.right);
  request.bottom = static_cast<uint32_t>(part.bottom);
  request.reduction = reduction;
  request.layers = effort_.layers;
  request.components = components.data();
  request.component_count = static_cast<uint32_t>(components.size());
  request.threads = effort_.threads;
  kv_j2k_samples* samples = nullptr;
  const int32_t code = kv_j2k_decode_samples(codec_.get(), &request, &samples);
  Samples result(samples);
  uint64_t work = 0;
  if (effort_.budget != nullptr && kv_j2k_get_work(codec_.get(), &work) == KV_J2K_OK) {
    *effort_.budget -= static_cast<double>(work);
    if (*effort_.budget < 0) {
      throw Error(Error::Kind::kTooLarge, "the codestreams together ask for too much work");
    }
  }
  if (code == KV_J2K_OK) {
    if (result->is_complete == 0) damage = std::string("missing: ") + result->missing;
    return result;
  }
  const bool is_damage = code == KV_J2K_ERR_BROKEN_CODESTREAM || code == KV_J2K_ERR_INTERNAL;
  if (effort_.is_strict || !is_damage) fail(code);
  damage = kv_j2k_get_error_text(codec_.get());
  return nullptr;
}

void Codestream::fail(int32_t code) const {
  if (code == KV_J2K_ERR_MEMORY) throw Error(Error::Kind::kMemory, "not enough memory");
  const std::string text = kv_j2k_get_error_text(codec_.get());
  throw Error(code == KV_J2K_ERR_LIMIT ? Error::Kind::kTooLarge : Error::Kind::kUndecodable,
              text.empty() ? "the codec gave up" : text);
}

}  // namespace kvjpx_picture
