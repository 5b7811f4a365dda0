#include "step_check.h"

#include <algorithm>

namespace kvjpx_codestream {
namespace {

std::set<uint32_t> own_components(const Scope& header) {
  std::set<uint32_t> components;
  for (const auto& [component, coding] : header.codings) components.insert(component);
  for (const auto& [component, quantizer] : header.quantizers) components.insert(component);
  return components;
}

// What a header says of a component: of it alone, else of all.
template <typename Style>
const Style* style_of(const std::map<uint32_t, Style>& own, const std::optional<Style>& all,
                      uint32_t component) {
  const auto found = own.find(component);
  if (found != own.end()) return &found->second;
  return all ? &*all : nullptr;
}
const Coding* coding_of(const Scope& header, uint32_t component) {
  return style_of(header.codings, header.coding, component);
}
const Quantizer* quantizer_of(const Scope& header, uint32_t component) {
  return style_of(header.quantizers, header.quantizer, component);
}

template <typename Style>
std::vector<std::pair<const Style*, int64_t>> all_styles(const std::map<uint32_t, Style>& own,
                                                         const std::optional<Style>& all,
                                                         size_t components) {
  std::vector<std::pair<const Style*, int64_t>> styles;
  styles.reserve(own.size() + 1);
  for (const auto& [component, style] : own) styles.emplace_back(&style, component);
  if (all && own.size() < components) styles.emplace_back(&*all, kNone);
  return styles;
}

// The first that the header leaves as it is.
template <typename Style>
std::pair<const Style*, int64_t> first_not_in(
    const std::set<uint32_t>& own, const std::vector<std::pair<const Style*, int64_t>>& styles) {
  for (const auto& entry : styles) {
    if (entry.second == kNone || !own.count(static_cast<uint32_t>(entry.second))) return entry;
  }
  return {nullptr, kNone};
}

}  // namespace

StepCheck::StepCheck(const Scope& main, size_t components, Observer& observer)
    : main_(main),
      components_(components),
      observer_(observer),
      quantizers_(all_styles(main.quantizers, main.quantizer, components)),
      codings_(all_styles(main.codings, main.coding, components)) {
  const auto has_fewer_steps = [](const auto& a, const auto& b) {
    return a.first->steps < b.first->steps;
  };
  const auto has_more_levels = [](const auto& a, const auto& b) {
    return a.first->levels > b.first->levels;
  };
  std::stable_sort(quantizers_.begin(), quantizers_.end(), has_fewer_steps);
  std::stable_sort(codings_.begin(), codings_.end(), has_more_levels);
  check_own(main);
  if (own_components(main).size() < components && main.coding && main.quantizer) {
    compare(&*main.coding, &*main.quantizer, kNone);
  }
}

void StepCheck::check_tile(const Scope& tile) const {
  check_own(tile);
  const std::set<uint32_t> own = own_components(tile);
  if (own.size() >= components_) return;
  if (tile.coding && tile.quantizer) {
    compare(&*tile.coding, &*tile.quantizer, kNone);
  } else if (tile.coding) {
    const auto& [quantizer, component] = first_not_in(own, quantizers_);
    compare(&*tile.coding, quantizer, component);
  } else if (tile.quantizer) {
    const auto& [coding, component] = first_not_in(own, codings_);
    compare(coding, &*tile.quantizer, component);
  }
}

void StepCheck::check_own(const Scope& header) const {
  for (const uint32_t component : own_components(header)) {
    const Coding* coding = coding_of(header, component);
    const Quantizer* quantizer = quantizer_of(header, component);
    compare(coding ? coding : coding_of(main_, component),
            quantizer ? quantizer : quantizer_of(main_, component), component);
  }
}

void StepCheck::compare(const Coding* coding, const Quantizer* quantizer, int64_t component) const {
  constexpr uint32_t kMaxLevels = 32;  // more have been told of
  if (!coding || !quantizer || coding->levels > kMaxLevels) return;
  const uint32_t sub_bands = 3 * coding->levels + 1;
  if (quantizer->steps >= sub_bands) return;
  // Told of the segment that came later and made it so.
  const bool is_quantizer = quantizer->offset > coding->offset;
  observer_.problem({ProblemKind::kStepCount, is_quantizer ? quantizer->offset : coding->offset,
                     is_quantizer ? quantizer->marker : coding->marker, sub_bands, quantizer->steps,
                     component});
}

}  // namespace kvjpx_codestream
