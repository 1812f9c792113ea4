#include "c_api/status.hpp"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "core/json_coding.hpp"
#include "models/value_json.hpp"

namespace orvanta::c_api {
namespace {

/// The largest push the C interface takes, as the kit's push transports do.
constexpr std::size_t kMaxPushBytes = 64 * 1024;

/// The calling thread's last error. `text` points into `storage`, or at a fixed line when even
/// keeping the message failed.
struct LastError {
  std::string storage;
  const char* text = "";
};

LastError& lastError() {
  thread_local LastError error;
  return error;
}

}  // namespace

void fail(orvanta_status status, std::string message) {
  throw Failure{status, std::move(message)};
}

orvanta_status setLastError(orvanta_status status, const char* function,
                            std::string_view message) noexcept {
  LastError& error = lastError();
  try {
    error.storage.assign(function);
    error.storage.append(": ");
    error.storage.append(message);
    // One line: a message that carries a line break (an exception's text, say) is folded.
    for (char& c : error.storage) {
      if (c == '\n' || c == '\r') {
        c = ' ';
      }
    }
    error.text = error.storage.c_str();
  } catch (...) {
    error.text = "out of memory";
  }
  return status;
}

std::string_view text(const char* value, const char* what, std::size_t limit) {
  if (value == nullptr) {
    fail(ORVANTA_ERROR_INVALID_ARGUMENT, std::string(what) + " is NULL");
  }
  const std::size_t length = ::strnlen(value, limit + 1);
  if (length > limit) {
    fail(ORVANTA_ERROR_INVALID_ARGUMENT,
         std::string(what) + " is longer than " + std::to_string(limit) + " bytes");
  }
  return {value, length};
}

char* ownedCopy(std::string_view value) {
  auto* copy = static_cast<char*>(std::malloc(value.size() + 1));
  if (copy == nullptr) {
    throw std::bad_alloc();
  }
  std::memcpy(copy, value.data(), value.size());
  copy[value.size()] = '\0';
  return copy;
}

ValueMap jsonObject(std::string_view json, const char* what) {
  if (json.size() > kMaxPushBytes) {
    fail(ORVANTA_ERROR_REFUSED, std::string(what) + " has " + std::to_string(json.size()) +
                                    " bytes, more than the " + std::to_string(kMaxPushBytes) +
                                    " a push may have");
  }
  detail::Json parsed;
  try {
    parsed = detail::parseJson(json);
  } catch (const detail::DecodingFailure& failure) {
    fail(ORVANTA_ERROR_REFUSED, std::string(what) + " is not JSON (" + failure.what() + ")");
  }
  if (!parsed.is_object()) {
    fail(ORVANTA_ERROR_REFUSED,
         std::string(what) + " is a JSON " + parsed.type_name() + ", not an object");
  }
  const Value value = detail::valueFromJson(parsed);
  return *value.map();
}

std::string userInfoJson(const ValueMap& userInfo) {
  auto json = detail::valueToJson(Value(userInfo));
  return json ? json->dump() : std::string("{}");
}

}  // namespace orvanta::c_api

extern "C" {

const char* orvanta_last_error(void) {
  return orvanta::c_api::lastError().text;
}

void orvanta_string_free(char* text) {
  std::free(text);
}

}  // extern "C"
