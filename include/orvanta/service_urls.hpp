#pragma once

#include <string>

#include "orvanta/export.hpp"

namespace orvanta {

/// Points the kit at other service hosts than its production ones: a local sandbox, a staging
/// service. `pushServiceURL` serves devices, last pushes and push reports; `apiServiceURL` serves
/// events. Both are base URLs to which the kit appends "devices", "event"... so they end in "/"
/// (the production ones are "https://push.orvanta.io/v1/" and "https://api.orvanta.io/v1/").
///
/// Each URL must parse as an absolute URL, end in "/", carry no user, query or fragment, and use
/// https — or plain http for a loopback host only (127.0.0.0/8, [::1], localhost). Returns false
/// and changes nothing when either URL is refused.
///
/// Call it before the first use of the kit; requests built afterwards use the new bases. Any
/// thread.
///
///   orvanta::setServiceBaseURLs("http://127.0.0.1:8080/v1/", "http://127.0.0.1:8080/v1/");
ORVANTA_API bool setServiceBaseURLs(const std::string& pushServiceURL,
                                    const std::string& apiServiceURL);

/// Goes back to the production service URLs. Any thread.
ORVANTA_API void resetServiceBaseURLs();

/// True when `url` would be accepted by `setServiceBaseURLs`. Any thread.
ORVANTA_API bool isAcceptableServiceBaseURL(const std::string& url);

}  // namespace orvanta
