#include "core/constants.hpp"

#include <mutex>
#include <utility>

namespace orvanta::Constants {
namespace {

constexpr std::string_view kPushSDKURL = "https://push.orvanta.io/v1/";
constexpr std::string_view kEventsSDKURL = "https://api.orvanta.io/v1/";

struct ServiceURLs {
  std::mutex mutex;
  std::optional<std::string> push;
  std::optional<std::string> events;
};

ServiceURLs& serviceURLs() {
  // Never destroyed: requests may still be built on the kit's threads while the process exits.
  static auto* urls = new ServiceURLs();
  return *urls;
}

}  // namespace

namespace Networking {

std::string pushSDKURL() {
  auto& urls = serviceURLs();
  std::lock_guard lock(urls.mutex);
  return urls.push ? *urls.push : std::string(kPushSDKURL);
}

std::string eventsSDKURL() {
  auto& urls = serviceURLs();
  std::lock_guard lock(urls.mutex);
  return urls.events ? *urls.events : std::string(kEventsSDKURL);
}

void overrideServiceURLs(std::optional<std::string> pushURL, std::optional<std::string> eventsURL) {
  auto& urls = serviceURLs();
  std::lock_guard lock(urls.mutex);
  urls.push = (pushURL && !pushURL->empty()) ? std::move(pushURL) : std::nullopt;
  urls.events = (eventsURL && !eventsURL->empty()) ? std::move(eventsURL) : std::nullopt;
}

port::HttpHeaders defaultHeaders() {
  return {{"Content-Type", "application/json"}};
}

}  // namespace Networking

namespace Authorization {

port::HttpHeaders Push::authorizationHeaders(const CredentialsSource& credentials) {
  return {
      {"X-Orvanta-App-Token", credentials.token()},
      {"X-Orvanta-App-Secret", credentials.secret()},
      {"Authorization", std::string(kAuthorizationValue)},
  };
}

port::HttpHeaders Events::authorizationHeaders(const CredentialsSource& credentials) {
  return {{"Authorization", credentials.eventsToken()}};
}

}  // namespace Authorization

}  // namespace orvanta::Constants
