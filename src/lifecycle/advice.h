// Failures in words for people: which name, what was said about it, and what to try. Nothing of it
// goes into a document of kova-letsencrypt.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/sl_error.h"

namespace kova {

// The number that a renewal history has for a renewal record that cannot be used.
inline constexpr int kUnusableRecord = 1;

// What to try after a failure of that code from that source-file tag: one short sentence. Never
// empty; a code that is not known here gets general advice.
std::string_view AdviceOn(int code, std::string_view file);

struct Explanation {
  int code;
  std::string name;    // whom it is about, several joined by ", "; may be empty
  std::string detail;  // what the CA, or the program, said about it; never empty
  std::string advice;
};

// `names` are those of the failed certificate; of them only the one that failed is told when the
// failure knows it. Name and detail are safe to show (Visible).
Explanation Explain(const SLError& error, const std::vector<std::string>& names);

// One line without its end: "NAME: DETAIL [CODE]. ADVICE".
std::string Sentence(const Explanation& explanation);

// The text on one line of plain ASCII: a line feed becomes the two characters "\n", a tabulator
// "\t", and any other byte that is not printable "\xHH". One that is then longer than `limit` is
// cut there and ends in "...".
std::string Visible(std::string_view text, size_t limit);

}  // namespace kova
