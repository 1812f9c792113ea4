#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "orvanta/export.hpp"

namespace orvanta {

/// What the kit has done since the process started: a copy, taken at once by
/// `Orvanta::health()`, that the host may log, show or post to its own diagnostics. Counters only
/// grow; `rowsWaiting` and `oldestWaiting` describe the event queue as it stands.
struct ORVANTA_API OrvantaHealth {
  // An event's life.
  std::uint64_t eventsTracked = 0;  ///< `trackEvent` calls that made an event
  std::uint64_t eventsRefused = 0;  ///< tracked but not recorded (over the size limit, no device)
  std::uint64_t eventsStored = 0;   ///< rows written to the event database
  std::uint64_t eventsPosted = 0;   ///< events the service took (2xx)
  std::uint64_t postFailuresNetwork = 0;      ///< posts that got no answer
  std::uint64_t postFailuresClientError = 0;  ///< posts answered 4xx
  std::uint64_t postFailuresServerError = 0;  ///< posts answered 5xx (or another non-2xx)
  std::uint64_t rowsWaiting = 0;              ///< events stored and not yet delivered
  /// Age of the oldest waiting event when the snapshot was taken; zero when none waits.
  std::chrono::milliseconds oldestWaiting{0};
  /// When the service last took an event; the epoch when it has not since start.
  std::chrono::system_clock::time_point lastSuccessfulPost{};

  // Storage.
  std::uint64_t storageErrors = 0;  ///< database and secure-store operations that failed

  // A push's life.
  std::uint64_t pushesReceived = 0;         ///< remote pushes that reached the kit
  std::uint64_t pushesShown = 0;            ///< handed to the desktop's notification server
  std::uint64_t pushesDroppedInvalid = 0;   ///< not the kit's format, or failed to decrypt
  std::uint64_t pushesDroppedRefused = 0;   ///< refused: unknown sender or a plain push when keys
                                            ///< are required
  std::uint64_t pushesDroppedNotShown = 0;  ///< valid, but the desktop would not show it
  std::uint64_t reportsSent = 0;            ///< status reports the service took
  std::uint64_t reportsFailed = 0;          ///< status reports that failed

  /// The snapshot as one compact JSON object, keys named as the fields above, in their order;
  /// `oldestWaiting` as "oldestWaitingMs" and `lastSuccessfulPost` as "lastSuccessfulPostMs"
  /// (milliseconds since 1970, 0 when none). For a host's own log or diagnostics; the
  /// development sandbox shows it on its console when a host posts it there. Any thread.
  std::string json() const;
};

}  // namespace orvanta
