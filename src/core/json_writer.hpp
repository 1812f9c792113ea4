#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvanta::detail {

/// Writes JSON objects straight into a string, byte for byte as the JSON library's `dump()`
/// (compact) or `dump(2)` (pretty-printed, two spaces) writes the same document: the same string
/// escapes, the same number forms, `{}` for an empty object. For records written often (an event
/// body per post, its map columns per insert), so that they cost no document tree.
///
/// Keys and string values must be well-formed UTF-8 (the kit repairs host text where it enters);
/// ill-formed text, or a number that is not finite, throws `EncodingFailure` and leaves `out` in
/// an unspecified state.
class JsonWriter {
 public:
  enum class Style { compact, pretty };

  explicit JsonWriter(std::string& out, Style style = Style::compact) : out_(out), style_(style) {}

  void beginObject();
  void endObject();
  /// The next member's key; its value follows.
  void key(std::string_view name);

  void value(std::string_view text);
  void value(const char* text) { value(std::string_view(text)); }
  void value(std::int64_t number);
  void value(bool flag);
  /// A finite double, in the shortest form that reads back as the same double ("1700000000.0",
  /// "0.1", "1e+20").
  void number(double value);

 private:
  void indent(std::size_t depth);

  std::string& out_;
  Style style_;
  std::vector<std::size_t> members_;  ///< members written so far, per open object
};

/// `text` as a JSON string literal, quotes included, escaped as the JSON library escapes it.
/// Throws `EncodingFailure` for ill-formed UTF-8.
void appendJsonString(std::string& out, std::string_view text);

}  // namespace orvanta::detail
