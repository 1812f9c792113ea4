#include "orvanta/service_urls.hpp"

#include "core/text.hpp"
#include "core/uri.hpp"
#include "entry/kit_context.hpp"

namespace orvanta {

bool isAcceptableServiceBaseURL(const std::string& url) {
  if (url.empty() || url.back() != '/') {
    return false;
  }
  auto components = parseUriReference(url);
  if (!components || !components->scheme || !components->authority || components->host.empty() ||
      components->userinfo || components->query || components->fragment) {
    return false;
  }
  if (equalsIgnoringAsciiCase(*components->scheme, "https")) {
    return true;
  }
  return equalsIgnoringAsciiCase(*components->scheme, "http") && isLoopbackHost(components->host);
}

bool setServiceBaseURLs(const std::string& pushServiceURL, const std::string& apiServiceURL) {
  if (!isAcceptableServiceBaseURL(pushServiceURL) || !isAcceptableServiceBaseURL(apiServiceURL)) {
    return false;
  }
  detail::processServiceURLs()->set(pushServiceURL, apiServiceURL);
  return true;
}

void resetServiceBaseURLs() {
  detail::processServiceURLs()->set(std::string(ServiceBaseURLs::kProductionPush),
                                    std::string(ServiceBaseURLs::kProductionApi));
}

}  // namespace orvanta
