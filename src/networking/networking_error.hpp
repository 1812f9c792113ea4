#pragma once

#include <string_view>

#include "orvanta/error.hpp"

namespace orvanta {

/// Failures while building a request, before anything is sent.
enum class NetworkingError {
  invalidURL,      ///< "Given URL is not valid."
  encodingFailed,  ///< "Parameter encoding failed"
};

/// The case's text, which is also what the logger prints for it.
std::string_view rawValue(NetworkingError error);

/// The case as the kit's error value: domain `networking`, code = the case's ordinal, message =
/// its text.
Error makeError(NetworkingError error);

}  // namespace orvanta
