#include "push_delivery.hpp"

#include <curl/curl.h>

#include <mutex>

namespace orvanta::sandbox {
namespace {

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

Delivery postToEndpoint(const std::string& endpoint, const std::string& body,
                        const std::vector<std::string>& headers, long timeoutMs,
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
  curl_slist* list = nullptr;
  for (const auto& header : headers) {
    list = curl_slist_append(list, header.c_str());
  }
  curl_easy_setopt(easy, CURLOPT_URL, endpoint.c_str());
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_POST, 1L);
  curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, list);
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
  curl_slist_free_all(list);
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
