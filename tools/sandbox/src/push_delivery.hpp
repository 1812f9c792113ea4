#pragma once

// The sending side of the push service: a push handed to the push endpoint that a device's
// registration token stands for (see orvanta_sandbox/web_push.hpp for how the token is read).

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvanta_sandbox/records.hpp"

namespace orvanta::sandbox {

// POSTs `body` (the push, encrypted or in clear) with `headers` ("Name: value") to `endpoint` and
// says what became of it: delivered when the endpoint answered 2xx, failed otherwise (the status,
// or why no answer came). Gives up after `timeoutMs`, or as soon as `cancelled` returns true (asked
// a few times a second). Blocks the calling thread.
Delivery postToEndpoint(const std::string& endpoint, const std::string& body,
                        const std::vector<std::string>& headers, long timeoutMs,
                        const std::function<bool()>& cancelled);

}  // namespace orvanta::sandbox
