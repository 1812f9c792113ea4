#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "orvanta/value.hpp"

namespace orvanta {

/// The largest push message read. Pushes are small (a few kilobytes at most); anything bigger is
/// not one of the service's.
inline constexpr std::size_t kMaxRemotePushBytes = 64 * 1024;

/// The user info of a push that a transport delivered as raw bytes: the JSON object the
/// application server POSTed. None, after one error line in the kit's log saying why, when the
/// bytes are larger than `kMaxRemotePushBytes`, not JSON (or nested too deeply), or not an object.
/// Never throws. Any thread.
std::optional<ValueMap> remotePushUserInfo(std::string_view bytes);

/// A push message a transport refused before reading it (one that does not decrypt, say): counted
/// received and dropped as invalid, with the error line "Dropped a push message: " and `why`.
/// Any thread.
void dropRemotePushMessage(const std::string& why);

}  // namespace orvanta
