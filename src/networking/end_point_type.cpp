#include "networking/end_point_type.hpp"

namespace orvanta {
namespace {

bool mayStandInPath(unsigned char c) {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
    return true;
  }
  return std::string_view("-._~!$&'()*+,;=:@/").find(static_cast<char>(c)) !=
         std::string_view::npos;
}

}  // namespace

std::string_view rawValue(HTTPMethod method) {
  switch (method) {
    case HTTPMethod::get:
      return "GET";
    case HTTPMethod::post:
      return "POST";
    case HTTPMethod::put:
      return "PUT";
    case HTTPMethod::patch:
      return "PATCH";
    case HTTPMethod::del:
      return "DELETE";
  }
  return "GET";
}

std::string appendingPathComponent(const std::string& base, std::string_view path) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string url = base;
  if (url.empty() || url.back() != '/') {
    url.push_back('/');
  }
  url.reserve(url.size() + path.size());
  for (char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    if (mayStandInPath(byte)) {
      url.push_back(c);
    } else {
      url.push_back('%');
      url.push_back(kHex[byte >> 4]);
      url.push_back(kHex[byte & 0x0F]);
    }
  }
  return url;
}

}  // namespace orvanta
