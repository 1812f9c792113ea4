#include "core/utf8.hpp"

#include <cstddef>

namespace orvanta {
namespace {

/// The length of the well-formed sequence at `i`, or 0 when it is ill formed; then `subpart` is the
/// length of its maximal subpart (at least 1), the bytes one U+FFFD stands for.
std::size_t sequenceAt(std::string_view text, std::size_t i, std::size_t& subpart) {
  const auto lead = static_cast<unsigned char>(text[i]);
  subpart = 1;
  if (lead < 0x80) {
    return 1;
  }
  std::size_t length = 0;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;  // allowed range of the first continuation byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) {
      low = 0xA0;  // no overlong forms
    } else if (lead == 0xED) {
      high = 0x9F;  // no surrogates
    }
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) {
      low = 0x90;
    } else if (lead == 0xF4) {
      high = 0x8F;  // nothing past U+10FFFF
    }
  } else {
    return 0;
  }
  for (std::size_t k = 1; k < length; ++k) {
    if (i + k >= text.size()) {
      subpart = k;
      return 0;
    }
    const auto byte = static_cast<unsigned char>(text[i + k]);
    const unsigned char lo = k == 1 ? low : 0x80;
    const unsigned char hi = k == 1 ? high : 0xBF;
    if (byte < lo || byte > hi) {
      subpart = k;
      return 0;
    }
  }
  return length;
}

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

/// Where the first ill-formed sequence starts, or the text's size.
std::size_t firstIllFormed(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size()) {
    if (static_cast<unsigned char>(text[i]) < 0x80) {
      ++i;
      continue;
    }
    std::size_t subpart = 0;
    const std::size_t length = sequenceAt(text, i, subpart);
    if (length == 0) {
      return i;
    }
    i += length;
  }
  return text.size();
}

}  // namespace

bool isValidUtf8(std::string_view text) {
  return firstIllFormed(text) == text.size();
}

std::string repairedUtf8(std::string_view text) {
  std::size_t i = firstIllFormed(text);
  if (i == text.size()) {
    return std::string(text);
  }
  std::string result;
  result.reserve(text.size() + 8);
  result.append(text.substr(0, i));
  while (i < text.size()) {
    std::size_t subpart = 0;
    const std::size_t length = sequenceAt(text, i, subpart);
    if (length == 0) {
      result.append(kReplacement);
      i += subpart;
    } else {
      result.append(text.substr(i, length));
      i += length;
    }
  }
  return result;
}

bool repairUtf8(std::string& text) {
  if (firstIllFormed(text) == text.size()) {
    return false;
  }
  text = repairedUtf8(text);
  return true;
}

}  // namespace orvanta
