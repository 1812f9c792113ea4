#pragma once

// The wire contract of the request bodies, checked the way the service sees them. Each check
// answers std::nullopt for a valid body, or a short reason.

#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace orvanta::sandbox::contract {

// Body of POST devices (and of POST devices/{id} when it has one).
std::optional<std::string> checkDevice(const nlohmann::json& body, std::string_view appId);

// Body of POST pushes/{pushId}/reports.
std::optional<std::string> checkReport(const nlohmann::json& body, std::string_view pushId);

// Body of POST event.
std::optional<std::string> checkEvent(const nlohmann::json& body, std::string_view appId);

// "application/json", with or without parameters, in any case.
bool isJsonContentType(std::string_view value);

}  // namespace orvanta::sandbox::contract
