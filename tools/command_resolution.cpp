// resolution: the res box with what is in it (ISO/IEC 15444-1, I.5.3.7).
#include <charconv>
#include <cstdlib>
#include <numeric>
#include <optional>
#include <string_view>

#include "commands.h"
#include "value.h"

namespace kvjpx_tool {
namespace {

// Samples a metre.
struct Fraction {
  uint64_t numerator;
  uint64_t denominator;
};

// As it is written: numerator / denominator x 10 ^ exponent.
struct Written {
  uint64_t numerator;
  uint64_t denominator;
  int exponent;
};

struct Unit {
  const char* name;
  Fraction metre;  // how many of them
};
constexpr Unit kUnits[] = {
    {"dpi", {10000, 254}}, {"ppi", {10000, 254}}, {"dpcm", {100, 1}},
    {"ppcm", {100, 1}},    {"dpm", {1, 1}},       {"ppm", {1, 1}},
};
constexpr uint64_t kLargest = 65535;
constexpr size_t kMostDigits = 9;
constexpr int kLargestExponent = 12;

const char kForm[] =
    "a resolution is a number and a unit, dpi, dpcm or dpm (dots a metre), such as "
    "300dpi, 72.5dpi or, across and down, 300x600dpi";

Fraction reduced(Fraction fraction) {
  const uint64_t divisor = std::gcd(fraction.numerator, fraction.denominator);
  if (divisor == 0) return fraction;
  return {fraction.numerator / divisor, fraction.denominator / divisor};
}

// A decimal number with at most kMostDigits digits, so that no product here needs 64 bits.
std::optional<Fraction> parse_decimal(std::string_view text) {
  std::string digits;
  uint64_t denominator = 1;
  bool has_point = false;
  for (const char c : text) {
    if (c == '.' && !has_point) {
      has_point = true;
      continue;
    }
    if (c < '0' || c > '9' || digits.size() == kMostDigits) return std::nullopt;
    digits += c;
    if (has_point) denominator *= 10;
  }
  if (digits.empty()) return std::nullopt;
  return Fraction{std::strtoull(digits.c_str(), nullptr, 10), denominator};
}

// The form with the smallest exponent; nothing when none is exact.
std::optional<Written> exact_form(Fraction value) {
  if (value.numerator == 0)
    return Written{0, value.denominator > kLargest ? 1 : value.denominator, 0};
  Fraction larger = reduced(value);
  Fraction smaller = larger;
  for (int exponent = 0; exponent <= kLargestExponent; ++exponent) {
    for (const auto& [form, sign] : {std::pair(smaller, 1), std::pair(larger, -1)}) {
      if (form.numerator <= kLargest && form.denominator <= kLargest) {
        return Written{form.numerator, form.denominator, sign * exponent};
      }
    }
    constexpr uint64_t kRoom = UINT64_MAX / 10;
    if (smaller.denominator > kRoom || larger.numerator > kRoom) break;
    smaller = reduced({smaller.numerator, smaller.denominator * 10});
    larger = reduced({larger.numerator * 10, larger.denominator});
  }
  return std::nullopt;
}

Written parse_resolution(const Edit& edit, std::string_view number, const Unit& unit,
                         const std::string& text) {
  const std::optional<Fraction> value = parse_decimal(number);
  if (!value) throw Failure(kUsage, "'" + text + "': " + kForm);
  if (value->numerator == 0)
    edit.refuse(edit.label(), "a resolution of " + text + " is impossible");
  const std::optional<Written> written = exact_form(
      {value->numerator * unit.metre.numerator, value->denominator * unit.metre.denominator});
  if (written) return *written;
  throw Failure(kEditRefused, edit.label() + ": " + text +
                                  " cannot be written exactly, with numerator and denominator of "
                                  "at most 65535");
}

// The content of a resc or resd box.
std::string content_of(const Edit& edit, const std::string& text) {
  const size_t unit_at = text.find_first_not_of("0123456789.xX");
  const std::string_view numbers = std::string_view(text).substr(0, unit_at);
  const Unit* unit = nullptr;
  for (const Unit& known : kUnits) {
    if (unit_at != std::string::npos && text.substr(unit_at) == known.name) unit = &known;
  }
  if (!unit) throw Failure(kUsage, "'" + text + "': " + kForm);
  const size_t times = numbers.find_first_of("xX");
  const Written across = parse_resolution(edit, numbers.substr(0, times), *unit, text);
  const Written down = times == std::string_view::npos
                           ? across
                           : parse_resolution(edit, numbers.substr(times + 1), *unit, text);
  std::string content;
  for (const Written& direction : {down, across}) {
    content += big_endian(direction.numerator, 2) + big_endian(direction.denominator, 2);
  }
  return content + static_cast<char>(down.exponent) + static_cast<char>(across.exponent);
}

}  // namespace

void set_resolution(const ResolutionRequest& request, const EditRequest& edit_request) {
  Edit edit(edit_request);
  const std::string content = content_of(edit, request.resolution);
  const kvjpx::box header = edit.root().child("jp2h");
  if (!header) throw Failure(kNoSuchPlace, edit.label() + ": there is no box 'jp2h'");
  kvjpx::box resolution = header.child("res");
  if (!resolution) resolution = edit.taken(header.append("res"), edit.place(header));
  bool sets_capture = request.sets_capture;
  bool sets_display = request.sets_display;
  if (!sets_capture && !sets_display) {
    sets_display = static_cast<bool>(resolution.child("resd"));
    sets_capture = static_cast<bool>(resolution.child("resc")) || !sets_display;
  }
  const auto set = [&](kvjpx::type type) {
    kvjpx::box box = resolution.child(type);
    // The capture resolution stands in front.
    if (!box) {
      box = edit.taken(
          type == kvjpx::type("resc") ? resolution.add_first(type) : resolution.append(type),
          edit.place(resolution));
    }
    edit.check(box.set_content(content), edit.place(box));
  };
  if (sets_capture) set("resc");
  if (sets_display) set("resd");
  edit.finish();
}

}  // namespace kvjpx_tool
