#pragma once

// A plain libcurl client and valid bodies for driving the sandbox over loopback in its tests.

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "orvanta_sandbox/sandbox.hpp"

namespace orvanta::sandbox::testing {

struct HttpAnswer {
  CURLcode error = CURLE_OK;
  long status = 0;
  std::map<std::string, std::string> headers;  // names in lower case
  std::string body;

  bool hasHeader(const std::string& name) const { return headers.count(name) != 0; }
  std::string header(const std::string& name) const {
    const auto found = headers.find(name);
    return found != headers.end() ? found->second : std::string();
  }
  nlohmann::json json() const { return nlohmann::json::parse(body); }
};

// One easy handle, so that successive requests reuse one keep-alive connection.
class SandboxClient {
 public:
  SandboxClient() : easy_(curl_easy_init(), &curl_easy_cleanup) {}

  HttpAnswer send(const std::string& method, const std::string& url,
                  const std::vector<std::string>& headers,
                  const std::optional<std::string>& body = std::nullopt) {
    CURL* easy = easy_.get();
    curl_easy_reset(easy);
    HttpAnswer answer;
    curl_slist* list = nullptr;
    for (const auto& header : headers) {
      list = curl_slist_append(list, header.c_str());
    }
    list = curl_slist_append(list, "Expect:");
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, list);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT, 30L);
    if (body) {
      curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body->size()));
      curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body->data());
    }
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &SandboxClient::onBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &answer);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &SandboxClient::onHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, &answer);
    answer.error = curl_easy_perform(easy);
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &answer.status);
    curl_slist_free_all(list);
    return answer;
  }

 private:
  static std::size_t onBody(char* data, std::size_t size, std::size_t count, void* user) {
    static_cast<HttpAnswer*>(user)->body.append(data, size * count);
    return size * count;
  }

  static std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* user) {
    auto* answer = static_cast<HttpAnswer*>(user);
    const std::string line(data, size * count);
    const auto colon = line.find(':');
    if (colon != std::string::npos) {
      std::string name = line.substr(0, colon);
      std::transform(name.begin(), name.end(), name.begin(),
                     [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
      auto value = line.substr(colon + 1);
      value.erase(0, value.find_first_not_of(' '));
      value.erase(value.find_last_not_of("\r\n") + 1);
      answer->headers[name] = value;
    }
    return size * count;
  }

  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> easy_;
};

inline std::vector<std::string> pushHeaders(const Credentials& credentials) {
  return {"Content-Type: application/json", "X-Orvanta-App-Token: " + credentials.token,
          "X-Orvanta-App-Secret: " + credentials.secret,
          "Authorization: " + std::string(kPushAuthorization)};
}

inline std::vector<std::string> eventHeaders(const Credentials& credentials) {
  return {"Content-Type: application/json", "Authorization: " + credentials.eventsToken};
}

inline nlohmann::json validDevice(const Credentials& credentials, const std::string& userId) {
  return {{"user_id", userId},
          {"orvanta", {{"email", "ada@example.com"}}},
          {"type", "IOS"},
          {"app_id", credentials.appId},
          {"registration_id", "a1b2c3"},
          {"custom",
           {{"boolean_fields", {{"vip", true}}},
            {"integer_fields", {{"visits", 3}}},
            {"string_fields", {{"plan", "gold"}}},
            {"date_fields", {{"since", 10.5}}}}},
          {"mobile_agent",
           {{{"phone_model", "x86_64"},
             {"system_version", "12"},
             {"system_name", "Debian"},
             {"language", "en"}}}}};
}

inline nlohmann::json validReport(const std::string& pushId) {
  return {{"id", pushId},
          {"status", 1},
          {"type", "IOS"},
          {"registration_id", "a1b2c3"},
          {"occurred_at", 1700000000}};
}

inline nlohmann::json validEvent(const Credentials& credentials, double createdAt = 1.7e9) {
  return {{"pushId", "a1b2c3|||" + credentials.appId},
          {"eventName", "purchase"},
          {"createdAt", createdAt},
          {"additionalStringFields", {{"sku", "A-1"}}},
          {"additionalNumericFields", {{"qty", 2}}},
          {"additionalBoolFields", {{"gift", false}}},
          {"additionalDateFields", {{"when", 700000000.25}}}};
}

// A sandbox on an ephemeral port and a client for it.
class SandboxTest : public ::testing::Test {
 protected:
  std::string url(const std::string& path) const { return sandbox->baseUrl() + path; }
  const Credentials& credentials() const { return sandbox->credentials(); }

  HttpAnswer post(const std::string& path, const nlohmann::json& body) {
    const bool isEvent = path == "event";
    return client.send("POST", url(path),
                       isEvent ? eventHeaders(credentials()) : pushHeaders(credentials()),
                       body.dump());
  }

  std::string lastViolation() const {
    const auto violations = sandbox->violations();
    return violations.empty() ? std::string() : violations.back().reason;
  }

  std::unique_ptr<Sandbox> sandbox = Sandbox::start();
  SandboxClient client;
};

}  // namespace orvanta::sandbox::testing
