#pragma once

// The wire contract of the request headers and bodies, checked the way the service sees them. Each
// check answers std::nullopt for a valid body, or a short reason.

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace orvanta::sandbox::contract {

// Body of POST devices (and of POST devices/{id} when it has one).
std::optional<std::string> checkDevice(const nlohmann::json& body, std::string_view appId);

// Body of POST pushes/{pushId}/reports.
std::optional<std::string> checkReport(const nlohmann::json& body, std::string_view pushId);

// Body of POST event.
std::optional<std::string> checkEvent(const nlohmann::json& body, std::string_view appId);

// No header field may appear twice (names compared without regard to case).
std::optional<std::string> checkUniqueHeaders(
    const std::vector<std::pair<std::string, std::string>>& headers);

// The event service takes none of the push service's credential headers.
std::optional<std::string> checkEventHeaders(
    const std::vector<std::pair<std::string, std::string>>& headers);

// The "Content-Type" of every request, body or not: exactly "application/json", no parameters.
std::optional<std::string> checkContentType(const std::optional<std::string>& value);

}  // namespace orvanta::sandbox::contract
