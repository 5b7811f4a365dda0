// A number inside a record: how tables of fields and of wire layouts reach it, whatever its width.
#ifndef KVJPX_BOX_SLOT_H_
#define KVJPX_BOX_SLOT_H_

#include <stdint.h>

namespace kvjpx {

struct Slot {
  uint64_t (*load)(const void* record);
  void (*store)(void* record, uint64_t value);  // keeps the low bits
};

template <auto Member>
struct MemberAccess;

template <class Record, class Number, Number Record::*Member>
struct MemberAccess<Member> {
  static uint64_t load(const void* record) {
    return static_cast<uint64_t>(static_cast<const Record*>(record)->*Member);
  }
  static void store(void* record, uint64_t value) {
    static_cast<Record*>(record)->*Member = static_cast<Number>(value);
  }
};

template <class Number>
struct NumberAccess {
  static uint64_t load(const void* record) { return *static_cast<const Number*>(record); }
  static void store(void* record, uint64_t value) {
    *static_cast<Number*>(record) = static_cast<Number>(value);
  }
};

// A member of a record, and a record that is nothing but a number.
template <auto Member>
constexpr Slot member = {MemberAccess<Member>::load, MemberAccess<Member>::store};
template <class Number>
constexpr Slot number = {NumberAccess<Number>::load, NumberAccess<Number>::store};

}  // namespace kvjpx

#endif  // KVJPX_BOX_SLOT_H_
