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

std::optional<TokenContents> readDeviceToken(const std::string& hexToken) {
  if (hexToken.empty() || hexToken.size() % 2 != 0 ||
      hexToken.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
    return std::nullopt;
  }
  std::string bytes;
  for (std::size_t i = 0; i < hexToken.size(); i += 2) {
    bytes.push_back(static_cast<char>(std::stoi(hexToken.substr(i, 2), nullptr, 16)));
  }
  constexpr std::size_t kKey = 65;
  constexpr std::size_t kSecret = 16;
  if (bytes[0] != '\x01') {
    return TokenContents{bytes, ""};  // an endpoint alone
  }
  const std::size_t length =
      bytes.size() < 3 ? 0
                       : (static_cast<std::size_t>(static_cast<unsigned char>(bytes[1])) << 8) |
                             static_cast<unsigned char>(bytes[2]);
  if (length == 0 || bytes.size() != 3 + length + kKey + kSecret) {
    return std::nullopt;
  }
  static constexpr char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  std::string secret;
  unsigned buffer = 0;
  int bits = 0;
  for (const char c : bytes.substr(3 + length + kKey)) {
    buffer = (buffer << 8) | static_cast<unsigned char>(c);
    bits += 8;
    while (bits >= 6) {
      bits -= 6;
      secret.push_back(kAlphabet[(buffer >> bits) & 0x3F]);
    }
  }
  if (bits > 0) {
    secret.push_back(kAlphabet[(buffer << (6 - bits)) & 0x3F]);
  }
  return TokenContents{bytes.substr(3, length), secret};
}

}  // namespace orvanta::doctor
