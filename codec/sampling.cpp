// Fills the planes of a picture from decoded components.
#include "sampling.h"

namespace kvj2k {
namespace {

int64_t average(const DecodedPlane& plane, const Span& columns, const Span& rows) {
  int64_t sum = 0;
  for (uint64_t y = rows.begin; y < rows.end; ++y) {
    const int32_t* row = plane.samples + (y - plane.first_row) * plane.width;
    for (uint64_t x = columns.begin; x < columns.end; ++x) sum += row[x - plane.first_column];
  }
  return sum / static_cast<int64_t>(columns.size() * rows.size());
}

bool is_one_to_one(const std::vector<Span>& spans) {
  return std::all_of(spans.begin(), spans.end(), [](const Span& s) { return s.size() == 1; });
}

}  // namespace

void resample(const DecodedPlane& plane, const std::vector<Span>& columns,
              const std::vector<Span>& rows, const ByteScale& to_byte, uint8_t* out) {
  if (!is_one_to_one(columns) || !is_one_to_one(rows)) {
    for (const Span& row : rows) {
      for (const Span& column : columns) *out++ = to_byte(average(plane, column, row));
    }
    return;
  }
  for (const Span& row : rows) {
    const int32_t* samples = plane.samples + (row.begin - plane.first_row) * plane.width;
    for (const Span& column : columns) *out++ = to_byte(samples[column.begin - plane.first_column]);
  }
}

}  // namespace kvj2k
