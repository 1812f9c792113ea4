#include "guards.hpp"

#include <algorithm>
#include <cctype>
#include <set>
#include <utility>
#include <vector>

#include "orvanta_sandbox/web_push.hpp"

namespace orvanta::sandbox::guards {
namespace {

using nlohmann::json;

// A push token is the hex of "http://" and more (a token of an earlier kit), or of the version
// byte, the endpoint, a key and a secret: anything shorter is no token.
constexpr std::size_t kShortestEndpointToken = 20;

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         });
}

bool isCredentialHeader(std::string_view name) {
  return equalsIgnoringCase(name, "Authorization") ||
         equalsIgnoringCase(name, "X-Orvanta-App-Token") ||
         equalsIgnoringCase(name, "X-Orvanta-App-Secret");
}

// Whether arrays and objects nest more than `limit` deep, brackets in strings not counted. Exact
// for JSON; for anything else the parser has the last word. (The kit has its own: the sandbox
// checks the wire independently and does not link it.)
bool nestedDeeperThan(std::string_view text, std::size_t limit) {
  std::size_t depth = 0;
  bool inString = false;
  bool escaped = false;
  for (const char c : text) {
    if (inString) {
      if (escaped) {
        escaped = false;
      } else if (c == '\\') {
        escaped = true;
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > limit) {
        return true;
      }
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return false;
}

// The push endpoints in `text` (hex runs that are push tokens, with or without keys), as tokens
// and as URLs: masking the token hides its keys too.
void collectEndpoints(std::string_view text, std::set<std::string>& found) {
  std::size_t start = 0;
  while (start < text.size()) {
    while (start < text.size() && std::isxdigit(static_cast<unsigned char>(text[start])) == 0) {
      ++start;
    }
    std::size_t end = start;
    while (end < text.size() && std::isxdigit(static_cast<unsigned char>(text[end])) != 0) {
      ++end;
    }
    const std::string_view run = text.substr(start, end - start);
    if (run.size() >= kShortestEndpointToken) {
      if (auto subscription = webpush::subscriptionFromToken(run)) {
        found.emplace(run);
        found.insert(std::move(subscription->endpoint));
      }
    }
    start = end;
  }
}

void collect(const json& value, std::set<std::string>& found) {
  if (value.is_string()) {
    collectEndpoints(value.get_ref<const std::string&>(), found);
  } else if (value.is_object()) {
    for (const auto& [key, member] : value.items()) {
      collectEndpoints(key, found);
      collect(member, found);
    }
  } else if (value.is_array()) {
    for (const auto& element : value) {
      collect(element, found);
    }
  }
}

std::string replaced(std::string text, const std::vector<std::pair<std::string, std::string>>& by) {
  for (const auto& [secret, mask] : by) {
    for (auto at = text.find(secret); at != std::string::npos;
         at = text.find(secret, at + mask.size())) {
      text.replace(at, secret.size(), mask);
    }
  }
  return text;
}

void replace(json& value, const std::vector<std::pair<std::string, std::string>>& by) {
  if (value.is_string()) {
    value = replaced(value.get<std::string>(), by);
  } else if (value.is_object()) {
    json out = json::object();
    for (auto& [key, member] : value.items()) {
      replace(member, by);
      out[replaced(key, by)] = std::move(member);
    }
    value = std::move(out);
  } else if (value.is_array()) {
    const bool credentialHeader = value.size() == 2 && value[0].is_string() &&
                                  value[1].is_string() &&
                                  isCredentialHeader(value[0].get_ref<const std::string&>());
    if (credentialHeader) {
      value[1] = masked(value[1].get_ref<const std::string&>());
      return;
    }
    for (auto& element : value) {
      replace(element, by);
    }
  }
}

}  // namespace

std::optional<json> parseJson(std::string_view text, std::string* why) {
  if (nestedDeeperThan(text, kMaxJsonDepth)) {
    if (why != nullptr) {
      *why = "nested more than " + std::to_string(kMaxJsonDepth) + " levels deep";
    }
    return std::nullopt;
  }
  json value = json::parse(text, nullptr, false);
  if (value.is_discarded()) {
    if (why != nullptr) {
      *why = "not JSON";
    }
    return std::nullopt;
  }
  return value;
}

bool isOwnHost(const char* host, std::uint16_t port) {
  if (host == nullptr) {
    return true;
  }
  const std::string suffix = ":" + std::to_string(port);
  for (const char* name : {"127.0.0.1", "localhost", "[::1]"}) {
    if (equalsIgnoringCase(host, std::string(name) + suffix) ||
        (port == 80 && equalsIgnoringCase(host, name))) {
      return true;
    }
  }
  return false;
}

std::string masked(std::string_view secret) {
  constexpr std::size_t kKept = 4;
  if (secret.size() <= 2 * kKept) {
    return "****";
  }
  return "****" + std::string(secret.substr(secret.size() - kKept));
}

void maskSecrets(json& value) {
  std::set<std::string> endpoints;
  collect(value, endpoints);
  std::vector<std::pair<std::string, std::string>> by;
  for (const auto& secret : endpoints) {
    by.emplace_back(secret, masked(secret));
  }
  // Longest first: a token never shows through a shorter secret's mask.
  std::sort(by.begin(), by.end(),
            [](const auto& a, const auto& b) { return a.first.size() > b.first.size(); });
  replace(value, by);
}

}  // namespace orvanta::sandbox::guards
