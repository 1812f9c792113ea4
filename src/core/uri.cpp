#include "core/uri.hpp"

#include <array>
#include <cstdint>

#include "core/text.hpp"

namespace orvanta {
namespace {

bool isAlpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

bool isHexDigit(char c) {
  return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool isUnreserved(char c) {
  return isAlpha(c) || isDigit(c) || c == '-' || c == '.' || c == '_' || c == '~';
}

bool isSubDelimiter(char c) {
  return std::string_view("!$&'()*+,;=").find(c) != std::string_view::npos;
}

/// True when every character of `text` is allowed by `allowed` or starts a well-formed
/// percent escape.
template <class Allowed>
bool consistsOf(std::string_view text, Allowed allowed) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%') {
      if (i + 2 >= text.size() || !isHexDigit(text[i + 1]) || !isHexDigit(text[i + 2])) {
        return false;
      }
      i += 2;
    } else if (!allowed(text[i])) {
      return false;
    }
  }
  return true;
}

bool isPathCharacter(char c) {
  return isUnreserved(c) || isSubDelimiter(c) || c == ':' || c == '@';
}

bool isValidScheme(std::string_view text) {
  if (text.empty() || !isAlpha(text.front())) {
    return false;
  }
  for (char c : text) {
    if (!isAlpha(c) && !isDigit(c) && c != '+' && c != '-' && c != '.') {
      return false;
    }
  }
  return true;
}

std::optional<std::array<std::uint8_t, 4>> parseIPv4(std::string_view text) {
  std::array<std::uint8_t, 4> octets{};
  for (std::size_t index = 0; index < 4; ++index) {
    const std::size_t dot = text.find('.');
    if ((index < 3) == (dot == std::string_view::npos)) {
      return std::nullopt;  // exactly three dots
    }
    std::string_view part = text.substr(0, dot);
    text = dot == std::string_view::npos ? std::string_view() : text.substr(dot + 1);
    if (part.empty() || part.size() > 3 || (part.size() > 1 && part.front() == '0')) {
      return std::nullopt;
    }
    int value = 0;
    for (char c : part) {
      if (!isDigit(c)) {
        return std::nullopt;
      }
      value = value * 10 + (c - '0');
    }
    if (value > 255) {
      return std::nullopt;
    }
    octets[index] = static_cast<std::uint8_t>(value);
  }
  return octets;
}

/// The groups of one side of "::" (or of the whole address when there is none); an IPv4 tail
/// counts as two groups and is allowed only where `allowIPv4Tail`.
bool parseIPv6Groups(std::string_view text, bool allowIPv4Tail, std::array<std::uint16_t, 8>& out,
                     std::size_t& count) {
  count = 0;
  if (text.empty()) {
    return true;
  }
  std::size_t start = 0;
  while (true) {
    std::size_t end = text.find(':', start);
    std::string_view part =
        text.substr(start, end == std::string_view::npos ? text.size() - start : end - start);
    if (end == std::string_view::npos && allowIPv4Tail &&
        part.find('.') != std::string_view::npos) {
      auto v4 = parseIPv4(part);
      if (!v4 || count + 2 > 8) {
        return false;
      }
      out[count++] = static_cast<std::uint16_t>(((*v4)[0] << 8) | (*v4)[1]);
      out[count++] = static_cast<std::uint16_t>(((*v4)[2] << 8) | (*v4)[3]);
      return true;
    }
    if (part.empty() || part.size() > 4 || count == 8) {
      return false;
    }
    std::uint16_t value = 0;
    for (char c : part) {
      if (!isHexDigit(c)) {
        return false;
      }
      int digit = isDigit(c) ? c - '0' : (c | 0x20) - 'a' + 10;
      value = static_cast<std::uint16_t>((value << 4) | digit);
    }
    out[count++] = value;
    if (end == std::string_view::npos) {
      return true;
    }
    start = end + 1;
  }
}

std::optional<std::array<std::uint16_t, 8>> parseIPv6(std::string_view text) {
  std::array<std::uint16_t, 8> address{};
  const std::size_t gap = text.find("::");
  if (gap == std::string_view::npos) {
    std::size_t count = 0;
    if (!parseIPv6Groups(text, true, address, count) || count != 8) {
      return std::nullopt;
    }
    return address;
  }
  if (text.find("::", gap + 1) != std::string_view::npos) {
    return std::nullopt;  // at most one "::"
  }
  std::array<std::uint16_t, 8> head{};
  std::array<std::uint16_t, 8> tail{};
  std::size_t headCount = 0;
  std::size_t tailCount = 0;
  if (!parseIPv6Groups(text.substr(0, gap), false, head, headCount) ||
      !parseIPv6Groups(text.substr(gap + 2), true, tail, tailCount) || headCount + tailCount > 7) {
    return std::nullopt;
  }
  for (std::size_t i = 0; i < headCount; ++i) {
    address[i] = head[i];
  }
  for (std::size_t i = 0; i < tailCount; ++i) {
    address[8 - tailCount + i] = tail[i];
  }
  return address;
}

