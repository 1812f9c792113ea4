#pragma once

// What the sandbox checks before it trusts a request from its own machine, and what it hides in
// what its control pages show. The sandbox listens on the loopback address only, but any program
// of the machine, and any web page open in the person's browser, can reach it.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace orvanta::sandbox::guards {

// How deeply arrays and objects may nest in a body the sandbox reads.
inline constexpr std::size_t kMaxJsonDepth = 64;

// Reads a body as JSON; `why` gets the reason when it is not JSON, or nests arrays and objects
// more than kMaxJsonDepth deep (the value is then discarded unread).
std::optional<nlohmann::json> parseJson(std::string_view text, std::string* why = nullptr);

// True when `host` (a request's "Host" field) names this server: 127.0.0.1, localhost or [::1]
// with `port` (the name alone on port 80). A page of another site that a DNS server points at
// 127.0.0.1 ("DNS rebinding") sends its own name and is refused. No field (HTTP/1.0) passes.
bool isOwnHost(const char* host, std::uint16_t port);

// "****" and the last 4 characters of `secret` (only "****" when it has 8 characters or fewer).
std::string masked(std::string_view secret);

// Masks, in place, what gives someone else the application's place: the values of credential
// header fields in request log entries ([name, value] pairs named "Authorization",
// "X-Orvanta-App-Token" or "X-Orvanta-App-Secret", any case), and push endpoints wherever they
// appear, as device tokens (hex) or as URLs, in keys and values.
void maskSecrets(nlohmann::json& value);

}  // namespace orvanta::sandbox::guards
