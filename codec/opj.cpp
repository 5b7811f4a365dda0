// Messages, threads and memory streams for OpenJPEG. Its callbacks must not let an exception pass.
#include "opj.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

namespace kvj2k {
namespace {

constexpr OPJ_SIZE_T kFailed = static_cast<OPJ_SIZE_T>(-1);
constexpr size_t kMessageLimit = 1000;
constexpr uint32_t kMostThreads = 256;
// What OpenJPEG reads ahead. It reads ahead anew behind each tile-part that it steps over.
constexpr size_t kReadBuffer = size_t{1} << 14;

OPJ_SIZE_T read(void* buffer, OPJ_SIZE_T size, void* user) {
  const size_t count = static_cast<Source*>(user)->read(static_cast<uint8_t*>(buffer), size);
  return count == 0 ? kFailed : count;
}

OPJ_OFF_T skip_source(OPJ_OFF_T distance, void* user) {
  if (distance < 0) return -1;
  const size_t count = static_cast<Source*>(user)->skip(static_cast<size_t>(distance));
  return count == 0 && distance > 0 ? -1 : static_cast<OPJ_OFF_T>(count);
}

OPJ_BOOL seek_source(OPJ_OFF_T position, void* user) {
  if (position < 0) return OPJ_FALSE;
  return static_cast<Source*>(user)->seek(static_cast<size_t>(position));
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

std::optional<int64_t> number_behind(const std::string& text, std::string_view words) {
  const size_t at = text.find(words);
  if (at == text.npos) return std::nullopt;
  int64_t number = 0;
  const char* const begin = text.data() + at + words.size();
  if (std::from_chars(begin, text.data() + text.size(), number).ec != std::errc()) {
    return std::nullopt;
  }
  return number;
}

}  // namespace

void OpjMessages::listen_to(opj_codec_t* codec) { opj_set_error_handler(codec, &add, this); }

void OpjMessages::note_warnings_of(opj_codec_t* codec) {
  opj_set_warning_handler(codec, &note_warning, this);
}

// OpenJPEG warns of data that it can't follow. That it does not know a marker is no such thing.
void OpjMessages::note_warning(const char* message, void* messages) {
  if (std::strncmp(message, "Unknown marker", 14) == 0) return;
  static_cast<OpjMessages*>(messages)->has_warning_ = true;
}

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

// "segment too long (300) with max (200) for codeblock 3 (p=0, b=2, r=4, c=0)"
std::optional<BrokenPacket> broken_packet(const Failure& failure) {
  const std::string text = failure.what();
  const auto needed = number_behind(text, "segment too long (");
  const auto there = number_behind(text, ") with max (");
  const size_t block = text.find("codeblock ");
  if (!needed || !there || block == text.npos) return std::nullopt;
  return BrokenPacket{*needed, *there, text.substr(block, text.find(')', block) - block)};
}

uint32_t thread_count(uint32_t asked) {
  if (asked != 0) return std::min(asked, kMostThreads);
  return static_cast<uint32_t>(std::max(1, opj_get_num_cpus()));
}

void use_threads(opj_codec_t* codec, uint32_t count) {
  if (opj_has_thread_support()) opj_codec_set_threads(codec, static_cast<int>(count));
}

void Source::append(ByteView piece) {
  if (piece.length == 0) return;
  pieces_.push_back({length_, piece});
  length_ += piece.length;
}

void Source::append(Bytes piece) {
  owned_.push_back(std::move(piece));
  append(ByteView{owned_.back().data(), owned_.back().size()});
}

size_t Source::read(uint8_t* to, size_t size) {
  const auto is_behind = [](size_t position, const Piece& piece) { return position < piece.begin; };
  auto piece = std::upper_bound(pieces_.begin(), pieces_.end(), position_, is_behind);
  const size_t wanted = std::min(size, length_ - position_);
  if (wanted == 0) return 0;
  --piece;
  for (size_t left = wanted; left > 0; ++piece) {
    const size_t from = position_ - piece->begin;
    const size_t count = std::min(left, piece->bytes.length - from);
    std::memcpy(to, piece->bytes.data + from, count);
    to += count;
    position_ += count;
    left -= count;
  }
  return wanted;
}

size_t Source::skip(size_t distance) {
  const size_t count = std::min(distance, length_ - position_);
  position_ += count;
  return count;
}

bool Source::seek(size_t position) {
  if (position > length_) return false;
  position_ = position;
  return true;
}

OpjStream open_source(Source& source) {
  auto stream = owned<OpjStream>(opj_stream_create(kReadBuffer, OPJ_TRUE));
  opj_stream_set_user_data(stream.get(), &source, nullptr);
  opj_stream_set_user_data_length(stream.get(), source.length());
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
