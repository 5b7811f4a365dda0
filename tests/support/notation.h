// How scripts and transcripts write bytes down.
#ifndef KVJPX_TESTS_SUPPORT_NOTATION_H_
#define KVJPX_TESTS_SUPPORT_NOTATION_H_

#include <string>

namespace kvjpx::test {

// Pieces in a row, with "_" or blanks between any of them: 'text'; hexadecimal digits; "*N" for the
// byte before, N times; "pN" for a pattern of N bytes; "[typeCONTENT]" for a box, its type being of
// four characters.
std::string bytes_of(const std::string& text);

}  // namespace kvjpx::test

#endif  // KVJPX_TESTS_SUPPORT_NOTATION_H_
