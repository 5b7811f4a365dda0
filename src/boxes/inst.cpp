// inst, the instruction set box (ISO/IEC 15444-2, M.11).
//
//   2 Ityp, 2 REPT, 4 TICK, then instructions to the end, each with the groups that Ityp names:
//     bit 0  4 XO, 4 YO
//     bit 1  4 WIDTH, 4 HEIGHT
//     bit 3  4 PERSIST (top bit) and LIFE, 4 NEXT-USE
//     bit 5  4 XC, 4 YC, 4 WC, 4 HC
#include <stdio.h>

#include "box/field_table.h"
#include "box/wire.h"
#include "boxes/boxes.h"
#include "boxes/typed_box.h"

namespace kvjpx {
namespace {

constexpr uint32_t kType = code("inst");
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

// A refused LIFE leaves an appended instruction behind, as a refused value does in a registration
// box. A get takes one index more than there are instructions.
constexpr ListTraits kInstructions = {instructions_of, sizeof(Instruction), &kFresh, true, true};
constexpr Field kFields[] = {
    single(JPX_FIELD_INST_Ityp, "Ityp", 2, member<&InstBox::types>),
    single(JPX_FIELD_INST_REPT, "REPT", 2, member<&InstBox::repetitions>),
    // TICK is served from REPT, with the width of a tick: players that loop by ticks set one and
    // read the other. The tick itself goes through a file unchanged.
    single(JPX_FIELD_INST_TICK, "TICK", 4, member<&InstBox::repetitions>),
    repeating(JPX_FIELD_INST_XO, "XO", 4, kInstructions, member<&Instruction::x_offset>),
    repeating(JPX_FIELD_INST_YO, "YO", 4, kInstructions, member<&Instruction::y_offset>),
    repeating(JPX_FIELD_INST_WIDTH, "WIDTH", 4, kInstructions, member<&Instruction::width>),
    repeating(JPX_FIELD_INST_HEIGHT, "HEIGHT", 4, kInstructions, member<&Instruction::height>),
    repeating(JPX_FIELD_INST_PERSIST, "PERSIST", 1, kInstructions, member<&Instruction::persists>),
    repeating(JPX_FIELD_INST_LIFE, "LIFE", 4, kInstructions, member<&Instruction::life>, is_life),
    repeating(JPX_FIELD_INST_NEXT_USE, "NEXT_USE", 4, kInstructions,
              member<&Instruction::next_use>),
    repeating(JPX_FIELD_INST_XC, "XC", 4, kInstructions, member<&Instruction::x_crop>),
    repeating(JPX_FIELD_INST_YC, "YC", 4, kInstructions, member<&Instruction::y_crop>),
    repeating(JPX_FIELD_INST_WC, "WC", 4, kInstructions, member<&Instruction::width_crop>),
    repeating(JPX_FIELD_INST_HC, "HC", 4, kInstructions, member<&Instruction::height_crop>),
};
constexpr FieldTable kTable = field_table(kType, kFields);

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

constexpr WireNumber kHeadNumbers[] = {
    {2, member<&InstBox::types>}, {2, member<&InstBox::repetitions>}, {4, member<&InstBox::tick>}};
constexpr WireNumber kOffsetNumbers[] = {{4, member<&Instruction::x_offset>},
                                         {4, member<&Instruction::y_offset>}};
constexpr WireNumber kScalingNumbers[] = {{4, member<&Instruction::width>},
                                          {4, member<&Instruction::height>}};
constexpr WireNumber kPersistenceNumbers[] = {{4, {load_persistence, store_persistence}},
                                              {4, member<&Instruction::next_use>}};
constexpr WireNumber kCroppingNumbers[] = {{4, member<&Instruction::x_crop>},
                                           {4, member<&Instruction::y_crop>},
                                           {4, member<&Instruction::width_crop>},
                                           {4, member<&Instruction::height_crop>}};
constexpr WireTable kHead = wire_table(kHeadNumbers);

// The groups of an instruction, in their order on disk.
struct Group {
  uint16_t bit;  // of Ityp
  WireTable wire;
};
constexpr uint16_t kOffsets = 0x01;
constexpr uint16_t kScaling = 0x02;
constexpr uint16_t kPersistence = 0x08;
constexpr uint16_t kCropping = 0x20;
constexpr Group kGroups[] = {{kOffsets, wire_table(kOffsetNumbers)},
                             {kScaling, wire_table(kScalingNumbers)},
                             {kPersistence, wire_table(kPersistenceNumbers)},
                             {kCropping, wire_table(kCroppingNumbers)}};

bool has(const Box* box, uint16_t bit) { return (inst(box)->types & bit) != 0; }

uint64_t instruction_size(const Box* box) {
  uint64_t size = 0;
  for (const Group& group : kGroups) {
    if (has(box, group.bit)) size += group.wire.size;
  }
  return size;
}

uint64_t jpx_inst_length(Box* box) {
  if (box->type != kType) return 0;
  return kHead.size + instructions_of(box)->count * instruction_size(box);
}

void jpx_inst_render(Box* box, Environment* env, Stream* stream) {
  if (box->type != kType) return;
  render_wire(env, stream, kHead, box);
  const EntryList& instructions = *instructions_of(box);
  for (uint64_t k = 0; k < instructions.count; ++k) {
    for (const Group& group : kGroups) {
      if (!has(box, group.bit)) continue;
      render_wire(env, stream, group.wire, entry_at<Instruction>(instructions, k));
    }
  }
}

void print_instruction(const Box* box, uint32_t k, const Instruction& entry) {
  printf("INST[%u]:\n", k);
  if (has(box, kOffsets)) printf("  XO=%u YO=%u\n", entry.x_offset, entry.y_offset);
  if (has(box, kScaling)) printf("  WIDTH=%u HEIGHT=%u\n", entry.width, entry.height);
  if (has(box, kPersistence)) {
    printf("  PERSIST=%s LIFE=%u NEXT-USE=%u\n", entry.persists ? "yes" : "no", entry.life,
           entry.next_use);
  }
  if (has(box, kCropping)) {
    printf("  XC=%u YC=%u WC=%u HC=%u\n", entry.x_crop, entry.y_crop, entry.width_crop,
           entry.height_crop);
  }
}

void jpx_inst_print(Box* box) {
  if (box->type != kType) return;
  printf("inst box length %llu\n", printable(box->box_length(box)));
  printf("Ityp includes: ");
  if (inst(box)->types == 0) printf("no instructions");
  if (has(box, kOffsets)) printf("offsets ");
  if (has(box, kScaling)) printf("scaling ");
  if (has(box, kPersistence)) printf("persistence ");
  if (has(box, kCropping)) printf("cropping");
  printf("\n");
  const EntryList& instructions = *instructions_of(box);
  for (uint32_t k = 0; k < instructions.count; ++k) {
    print_instruction(box, k, *entry_at<Instruction>(instructions, k));
  }
}

void jpx_inst_destroy(Box* box, Environment* env) {
  if (box->type == kType) list_release(env, instructions_of(box));
}

int32_t jpx_inst_set_int_field(Box* box, Environment* env, uint32_t key, uint64_t index,
                               uint64_t value) {
  return set_int_field(kTable, box, env, key, index, value);
}

int32_t jpx_inst_get_int_field(Box* box, uint32_t key, uint64_t index, uint64_t* value) {
  return get_int_field(kTable, box, key, index, value);
}

int32_t jpx_inst_get_field_count(Box* box, uint32_t key, uint64_t* count, uint32_t* element_size) {
  return get_field_count(kTable, box, key, count, element_size);
}

constexpr BoxOperations kOperations =
    leaf_operations(jpx_inst_length, jpx_inst_render, jpx_inst_print, jpx_inst_destroy,
                    jpx_inst_set_int_field, jpx_inst_get_int_field, jpx_inst_get_field_count);

void read_payload(Environment* env, Stream* stream, Box* box) {
  read_wire(env, stream, kHead, box);
  const uint64_t size = instruction_size(box);
  const uint64_t count = size == 0 ? 0 : bytes_left(env, stream) / size;
  EntryList* const instructions = instructions_of(box);
  list_resize(env, instructions, sizeof(Instruction), count);
  for (uint64_t k = 0; k < count; ++k) {
    auto* const instruction = entry_at<Instruction>(*instructions, k);
    *instruction = kFresh;
    for (const Group& group : kGroups) {
      if (has(box, group.bit)) read_wire(env, stream, group.wire, instruction);
    }
  }
}

}  // namespace

const FieldTable kInstFields = kTable;

extern "C" {

Box* jpx_make_inst_box(Environment* env, uint32_t type, Box* parent, uint32_t id) {
  return make_parsed<InstBox>(env, kType, type, parent, id, kOperations);
}

Box* jpx_read_inst_box(Environment* env, uint32_t type, Stream* stream, Box* parent,
                       uint32_t* counter) {
  return read_parsed(env, type, stream, parent, counter, jpx_make_inst_box, read_payload,
                     Misplaced::kOpaque);
}

}  // extern "C"
}  // namespace kvjpx