bool isValidIPLiteral(std::string_view inner) {
  if (!inner.empty() && (inner.front() == 'v' || inner.front() == 'V')) {
    // IPvFuture: "v" 1*HEXDIG "." 1*( unreserved / sub-delims / ":" )
    const std::size_t dot = inner.find('.');
    if (dot == std::string_view::npos || dot < 2 || dot + 1 == inner.size()) {
      return false;
    }
    for (char c : inner.substr(1, dot - 1)) {
      if (!isHexDigit(c)) {
        return false;
      }
    }
    for (char c : inner.substr(dot + 1)) {
      if (!isUnreserved(c) && !isSubDelimiter(c) && c != ':') {
        return false;
      }
    }
    return true;
  }
  return parseIPv6(inner).has_value();
}

bool parseAuthority(std::string_view authority, UriComponents& components) {
  std::string_view rest = authority;
  if (const std::size_t at = rest.find('@'); at != std::string_view::npos) {
    std::string_view userinfo = rest.substr(0, at);
    if (!consistsOf(userinfo,
                    [](char c) { return isUnreserved(c) || isSubDelimiter(c) || c == ':'; })) {
      return false;
    }
    components.userinfo = userinfo;
    rest = rest.substr(at + 1);
  }
  std::string_view host;
  if (!rest.empty() && rest.front() == '[') {
    const std::size_t close = rest.find(']');
    if (close == std::string_view::npos || !isValidIPLiteral(rest.substr(1, close - 1))) {
      return false;
    }
    host = rest.substr(0, close + 1);
    rest = rest.substr(close + 1);
    if (!rest.empty() && rest.front() != ':') {
      return false;
    }
  } else {
    const std::size_t colon = rest.find(':');
    host = rest.substr(0, colon);
    rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon);
    // A reg-name covers the IPv4 form too.
    if (!consistsOf(host, [](char c) { return isUnreserved(c) || isSubDelimiter(c); })) {
      return false;
    }
  }
  components.host = host;
  if (!rest.empty()) {
    std::string_view port = rest.substr(1);
    for (char c : port) {
      if (!isDigit(c)) {
        return false;
      }
    }
    components.port = port;
  }
  return true;
}

}  // namespace

std::optional<UriComponents> parseUriReference(std::string_view text) {
  UriComponents components;
  std::string_view rest = text;

  // A scheme is what stands before the first ":" when no "/", "?" or "#" comes earlier.
  const std::size_t colon = rest.find(':');
  const std::size_t delimiter = rest.find_first_of("/?#");
  if (colon != std::string_view::npos &&
      (delimiter == std::string_view::npos || colon < delimiter)) {
    std::string_view scheme = rest.substr(0, colon);
    if (!isValidScheme(scheme)) {
      return std::nullopt;  // a relative path's first segment may not hold ":" either
    }
    components.scheme = scheme;
    rest = rest.substr(colon + 1);
  }

  if (const std::size_t hash = rest.find('#'); hash != std::string_view::npos) {
    components.fragment = rest.substr(hash + 1);
    rest = rest.substr(0, hash);
  }
  if (const std::size_t question = rest.find('?'); question != std::string_view::npos) {
    components.query = rest.substr(question + 1);
    rest = rest.substr(0, question);
  }
  if (rest.starts_with("//")) {
    rest = rest.substr(2);
    const std::size_t slash = rest.find('/');
    std::string_view authority = rest.substr(0, slash);
    if (!parseAuthority(authority, components)) {
      return std::nullopt;
    }
    components.authority = authority;
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
  }
  components.path = rest;

  auto queryOrFragment = [](char c) { return isPathCharacter(c) || c == '/' || c == '?'; };
  if (!consistsOf(components.path, [](char c) { return isPathCharacter(c) || c == '/'; }) ||
      (components.query && !consistsOf(*components.query, queryOrFragment)) ||
      (components.fragment && !consistsOf(*components.fragment, queryOrFragment))) {
    return std::nullopt;
  }
  return components;
}

bool isLoopbackHost(std::string_view host) {
  if (equalsIgnoringAsciiCase(host, "localhost")) {
    return true;
  }
  if (auto v4 = parseIPv4(host)) {
    return (*v4)[0] == 127;
  }
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    auto v6 = parseIPv6(host.substr(1, host.size() - 2));
    return v6 && *v6 == std::array<std::uint16_t, 8>{0, 0, 0, 0, 0, 0, 0, 1};
  }
  return false;
}

}  // namespace orvanta
