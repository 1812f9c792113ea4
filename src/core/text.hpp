#pragma once

#include <string>
#include <string_view>

namespace orvanta {

/// `c` in lower case when it is an ASCII capital letter; any other byte unchanged.
constexpr char asciiLower(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

/// Whether `a` and `b` are equal when ASCII letters are compared without case (header names,
/// URL schemes and hosts). Bytes beyond ASCII compare as they are.
constexpr bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) {
    return false;
  }
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (asciiLower(a[i]) != asciiLower(b[i])) {
      return false;
    }
  }
  return true;
}

/// `text` with its ASCII capital letters in lower case.
inline std::string asciiLowercased(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    c = asciiLower(c);
  }
  return result;
}

}  // namespace orvanta
