// What a user may have meant by a word that names nothing.
#ifndef KVJPX_TOOLS_SUGGESTION_H_
#define KVJPX_TOOLS_SUGGESTION_H_

#include <string>
#include <string_view>
#include <vector>

namespace kvjpx_tool {

// Looks at candidates one by one and keeps the one that is nearest to a word: the fewest characters
// added, left out, changed or exchanged with their neighbours, upper and lower case being the same.
class Suggestion {
 public:
  explicit Suggestion(std::string_view word);

  void consider(std::string_view candidate);

  // "; did you mean 'X'?" for messages, or nothing when no candidate is like the word.
  std::string text() const;

 private:
  const std::string word_;
  std::string nearest_;
  size_t least_;
};

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_SUGGESTION_H_
