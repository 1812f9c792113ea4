#include "checks.hpp"

#include <cmath>

namespace orvanta::doctor {

// Sections go from the application's files to the desktop to the network. The kit's own health
// counters, once a host can report them, fit as one more section after these, a row per group of
// counters, each a function of the same shape.
const std::vector<Check>& allChecks() {
  static const std::vector<Check> checks{
      {"configuration", "files", "configuration file", &checkConfiguration},
      {"files", "files", "file permissions", &checkFiles},
      {"database", "files", "event database", &checkDatabase},
      {"keystore", "files", "key store", &checkKeystore},
      {"preferences", "files", "preferences", &checkPreferences},
      {"device", "files", "device record", &checkDevice},
      {"bus", "desktop", "session D-Bus", &checkBus},
      {"notifications", "desktop", "notification server", &checkNotificationServer},
      {"buttons", "desktop", "notification buttons", &checkButtons},
      {"distributor", "desktop", "push distributor", &checkDistributor},
      {"registration", "desktop", "push registration", &checkRegistration},
      {"push-service", "service", "push service", &checkPushService},
      {"api-service", "service", "API service", &checkApiService},
  };
  return checks;
}

Report runChecks(Context& context) {
  Report report;
  for (const Check& check : allChecks()) {
    if (context.settings.skipped.count(check.id) != 0) {
      continue;
    }
    report.results.push_back({check.id, check.section, check.title, verdictOf(context, check.run)});
  }
  return report;
}

const Verdict& verdictOf(Context& context, CheckFunction check) {
  auto found = context.verdicts.find(check);
  if (found == context.verdicts.end()) {
    found = context.verdicts.emplace(check, check(context)).first;
  }
  return found->second;
}

std::string describeDuration(double seconds) {
  const double magnitude = std::fabs(seconds);
  auto whole = [](double value, const char* unit) {
    return std::to_string(static_cast<long long>(std::llround(value))) + unit;
  };
  if (magnitude < 120) {
    return whole(magnitude, " s");
  }
  if (magnitude < 2 * 3600) {
    return whole(magnitude / 60, " min");
  }
  if (magnitude < 2 * 86400) {
    return whole(magnitude / 3600, " h");
  }
  return whole(magnitude / 86400, " days");
}

std::string hex(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text.push_back(kDigits[byte >> 4]);
    text.push_back(kDigits[byte & 0x0F]);
  }
  return text;
}

}  // namespace orvanta::doctor
