#pragma once

#include <string>

namespace orvanta {

/// A fresh random (version 4) UUID in canonical text: 36 characters, upper-case hexadecimal in
/// groups 8-4-4-4-12. Safe to call from any thread.
std::string makeUuidString();

}  // namespace orvanta
