#include "core/http_status.hpp"

#include <cctype>
#include <string_view>

namespace orvanta::detail {

std::string httpStatusPhrase(int statusCode) {
  std::string_view phrase;
  switch (statusCode) {
    case 100:
      phrase = "continue";
      break;
    case 101:
      phrase = "switching protocols";
      break;
    case 102:
      phrase = "processing";
      break;
    case 103:
      phrase = "early hints";
      break;
    case 200:
      phrase = "ok";
      break;
    case 201:
      phrase = "created";
      break;
    case 202:
      phrase = "accepted";
      break;
    case 203:
      phrase = "non-authoritative information";
      break;
    case 204:
      phrase = "no content";
      break;
    case 205:
      phrase = "reset content";
      break;
    case 206:
      phrase = "partial content";
      break;
    case 207:
      phrase = "multi-status";
      break;
    case 208:
      phrase = "already reported";
      break;
    case 226:
      phrase = "im used";
      break;
    case 300:
      phrase = "multiple choices";
      break;
    case 301:
      phrase = "moved permanently";
      break;
    case 302:
      phrase = "found";
      break;
    case 303:
      phrase = "see other";
      break;
    case 304:
      phrase = "not modified";
      break;
    case 305:
      phrase = "use proxy";
      break;
    case 307:
      phrase = "temporary redirect";
      break;
    case 308:
      phrase = "permanent redirect";
      break;
    case 400:
      phrase = "bad request";
      break;
    case 401:
      phrase = "unauthorized";
      break;
    case 402:
      phrase = "payment required";
      break;
    case 403:
      phrase = "forbidden";
      break;
    case 404:
      phrase = "not found";
      break;
    case 405:
      phrase = "method not allowed";
      break;
    case 406:
      phrase = "not acceptable";
      break;
    case 407:
      phrase = "proxy authentication required";
      break;
    case 408:
      phrase = "request timeout";
      break;
    case 409:
      phrase = "conflict";
      break;
    case 410:
      phrase = "gone";
      break;
    case 411:
      phrase = "length required";
      break;
    case 412:
      phrase = "precondition failed";
      break;
    case 413:
      phrase = "content too large";
      break;
    case 414:
      phrase = "uri too long";
      break;
    case 415:
      phrase = "unsupported media type";
      break;
    case 416:
      phrase = "range not satisfiable";
      break;
    case 417:
      phrase = "expectation failed";
      break;
    case 421:
      phrase = "misdirected request";
      break;
    case 422:
      phrase = "unprocessable content";
      break;
    case 423:
      phrase = "locked";
      break;
    case 424:
      phrase = "failed dependency";
      break;
    case 425:
      phrase = "too early";
      break;
    case 426:
      phrase = "upgrade required";
      break;
    case 428:
      phrase = "precondition required";
      break;
    case 429:
      phrase = "too many requests";
      break;
    case 431:
      phrase = "request header fields too large";
      break;
    case 451:
      phrase = "unavailable for legal reasons";
      break;
    case 500:
      phrase = "internal server error";
      break;
    case 501:
      phrase = "not implemented";
      break;
    case 502:
      phrase = "bad gateway";
      break;
    case 503:
      phrase = "service unavailable";
      break;
    case 504:
      phrase = "gateway timeout";
      break;
    case 505:
      phrase = "http version not supported";
      break;
    case 506:
      phrase = "variant also negotiates";
      break;
    case 507:
      phrase = "insufficient storage";
      break;
    case 508:
      phrase = "loop detected";
      break;
    case 510:
      phrase = "not extended";
      break;
    case 511:
      phrase = "network authentication required";
      break;
    default:
      if (statusCode >= 100 && statusCode < 200) {
        phrase = "informational";
      } else if (statusCode >= 200 && statusCode < 300) {
        phrase = "success";
      } else if (statusCode >= 300 && statusCode < 400) {
        phrase = "redirection";
      } else if (statusCode >= 400 && statusCode < 500) {
        phrase = "client error";
      } else {
        phrase = "server error";
      }
  }
  return std::string(phrase);
}

std::string capitalizeWords(const std::string& text) {
  std::string result;
  result.reserve(text.size());
  bool startOfWord = true;
  for (char c : text) {
    auto byte = static_cast<unsigned char>(c);
    if (c == ' ' || c == '-') {
      result.push_back(c);
      startOfWord = true;
      continue;
    }
    result.push_back(static_cast<char>(startOfWord ? std::toupper(byte) : std::tolower(byte)));
    startOfWord = false;
  }
  return result;
}

}  // namespace orvanta::detail
