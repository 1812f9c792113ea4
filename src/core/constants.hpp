#pragma once

#include <array>
#include <string>
#include <string_view>

#include "core/config_file_helper.hpp"
#include "core/logger.hpp"
#include "orvanta/port/http_client.hpp"

/// Fixed values of the kit. A namespace, not a class: other modules add to it (the records module
/// adds `Constants::DeviceAnalytics`).
namespace orvanta::Constants {

namespace Networking {

/// Header fields of every request: "Content-Type: application/json".
const port::HttpHeaders& defaultHeaders();

}  // namespace Networking

namespace Authorization {
namespace Push {

/// The fixed value of the push service's "Authorization" header, the same for every application.
inline constexpr std::string_view kAuthorizationValue = "u8jzPde0IgxLd6GncfBAepfJBd0Kh8oOOL8";

/// Built again on every call from `credentials`: "X-Orvanta-App-Token", "X-Orvanta-App-Secret"
/// and "Authorization". Any thread.
port::HttpHeaders authorizationHeaders(const CredentialsSource& credentials);

}  // namespace Push

namespace Events {

/// The events service's header: "Authorization" = the events token of `credentials`. Any thread.
port::HttpHeaders authorizationHeaders(const CredentialsSource& credentials);

}  // namespace Events
}  // namespace Authorization

namespace Logging {

/// The levels the logger prints: all of them.
inline constexpr std::array<OrvantaLogger::LogLevel, 5> sdkVisibleLogLevels = {
    OrvantaLogger::LogLevel::verbose, OrvantaLogger::LogLevel::debug, OrvantaLogger::LogLevel::info,
    OrvantaLogger::LogLevel::warning, OrvantaLogger::LogLevel::error,
};

}  // namespace Logging

/// Keys of the host's configuration file.
namespace ConfigFileKeys {

inline constexpr std::string_view appId = "AppId";
inline constexpr std::string_view token = "Token";
inline constexpr std::string_view secret = "Secret";
inline constexpr std::string_view eventsToken = "EventsToken";

}  // namespace ConfigFileKeys

}  // namespace orvanta::Constants
