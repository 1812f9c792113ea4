#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvanta {

/// An absolute URL that the kit's URL parser accepted, kept as the text it was given.
///
/// Any scheme is allowed, so that deep links such as "myapp://open/item?id=1" pass next to
/// "https://..." and "file:///..." URLs: the text must follow the generic URI syntax and have a
/// scheme followed by "//" and an authority (a host, except for "file"). It rejects the empty
/// string, relative references ("/a", "www.example.com"), schemes without an authority
/// ("mailto:x@y", "tel:123"), spaces and control characters. docs/records.md lists the rules.
class Url {
 public:
  static std::optional<Url> parse(std::string_view text);

  /// The text as given to `parse`.
  const std::string& string() const { return text_; }
  /// The scheme in lower case ("https", "myapp").
  std::string scheme() const;

  friend bool operator==(const Url& a, const Url& b) { return a.text_ == b.text_; }

 private:
  explicit Url(std::string text) : text_(std::move(text)) {}
  std::string text_;
};

}  // namespace orvanta
