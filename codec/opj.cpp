// Messages, threads and memory streams for OpenJPEG. Its callbacks must not let an exception pass.
#include "opj.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace kvj2k {
namespace {

constexpr OPJ_SIZE_T kFailed = static_cast<OPJ_SIZE_T>(-1);
constexpr size_t kMessageLimit = 1000;

OPJ_SIZE_T read(void* buffer, OPJ_SIZE_T size, void* user) {
  auto& source = *static_cast<MemorySource*>(user);
  const size_t count = std::min(size, source.length - source.position);
  if (count == 0) return kFailed;
  std::memcpy(buffer, source.data + source.position, count);
  source.position += count;
  return count;
}

OPJ_OFF_T skip_source(OPJ_OFF_T distance, void* user) {
  auto& source = *static_cast<MemorySource*>(user);
  if (distance < 0) return -1;
  const size_t left = source.length - source.position;
  const size_t count = std::min(static_cast<size_t>(distance), left);
  source.position += count;
  return count == 0 && distance > 0 ? -1 : static_cast<OPJ_OFF_T>(count);
}

OPJ_BOOL seek_source(OPJ_OFF_T position, void* user) {
  auto& source = *static_cast<MemorySource*>(user);
  if (position < 0 || static_cast<uint64_t>(position) > source.length) return OPJ_FALSE;
  source.position = static_cast<size_t>(position);
  return OPJ_TRUE;
}

// Makes sure that the target holds bytes up to `end`.
bool extend(MemoryTarget& target, size_t end) {
  try {
    if (end > target.bytes.size()) target.bytes.resize(end);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

OPJ_SIZE_T write(void* buffer, OPJ_SIZE_T size, void* user) {
  auto& target = *static_cast<MemoryTarget*>(user);
  if (!extend(target, target.position + size)) return kFailed;
  std::memcpy(target.bytes.data() + target.position, buffer, size);
  target.position += size;
  return size;
}

OPJ_BOOL seek_target(OPJ_OFF_T position, void* user) {
  auto& target = *static_cast<MemoryTarget*>(user);
  if (position < 0 || !extend(target, static_cast<size_t>(position))) return OPJ_FALSE;
  target.position = static_cast<size_t>(position);
  return OPJ_TRUE;
}

OPJ_OFF_T skip_target(OPJ_OFF_T distance, void* user) {
  const auto& target = *static_cast<MemoryTarget*>(user);
  const OPJ_OFF_T position = static_cast<OPJ_OFF_T>(target.position) + distance;
  return seek_target(position, user) ? distance : -1;
}

}  // namespace

void OpjMessages::listen_to(opj_codec_t* codec) { opj_set_error_handler(codec, &add, this); }

void OpjMessages::add(const char* message, void* messages) {
  std::string& text = static_cast<OpjMessages*>(messages)->text_;
  const size_t length = std::strlen(message);
  if (text.size() + length > kMessageLimit) return;
  try {
    text.append(": ").append(message, length);
    while (text.back() == '\n' || text.back() == ' ') text.pop_back();
  } catch (const std::exception&) {
    // A message that there is no memory for is lost; the failure itself is still reported.
  }
}

Failure OpjMessages::failure(kv_j2k_error code, const std::string& what) const {
  // OpenJPEG tells short memory only in words. (Sizes that exceed the system's limits were weighed
  // before, so there it is memory, too.)
  const bool is_memory_short = text_.find("memory") != std::string::npos ||
                               text_.find("exceeds system limits") != std::string::npos;
  return Failure(is_memory_short ? KV_J2K_ERR_MEMORY : code, what + text_);
}

void use_all_cores(opj_codec_t* codec) {
  if (opj_has_thread_support()) opj_codec_set_threads(codec, opj_get_num_cpus());
}

OpjStream open_source(MemorySource& source) {
  auto stream = owned<OpjStream>(opj_stream_default_create(OPJ_TRUE));
  opj_stream_set_user_data(stream.get(), &source, nullptr);
  opj_stream_set_user_data_length(stream.get(), source.length);
  opj_stream_set_read_function(stream.get(), &read);
  opj_stream_set_skip_function(stream.get(), &skip_source);
  opj_stream_set_seek_function(stream.get(), &seek_source);
  return stream;
}

OpjStream open_target(MemoryTarget& target) {
  auto stream = owned<OpjStream>(opj_stream_default_create(OPJ_FALSE));
  opj_stream_set_user_data(stream.get(), &target, nullptr);
  opj_stream_set_write_function(stream.get(), &write);
  opj_stream_set_skip_function(stream.get(), &skip_target);
  opj_stream_set_seek_function(stream.get(), &seek_target);
  return stream;
}

}  // namespace kvj2k
