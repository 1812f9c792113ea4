#pragma once

#include <string>

namespace orvanta::detail {

/// The standard reason phrase of an HTTP status code in lower case ("not found"). Codes without a
/// registered phrase get the name of their class: "informational", "success", "redirection",
/// "client error", "server error"; anything outside 100-599 gives "server error".
std::string httpStatusPhrase(int statusCode);

/// Every word of `text` with its first letter in upper case and the rest in lower case; words are
/// separated by blanks and hyphens ("non-authoritative information" ->
/// "Non-Authoritative Information"). ASCII only, which is all the phrases contain.
std::string capitalizeWords(const std::string& text);

}  // namespace orvanta::detail
