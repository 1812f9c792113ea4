#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvanta {

/// A URL from a payload, as RFC 3986 defines a URI reference, kept as the text it was given.
///
/// Anything the generic syntax accepts passes: absolute URLs of any scheme, with an authority
/// ("https://...", "myapp://open/item?id=1", "file:///...") or without ("tel:+15551234567",
/// "mailto:a@b.c", "sms:123", "myapp:open/item/7"), and relative references ("/a", "item/7",
/// "?q", "#f"). It rejects the empty string and text the syntax forbids: blanks, control
/// characters, bytes beyond ASCII, broken percent escapes or IP literals, a first path segment
/// holding ":" without a valid scheme before it. Whether a URL can be opened is the opener's
/// business. docs/records.md lists the rules.
class Url {
 public:
  static std::optional<Url> parse(std::string_view text);

  /// The text as given to `parse`.
  const std::string& string() const { return text_; }
  /// The scheme in lower case ("https", "myapp", "tel"); empty for a relative reference.
  std::string scheme() const;

  friend bool operator==(const Url& a, const Url& b) { return a.text_ == b.text_; }

 private:
  explicit Url(std::string text) : text_(std::move(text)) {}
  std::string text_;
};

}  // namespace orvanta
