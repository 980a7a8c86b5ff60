// What a piece of work throws, as one text that is easy to compare.
#pragma once

#include <exception>
#include <string>

#include "base/sl_error.h"

namespace kova::test {

// "CODE FILE: MESSAGE" of an SLError, "std: WHAT" of another standard exception, "text: ..." of a
// plain text; "nothing" when the work ends normally.
template <typename Work>
std::string ErrorOf(Work&& work) {
  try {
    work();
  } catch (const SLError& error) {
    return std::to_string(error.code) + " " + error.file + ": " + error.message;
  } catch (const std::exception& error) {
    return std::string("std: ") + error.what();
  } catch (const char* text) {
    return std::string("text: ") + text;
  }
  return "nothing";
}

}  // namespace kova::test
