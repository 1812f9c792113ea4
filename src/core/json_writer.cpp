#include "core/json_writer.hpp"

#include <array>
#include <charconv>
#include <cmath>

#include "core/json_coding.hpp"

namespace orvanta::detail {
namespace {

constexpr std::size_t kIndentStep = 2;

}  // namespace

void appendJsonString(std::string& out, std::string_view text) {
  if (!isValidUtf8(text)) {
    throw EncodingFailure("text that is not UTF-8 cannot be written as JSON");
  }
  static constexpr char kHex[] = "0123456789abcdef";
  out.push_back('"');
  std::size_t plain = 0;  // start of the run of bytes copied as they are
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x20 && c != '"' && c != '\\') {
      continue;
    }
    out.append(text.substr(plain, i - plain));
    plain = i + 1;
    switch (c) {
      case '"':
        out.append("\\\"");
        break;
      case '\\':
        out.append("\\\\");
        break;
      case '\b':
        out.append("\\b");
        break;
      case '\t':
        out.append("\\t");
        break;
      case '\n':
        out.append("\\n");
        break;
      case '\f':
        out.append("\\f");
        break;
      case '\r':
        out.append("\\r");
        break;
      default: {
        const char escape[] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 0x0F]};
        out.append(escape, sizeof escape);
        break;
      }
    }
  }
  out.append(text.substr(plain));
  out.push_back('"');
}

void JsonWriter::indent(std::size_t depth) {
  out_.append(depth * kIndentStep, ' ');
}

void JsonWriter::beginObject() {
  members_.push_back(0);
}

void JsonWriter::endObject() {
  const std::size_t count = members_.back();
  members_.pop_back();
  if (count == 0) {
    out_.append("{}");
    return;
  }
  if (style_ == Style::pretty) {
    out_.push_back('\n');
    indent(members_.size());
  }
  out_.push_back('}');
}

void JsonWriter::key(std::string_view name) {
  std::size_t& count = members_.back();
  if (style_ == Style::pretty) {
    out_.append(count == 0 ? "{\n" : ",\n");
    indent(members_.size());
  } else {
    out_.push_back(count == 0 ? '{' : ',');
  }
  ++count;
  appendJsonString(out_, name);
  out_.append(style_ == Style::pretty ? ": " : ":");
}

void JsonWriter::value(std::string_view text) {
  appendJsonString(out_, text);
}

void JsonWriter::value(std::int64_t number) {
  std::array<char, 24> buffer{};
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number);
  out_.append(buffer.data(), result.ptr);
}

void JsonWriter::value(bool flag) {
  out_.append(flag ? "true" : "false");
}

void JsonWriter::number(double value) {
  if (!std::isfinite(value)) {
    throw EncodingFailure("a non-finite number cannot be written as JSON");
  }
  // The JSON library's own shortest round-trip form, so that the bytes match what it writes.
  std::array<char, 64> buffer{};
  char* end = nlohmann::detail::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  out_.append(buffer.data(), end);
}

}  // namespace orvanta::detail
