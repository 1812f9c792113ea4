#pragma once

// The doctor's checks: each link of the chain from the application's files to the services, one
// function each, run in the order of `allChecks()`. A check leaves what it learnt in the context
// (the bus connection, the stored registration...); a check that needs it asks for that check's
// verdict first (`verdictOf`), which runs it once. The checks only read:
// the event database is inspected in a private copy, and nothing is sent to the service but a
// HEAD request of each base URL. Used from the main thread only.

#include <orvanta/platform.hpp>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "report.hpp"

typedef struct _GDBusConnection GDBusConnection;

namespace orvanta::doctor {

/// The application as the doctor looks at it: what its host passes to the Linux platform,
/// resolved as the platform resolves it.
struct Settings {
  std::string bundleDirectory;
  std::string dataDirectory;  ///< empty when none could be found (no XDG_DATA_HOME, no HOME)
  std::string keystoreDirectory;
  std::string preferencesFile;  ///< empty when none could be found
  std::string applicationId;    ///< LinuxPlatformOptions::applicationId
  std::string distributor;      ///< LinuxPlatformOptions::pushDistributor
  std::string pushServiceURL;
  std::string apiServiceURL;
  std::chrono::milliseconds timeout{10'000};  ///< for each bus call and each request
  std::chrono::seconds maxBacklogAge{86'400};
  std::set<std::string> skipped;  ///< ids of the checks not to run
};

/// The push registration the key store keeps ("unifiedPush.registration").
struct StoredRegistration {
  std::string token;
  std::string distributor;
  std::string endpoint;
  std::string authSecret;  ///< of the keys for encrypted pushes, URL-safe base64; "" without keys
};

/// What a device's push token (hex, as the service keeps it) carries: the endpoint and, in the
/// layout of version 1 (docs/unifiedpush.md), the authentication secret (URL-safe base64; "" in a
/// token of an earlier version, the endpoint alone). None when it is neither.
struct TokenContents {
  std::string endpoint;
  std::string authSecret;
};
std::optional<TokenContents> readDeviceToken(const std::string& hexToken);

struct Context {
  Settings settings;
  /// The Linux platform made from the same options as the application's: its bundle, file
  /// locations, key store and HTTP client are the ones the kit would use.
  std::shared_ptr<Platform> platform;

  // Learnt by the checks, for the checks that depend on them.
  std::string configuredAppId;                           ///< "AppId" of the configuration file
  std::optional<nlohmann::json> deviceRecord;            ///< "authorizationData.deviceModel"
  std::optional<StoredRegistration> registration;        ///< "unifiedPush.registration"
  std::shared_ptr<GDBusConnection> bus;                  ///< none: the session bus is unreachable
  std::optional<std::vector<std::string>> capabilities;  ///< of the notification server
  std::string notificationServer;                        ///< its name
  std::optional<std::vector<std::string>> distributors;  ///< UnifiedPush distributors on the bus

  std::map<Verdict (*)(Context&), Verdict> verdicts;  ///< of the checks that ran
};

using CheckFunction = Verdict (*)(Context&);

/// The verdict of `check`, running it the first time it is asked for. A check that depends on
/// what another learns asks for that one's verdict first, so skipping a check (`--skip`) changes
/// no other verdict.
const Verdict& verdictOf(Context& context, CheckFunction check);

struct Check {
  const char* id;
  const char* section;
  const char* title;
  CheckFunction run;
};

/// Every check, in the order they run.
const std::vector<Check>& allChecks();

/// Runs every check not skipped, in order.
Report runChecks(Context& context);

// The application's files (file_checks.cpp).
Verdict checkConfiguration(Context& context);
Verdict checkFiles(Context& context);
Verdict checkDatabase(Context& context);
Verdict checkKeystore(Context& context);
Verdict checkPreferences(Context& context);
Verdict checkDevice(Context& context);

// The desktop: session bus, notification server, distributor (bus_checks.cpp).
Verdict checkBus(Context& context);
Verdict checkNotificationServer(Context& context);
Verdict checkButtons(Context& context);
Verdict checkDistributor(Context& context);
Verdict checkRegistration(Context& context);

// The services (service_checks.cpp).
Verdict checkPushService(Context& context);
Verdict checkApiService(Context& context);

// Shared wording.
/// "3 s", "4 min", "2 h", "5 days".
std::string describeDuration(double seconds);

}  // namespace orvanta::doctor
