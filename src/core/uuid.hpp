#pragma once

#include <string>

namespace orvanta {

/// A fresh random (version 4) UUID in canonical text: 36 characters, upper-case hexadecimal in
/// groups 8-4-4-4-12. The 122 random bits come from the system's random source on every call
/// (`getrandom` on Linux), so processes forked from one another draw different identifiers. Safe
/// to call from any thread.
std::string makeUuidString();

}  // namespace orvanta
