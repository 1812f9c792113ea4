#include <utility>

#include "core/guard.hpp"
#include "core/logger.hpp"
#include "push/orvanta_push_impl.hpp"

namespace orvanta {

namespace detail {

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

}  // namespace detail

OrvantaPush::OrvantaPush(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}

OrvantaPush::~OrvantaPush() = default;

void OrvantaPush::didRegisterForRemoteNotifications(const std::vector<std::uint8_t>& deviceToken) {
  detail::shielded([&] { impl_->didRegisterForRemoteNotifications(deviceToken); });
}

OrvantaPush::Impl::Impl(Dependencies dependencies) : dependencies_(std::move(dependencies)) {}

void OrvantaPush::Impl::didRegisterForRemoteNotifications(
    const std::vector<std::uint8_t>& deviceToken) {
  const std::string token = detail::hexString(deviceToken);
  dependencies_.authData->storeDeviceTokenAndRegister(token);
  OrvantaLogger::info("APNs token retrieved: " + token);
}

}  // namespace orvanta
