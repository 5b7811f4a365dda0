// inst, the instruction set box (ISO/IEC 15444-2, M.11).
//
//   2 Ityp, 2 REPT, 4 TICK, then instructions to the end, each with the groups that Ityp names:
//     bit 0  4 XO, 4 YO
//     bit 1  4 WIDTH, 4 HEIGHT
//     bit 3  4 PERSIST (top bit) and LIFE, 4 NEXT-USE
//     bit 5  4 XC, 4 YC, 4 WC, 4 HC
#include <stdio.h>

#include "boxes/boxes.h"

namespace kvjpx {
namespace {

constexpr uint32_t kAll = 0xFFFFFFFF;  // a size that takes whatever there is
constexpr uint32_t kPersistBit = 0x80000000;

struct Instruction {
  uint32_t x_offset;
  uint32_t y_offset;
  uint32_t width;
  uint32_t height;
  bool persists;
  uint32_t life;
  uint32_t next_use;
  uint32_t x_crop;
  uint32_t y_crop;
  uint32_t width_crop;
  uint32_t height_crop;
};
// What a new instruction holds, and what stands for groups that the file does not have.
constexpr Instruction kFresh = {0, 0, kAll, kAll, true, 0, 0, 0, 0, kAll, kAll};

struct InstBox : Box {
  uint16_t types;
  uint16_t repetitions;
  uint32_t tick;
  EntryList instructions;
};

const InstBox* inst(const Box* box) { return static_cast<const InstBox*>(box); }
EntryList* instructions_of(Box* box) { return &static_cast<InstBox*>(box)->instructions; }

bool is_life(const Box*, uint64_t value) { return value >> 31 == 0; }

// PERSIST and LIFE share a word.
uint64_t load_persistence(const void* record) {
  const auto* instruction = static_cast<const Instruction*>(record);
  return instruction->life | (instruction->persists ? kPersistBit : 0);
}
void store_persistence(void* record, uint64_t word) {
  auto* instruction = static_cast<Instruction*>(record);
  instruction->persists = (word & kPersistBit) != 0;
  instruction->life = static_cast<uint32_t>(word) & ~kPersistBit;
}

constexpr uint64_t kKnownTypes =
    KV_JPX_ITYP_OFFSETS | KV_JPX_ITYP_SCALING | KV_JPX_ITYP_PERSISTENCE | KV_JPX_ITYP_CROPPING;
bool has_known_types(const Box*, uint64_t value) { return (value & ~kKnownTypes) == 0; }

// Kept for compatibility, as in creg: a refused LIFE leaves an appended instruction behind, and a
// get takes one index more than there are instructions.
constexpr ListTraits kInstructions =
    list_of<&InstBox::instructions, Instruction>(0, kGetTakesCount | kAppendsBeforeCheck, &kFresh);
constexpr Field kRepetitions =
    single(JPX_FIELD_INST_REPT, "REPT", 2, member<&InstBox::repetitions>);
constexpr Field kFields[] = {
    single(JPX_FIELD_INST_Ityp, "Ityp", 2, member<&InstBox::types>),
    kRepetitions,
    // Kept for compatibility: TICK is served from REPT, with the width of a tick. Were it served
    // from itself, setting it would no longer change REPT. The tick goes through a file unchanged.
    stored_as(single(JPX_FIELD_INST_TICK, "TICK", 4, member<&InstBox::repetitions>), 4,
              member<&InstBox::tick>),
    repeating(JPX_FIELD_INST_XO, "XO", 4, kInstructions, member<&Instruction::x_offset>),
    repeating(JPX_FIELD_INST_YO, "YO", 4, kInstructions, member<&Instruction::y_offset>),
    repeating(JPX_FIELD_INST_WIDTH, "WIDTH", 4, kInstructions, member<&Instruction::width>),
    repeating(JPX_FIELD_INST_HEIGHT, "HEIGHT", 4, kInstructions, member<&Instruction::height>),
    stored_apart(repeating(JPX_FIELD_INST_PERSIST, "PERSIST", 1, kInstructions,
                           member<&Instruction::persists>)),
    stored_as(repeating(JPX_FIELD_INST_LIFE, "LIFE", 4, kInstructions, member<&Instruction::life>,
                        is_life),
              4, {load_persistence, store_persistence}),
    repeating(JPX_FIELD_INST_NEXT_USE, "NEXT_USE", 4, kInstructions,
              member<&Instruction::next_use>),
    repeating(JPX_FIELD_INST_XC, "XC", 4, kInstructions, member<&Instruction::x_crop>),
    repeating(JPX_FIELD_INST_YC, "YC", 4, kInstructions, member<&Instruction::y_crop>),
    repeating(JPX_FIELD_INST_WC, "WC", 4, kInstructions, member<&Instruction::width_crop>),
    repeating(JPX_FIELD_INST_HC, "HC", 4, kInstructions, member<&Instruction::height_crop>),
};

// In front of the others, which are the same.
constexpr Field kStandardFields[] = {
    single(JPX_FIELD_INST_Ityp, "Ityp", 2, member<&InstBox::types>, has_known_types),
    kRepetitions,
    single(JPX_FIELD_INST_TICK, "TICK", 4, member<&InstBox::tick>),
};

// The groups of an instruction, in their order on disk.
struct Group {
  uint16_t bit;  // of Ityp
  Numbers numbers;
};
template <uint32_t First, uint32_t End>
constexpr Group group_of(uint16_t bit) {
  return {bit, numbers_of<kFields, &kInstructions, First, End>()};
}
constexpr Group kGroups[] = {
    group_of<3, 5>(KV_JPX_ITYP_OFFSETS), group_of<5, 7>(KV_JPX_ITYP_SCALING),
    group_of<7, 10>(KV_JPX_ITYP_PERSISTENCE), group_of<10, 14>(KV_JPX_ITYP_CROPPING)};
static_assert(kGroups[0].numbers.rows.first->key == JPX_FIELD_INST_XO &&
                  kGroups[3].numbers.rows.end() == kFields + sizeof(kFields) / sizeof(kFields[0]),
              "the groups are the rows from XO to the last");

bool has(const Box* box, uint16_t bit) { return (inst(box)->types & bit) != 0; }

uint64_t instruction_size(const Box* box) {
  uint64_t size = 0;
  for (const Group& group : kGroups) {
    if (has(box, group.bit)) size += group.numbers.size;
  }
  return size;
}

uint64_t length_of_instructions(Box* box) {
  return instructions_of(box)->count * instruction_size(box);
}

void render_instructions(Box* box, Environment* env, Stream* stream) {
  const EntryList& instructions = *instructions_of(box);
  for (uint64_t k = 0; k < instructions.count; ++k) {
    for (const Group& group : kGroups) {
      if (!has(box, group.bit)) continue;
      render_numbers(env, stream, group.numbers, entry_at<Instruction>(instructions, k));
    }
  }
}

void print_instruction(const Box* box, uint32_t k, const Instruction& entry) {
  printf("INST[%u]:\n", k);
  if (has(box, KV_JPX_ITYP_OFFSETS)) printf("  XO=%u YO=%u\n", entry.x_offset, entry.y_offset);
  if (has(box, KV_JPX_ITYP_SCALING)) printf("  WIDTH=%u HEIGHT=%u\n", entry.width, entry.height);
  if (has(box, KV_JPX_ITYP_PERSISTENCE)) {
    printf("  PERSIST=%s LIFE=%u NEXT-USE=%u\n", entry.persists ? "yes" : "no", entry.life,
           entry.next_use);
  }
  if (has(box, KV_JPX_ITYP_CROPPING)) {
    printf("  XC=%u YC=%u WC=%u HC=%u\n", entry.x_crop, entry.y_crop, entry.width_crop,
           entry.height_crop);
  }
}

void jpx_inst_print(Box* box) {
  print_heading(box);
  printf("Ityp includes: ");
  if (inst(box)->types == 0) printf("no instructions");
  if (has(box, KV_JPX_ITYP_OFFSETS)) printf("offsets ");
  if (has(box, KV_JPX_ITYP_SCALING)) printf("scaling ");
  if (has(box, KV_JPX_ITYP_PERSISTENCE)) printf("persistence ");
  if (has(box, KV_JPX_ITYP_CROPPING)) printf("cropping");
  printf("\n");
  const EntryList& instructions = *instructions_of(box);
  for (uint32_t k = 0; k < instructions.count; ++k) {
    print_instruction(box, k, *entry_at<Instruction>(instructions, k));
  }
}

void read_instructions(Environment* env, Stream* stream, Box* box) {
  const uint64_t size = instruction_size(box);
  const uint64_t count = size == 0 ? 0 : bytes_left(stream) / size;
  EntryList* const instructions = instructions_of(box);
  list_resize(env, instructions, sizeof(Instruction), count);
  for (uint64_t k = 0; k < count; ++k) {
    auto* const instruction = entry_at<Instruction>(*instructions, k);
    *instruction = kFresh;
    for (const Group& group : kGroups) {
      if (!has(box, group.bit)) continue;
      read_numbers(env, stream, group.numbers, instruction);
    }
  }
}

// How long an instruction is, nobody knows when it has groups that nobody knows.
void read_known_instructions(Environment* env, Stream* stream, Box* box) {
  if (has_known_types(box, inst(box)->types)) {
    read_instructions(env, stream, box);
  } else {
    stream->content_is_bad = 1;
  }
}

void release_instructions(Box* box, Environment* env) { list_release(env, instructions_of(box)); }

constexpr BoxLayout standard_layout() {
  BoxLayout layout = box_layout<InstBox, kStandardFields>(
      code("inst"), jpx_inst_print,
      {length_of_instructions, render_instructions, read_known_instructions, release_instructions});
  layout.base = &kInst;
  return layout;
}

}  // namespace

constexpr BoxLayout kInst = box_layout<InstBox, kFields>(
    code("inst"), jpx_inst_print, {length_of_instructions, render_instructions, read_instructions});
constexpr BoxLayout kStandardInst = standard_layout();

}  // namespace kvjpx
