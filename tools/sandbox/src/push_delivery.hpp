#pragma once

// The sending side of the push service: a push handed to the push endpoint that a device's
// registration token stands for.

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "orvanta_sandbox/records.hpp"

namespace orvanta::sandbox {

// The push endpoint a registration token stands for: the token is the endpoint URL's bytes, two
// lower-case (or upper-case) hex digits per byte, as the kit writes any token. None when the token
// is not hex, or its bytes are not an http or https URL (a token of another push transport).
std::optional<std::string> endpointFromToken(std::string_view deviceToken);

// POSTs `body` (the push's JSON) to `endpoint` and says what became of it: delivered when the
// endpoint answered 2xx, failed otherwise (the status, or why no answer came). Gives up after
// `timeoutMs`, or as soon as `cancelled` returns true (asked a few times a second). Blocks the
// calling thread.
Delivery postToEndpoint(const std::string& endpoint, const std::string& body, long timeoutMs,
                        const std::function<bool()>& cancelled);

}  // namespace orvanta::sandbox
