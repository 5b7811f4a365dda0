// Measures how far words are apart.
#include "suggestion.h"

#include <algorithm>
#include <cctype>

namespace kvjpx_tool {
namespace {

std::string lower_case(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

size_t distance_between(const std::string& a, const std::string& b) {
  // Rows of the table of distances between beginnings of a and of b: this one and the two before.
  std::vector<size_t> row(b.size() + 1), before(row), before_that(row);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    std::swap(before_that, before);
    std::swap(before, row);
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t change = before[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      row[j] = std::min({change, before[j] + 1, row[j - 1] + 1});
      const bool are_exchanged = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (are_exchanged) row[j] = std::min(row[j], before_that[j - 2] + 1);
    }
  }
  return row[b.size()];
}

}  // namespace

// A third of a word may be wrong, and of a short one a single character.
Suggestion::Suggestion(std::string_view word)
    : word_(lower_case(word)), least_(std::max<size_t>(word.size() / 3, 1) + 1) {}

void Suggestion::consider(std::string_view candidate) {
  const size_t longer = std::max(candidate.size(), word_.size());
  if (longer - std::min(candidate.size(), word_.size()) >= least_) return;
  const size_t distance = distance_between(word_, lower_case(candidate));
  if (distance >= least_) return;
  least_ = distance;
  nearest_ = candidate;
}

std::string Suggestion::text() const {
  return nearest_.empty() ? "" : "; did you mean '" + nearest_ + "'?";
}

}  // namespace kvjpx_tool
