#pragma once

#include <string_view>

#include "orvanta/port/http_client.hpp"

namespace orvanta::linux_platform {

/// A method or header name: one or more token characters of HTTP.
bool isHttpToken(std::string_view text);

/// A header value that can be sent as it is: no CR, LF or NUL.
bool isHttpFieldValue(std::string_view text);

/// Adds one line of a response's header block to `headers`: "Name: value" appends a field
/// (name and value trimmed), a folded continuation line extends the last value, a new status line
/// ("HTTP/...") starts over (an interim 1xx answer's fields are not part of the final response),
/// and anything else (the blank line that ends the block) is ignored. Trailing CR/LF are dropped.
void addResponseHeaderLine(port::HttpHeaders& headers, std::string_view line);

}  // namespace orvanta::linux_platform
