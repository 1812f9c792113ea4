// The services: each base URL is taken by the kit, resolves, and answers a HEAD request through
// the kit's own HTTP client (so the certificate verdict is the kit's), with the clock compared to
// the answer's Date. No event, report or registration is sent.

#include <curl/curl.h>
#include <netdb.h>
#include <sys/socket.h>

#include <orvanta/service_urls.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "checks.hpp"

namespace orvanta::doctor {
namespace {

/// Clocks further apart than this are reported: the service sees the kit's times (events,
/// reports) shifted, and certificates may look not yet valid or expired.
constexpr double kMaxSkewSeconds = 60;

/// The host of an absolute URL ("[::1]" without its brackets).
std::string hostOf(const std::string& url) {
  const auto start = url.find("://");
  if (start == std::string::npos) {
    return {};
  }
  const std::string authority = url.substr(start + 3, url.find('/', start + 3) - start - 3);
  if (!authority.empty() && authority.front() == '[') {
    return authority.substr(1, authority.find(']') - 1);
  }
  return authority.substr(0, authority.find(':'));
}

/// The host's addresses, or none with the resolver's reason.
std::optional<std::vector<std::string>> resolve(const std::string& host, std::string& why) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int failed = ::getaddrinfo(host.c_str(), nullptr, &hints, &found);
  if (failed != 0) {
    why = ::gai_strerror(failed);
    return std::nullopt;
  }
  std::vector<std::string> addresses;
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    char text[NI_MAXHOST];
    if (::getnameinfo(entry->ai_addr, entry->ai_addrlen, text, sizeof text, nullptr, 0,
                      NI_NUMERICHOST) == 0 &&
        std::find(addresses.begin(), addresses.end(), text) == addresses.end()) {
      addresses.emplace_back(text);
    }
  }
  ::freeaddrinfo(found);
  return addresses;
}

/// HEAD `url` through the platform's HTTP client; the result once it came, within the time-out.
port::DataTaskResult head(Context& context, const std::string& url) {
  auto promise = std::make_shared<std::promise<port::DataTaskResult>>();
  auto answered = promise->get_future();
  port::HttpRequest request;
  request.method = "HEAD";
  request.url = url;
  request.timeout = context.settings.timeout;
  auto task = context.platform->httpClient->dataTask(
      std::move(request),
      [promise](port::DataTaskResult result) { promise->set_value(std::move(result)); });
  // The client's own time-out ends the transfer; the margin only guards against a client that
  // never completes. A cancelled task still completes, once.
  if (answered.wait_for(context.settings.timeout + std::chrono::seconds(5)) !=
      std::future_status::ready) {
    task->cancel();
  }
  return answered.get();
}

Verdict checkService(Context& context, const std::string& name, const std::string& url,
                     const char* option) {
  nlohmann::ordered_json details{{"url", url}};
  if (!isAcceptableServiceBaseURL(url)) {
    return Verdict::fail(
        url +
            " is not a base URL the kit takes (https, ending in \"/\"; plain "
            "http only on a loopback address)",
        std::string("pass the URL the application gives setServiceBaseURLs (") + option + ")",
        details);
  }
  const std::string host = hostOf(url);
  std::string why;
  const auto addresses = resolve(host, why);
  if (!addresses) {
    return Verdict::fail(
        host + " does not resolve (" + why + "): the kit cannot reach the " + name,
        "check the host name and this machine's DNS (resolvectl query " + host + ")", details);
  }
  details["addresses"] = *addresses;
  const bool secure = url.compare(0, 8, "https://") == 0;
  const port::DataTaskResult result = head(context, url);
  const auto answeredAt = std::chrono::system_clock::now();
  if (result.error || !result.response) {
    const int code = result.error ? result.error->code() : 0;
    const std::string message = result.error ? result.error->message() : "no answer";
    details["error"] = message;
    if (code == CURLE_PEER_FAILED_VERIFICATION) {
      return Verdict::fail(
          "the certificate of " + host + " is not trusted (" + message +
              "): the kit refuses every request to the " + name,
          "serve a certificate from an authority in the system store, or add the authority to it "
          "(sudo cp authority.crt /usr/local/share/ca-certificates/ && sudo "
          "update-ca-certificates)",
          details);
    }
    if (code == CURLE_SSL_CONNECT_ERROR) {
      return Verdict::fail("the TLS handshake with " + host + " failed (" + message + ")",
                           "check the server's TLS set-up and this machine's clock", details);
    }
    return Verdict::fail(url + " does not answer (" + message + ")",
                         "check that the " + name +
                             " is up and reachable from this machine (firewall; behind a proxy, "
                             "set https_proxy)",
                         details);
  }
  const port::HttpResponse& response = *result.response;
  details["status"] = response.statusCode;
  std::string reason =
      url + " answers (HTTP " + std::to_string(response.statusCode) + ") " +
      (secure ? "over TLS, certificate trusted" : "over plain http (a loopback address: no TLS)");
  if (response.statusCode >= 500) {
    return Verdict::fail(url + " answers HTTP " + std::to_string(response.statusCode) + ": the " +
                             name + " is failing",
                         "run the doctor again later: the kit keeps its events and retries "
                         "registration every minute meanwhile",
                         details);
  }
  const auto date = response.header("Date");
  const time_t serverTime = date ? curl_getdate(date->c_str(), nullptr) : -1;
  if (serverTime < 0) {
    return Verdict::pass(reason + "; no Date to compare clocks with", details);
  }
  // A Date names a whole second: the service's clock was somewhere within it.
  const double skew = std::chrono::duration<double>(answeredAt.time_since_epoch()).count() -
                      (static_cast<double>(serverTime) + 0.5);
  details["clockSkewSeconds"] = std::llround(skew);
  if (std::fabs(skew) > kMaxSkewSeconds) {
    return Verdict::fail("this machine's clock is " + describeDuration(skew) +
                             (skew > 0 ? " ahead of " : " behind ") + "the " + name + "'s",
                         "turn on time synchronisation (timedatectl set-ntp true)", details);
  }
  return Verdict::pass(reason + "; clocks agree within " +
                           describeDuration(std::max(1.0, std::ceil(std::fabs(skew)))),
                       details);
}

}  // namespace

Verdict checkPushService(Context& context) {
  return checkService(context, "push service", context.settings.pushServiceURL, "--push-url");
}

Verdict checkApiService(Context& context) {
  return checkService(context, "API service", context.settings.apiServiceURL, "--api-url");
}

}  // namespace orvanta::doctor
