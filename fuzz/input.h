// What a fuzzer makes of its input: numbers and bytes taken from the front, and how much is left.
#ifndef KVJPX_FUZZ_INPUT_H_
#define KVJPX_FUZZ_INPUT_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace kvjpx::fuzz {

using Bytes = std::vector<uint8_t>;

// Ends the run when the library breaks a promise, so that the fuzzer reports the input.
inline void require(bool holds, const char* promise) {
  if (holds) return;
  fprintf(stderr, "broken promise: %s\n", promise);
  abort();
}

// An input that has run out delivers zeros.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  size_t size() const { return size_; }
  bool is_empty() const { return size_ == 0; }
  const uint8_t* data() const { return data_; }

  uint8_t byte() { return static_cast<uint8_t>(number(1)); }

  uint64_t number(size_t width) {
    uint64_t value = 0;
    while (width-- > 0) {
      value = value << 8 | (size_ != 0 ? *data_ : 0);
      skip(1);
    }
    return value;
  }

  // Zero, a small number, or one of up to eight bytes, whose width the input chooses as well.
  uint64_t any_number() {
    constexpr size_t kWidths[] = {0, 1, 2, 4, 8};
    const uint8_t choice = byte();
    return choice < 128 ? choice : number(kWidths[choice % 5]);
  }

  // At most as many as there are.
  Bytes bytes(size_t count) {
    if (count > size_) count = size_;
    Bytes result(data_, data_ + count);
    skip(count);
    return result;
  }

 private:
  void skip(size_t count) {
    if (count > size_) count = size_;
    if (count == 0) return;
    data_ += count;
    size_ -= count;
  }

  const uint8_t* data_;
  size_t size_;
};

}  // namespace kvjpx::fuzz

#endif  // KVJPX_FUZZ_INPUT_H_
