// Finds the row of a table that belongs to a four-character code, by a hash made when the library
// is compiled.
#ifndef KVJPX_BOX_CODE_TABLE_H_
#define KVJPX_BOX_CODE_TABLE_H_

#include <stdint.h>

namespace kvjpx {

// `Row` has a member `code`; no two rows have the same one.
template <class Row, uint32_t N>
class CodeTable {
 public:
  constexpr explicit CodeTable(const Row (&rows)[N]) : rows_(rows), places_() {
    for (uint32_t i = 0; i < N; ++i) {
      uint32_t place = place_of(rows[i].code);
      while (places_[place] != 0) place = (place + 1) % kPlaces;
      places_[place] = static_cast<uint8_t>(i + 1);
    }
  }

  // Null for a code without a row.
  constexpr const Row* find(uint32_t code) const {
    for (uint32_t place = place_of(code); places_[place] != 0; place = (place + 1) % kPlaces) {
      const Row& row = rows_[places_[place] - 1];
      if (row.code == code) return &row;
    }
    return nullptr;
  }

 private:
  static constexpr uint32_t kPlaces = 256;  // most of them free, so that few codes meet
  static_assert(N < kPlaces / 2, "a place holds a row's number in a byte");

  static constexpr uint32_t place_of(uint32_t code) { return code * 0x9E3779B1u >> 24; }

  const Row* rows_;
  uint8_t places_[kPlaces];  // number of the row, from 1; 0: free
};

}  // namespace kvjpx

#endif  // KVJPX_BOX_CODE_TABLE_H_
