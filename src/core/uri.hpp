#pragma once

#include <optional>
#include <string_view>

namespace orvanta {

/// The parts of a URI reference (absolute, like "https://a.b/c?d#e" or "tel:+1555", or relative,
/// like "/a/b" or "item/7"), as views into the text it was read from. Components that are absent
/// have no value; a present component may be empty ("http://a.b/?" has an empty query).
struct UriComponents {
  std::optional<std::string_view> scheme;
  std::optional<std::string_view> authority;  ///< what follows "//", up to the path
  std::optional<std::string_view> userinfo;   ///< before "@" in the authority
  std::string_view host;                      ///< reg-name, IPv4 address or "[...]" literal
  std::optional<std::string_view> port;       ///< digits after ":" in the authority
  std::string_view path;
  std::optional<std::string_view> query;
  std::optional<std::string_view> fragment;
};

/// Reads `text` as a URI reference: every character must be one the generic URI syntax allows
/// where it stands (percent escapes well formed, IP literals well formed, no blanks, no control
/// characters, nothing beyond ASCII). None when it is not one. The empty reference is accepted
/// here; callers decide whether they want it. Any thread.
std::optional<UriComponents> parseUriReference(std::string_view text);

/// True when `host` (as `UriComponents::host` gives it) names this machine's loopback interface:
/// "localhost" in any case, an IPv4 address in 127.0.0.0/8, or the IPv6 literal of ::1 in any of
/// its spellings ("[::1]", "[0:0:0:0:0:0:0:1]").
bool isLoopbackHost(std::string_view host);

}  // namespace orvanta
