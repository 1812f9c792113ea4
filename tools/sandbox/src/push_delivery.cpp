#include "push_delivery.hpp"

#include <curl/curl.h>

#include <mutex>

namespace orvanta::sandbox {
namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  if (c >= 'A' && c <= 'F') {
    return c - 'A' + 10;
  }
  return -1;
}

bool startsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

// An absolute http(s) URL with a host, and nothing a URL can't hold (controls, spaces).
bool looksLikeEndpoint(std::string_view url) {
  std::string_view rest;
  if (startsWith(url, "http://")) {
    rest = url.substr(7);
  } else if (startsWith(url, "https://")) {
    rest = url.substr(8);
  } else {
    return false;
  }
  if (rest.empty() || rest.front() == '/') {
    return false;
  }
  for (const char c : url) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte <= 0x20 || byte == 0x7f) {
      return false;
    }
  }
  return true;
}

void initialiseCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

std::size_t keepAnswer(char* data, std::size_t size, std::size_t count, void* out) {
  auto* answer = static_cast<std::string*>(out);
  const std::size_t bytes = size * count;
  if (answer->size() < 512) {
    answer->append(data, std::min(bytes, 512 - answer->size()));
  }
  return bytes;
}

int checkCancelled(void* data, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  const auto* cancelled = static_cast<const std::function<bool()>*>(data);
  return (*cancelled && (*cancelled)()) ? 1 : 0;
}

}  // namespace

std::optional<std::string> endpointFromToken(std::string_view deviceToken) {
  if (deviceToken.empty() || deviceToken.size() % 2 != 0) {
    return std::nullopt;
  }
  std::string bytes;
  bytes.reserve(deviceToken.size() / 2);
  for (std::size_t i = 0; i < deviceToken.size(); i += 2) {
    const int high = hexDigit(deviceToken[i]);
    const int low = hexDigit(deviceToken[i + 1]);
    if (high < 0 || low < 0) {
      return std::nullopt;
    }
    bytes.push_back(static_cast<char>(high * 16 + low));
  }
  if (!looksLikeEndpoint(bytes)) {
    return std::nullopt;
  }
  return bytes;
}

Delivery postToEndpoint(const std::string& endpoint, const std::string& body, long timeoutMs,
                        const std::function<bool()>& cancelled) {
  initialiseCurlOnce();
  Delivery delivery;
  delivery.outcome = Delivery::Outcome::failed;
  CURL* easy = curl_easy_init();
  if (easy == nullptr) {
    delivery.detail = "could not start an HTTP request";
    return delivery;
  }
  char errorBuffer[CURL_ERROR_SIZE] = {};
  std::string answer;
  curl_slist* headers = nullptr;
  headers = curl_slist_append(headers, "Content-Type: application/json");
  // Push endpoints of the web-push family want to know how long a push may wait for the device.
  headers = curl_slist_append(headers, "TTL: 86400");
  curl_easy_setopt(easy, CURLOPT_URL, endpoint.c_str());
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_POST, 1L);
  curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, timeoutMs);
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, errorBuffer);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &keepAnswer);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &answer);
  curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &checkCancelled);
  curl_easy_setopt(easy, CURLOPT_XFERINFODATA, &cancelled);
  const CURLcode code = curl_easy_perform(easy);
  long status = 0;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  curl_slist_free_all(headers);
  curl_easy_cleanup(easy);

  if (code == CURLE_ABORTED_BY_CALLBACK) {
    delivery.detail = "the sandbox stopped before " + endpoint + " answered";
  } else if (code != CURLE_OK) {
    delivery.detail = "no answer from " + endpoint + ": " +
                      (errorBuffer[0] != '\0' ? errorBuffer : curl_easy_strerror(code));
  } else if (status >= 200 && status <= 299) {
    delivery.outcome = Delivery::Outcome::delivered;
    delivery.detail =
        "the device's push endpoint " + endpoint + " answered " + std::to_string(status);
  } else {
    delivery.detail = "the device's push endpoint " + endpoint + " answered " +
                      std::to_string(status) + (answer.empty() ? "" : ": " + answer);
  }
  return delivery;
}

}  // namespace orvanta::sandbox
