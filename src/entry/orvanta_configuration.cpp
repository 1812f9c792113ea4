#include "orvanta/orvanta_configuration.hpp"

#include "core/logging_switch.hpp"
#include "entry/platform_installation.hpp"

namespace orvanta {

std::shared_ptr<OrvantaConfiguration> OrvantaConfiguration::defaultConfiguration() {
  auto configuration = std::make_shared<OrvantaConfiguration>();
  configuration->setIsLoggingEnabled(false);
  return configuration;
}

std::string OrvantaConfiguration::appId() const {
  return detail::processContext()->configFile()->appId();
}

std::string OrvantaConfiguration::token() const {
  return detail::processContext()->configFile()->token();
}

std::string OrvantaConfiguration::secret() const {
  return detail::processContext()->configFile()->secret();
}

std::string OrvantaConfiguration::eventsToken() const {
  return detail::processContext()->configFile()->eventsToken();
}

bool OrvantaConfiguration::isLoggingEnabled() const {
  return detail::isLoggingEnabled(*detail::processContext()->platform()->preferences);
}

void OrvantaConfiguration::setIsLoggingEnabled(bool enabled) {
  loggingChoice_.store(enabled ? kOn : kOff);
  detail::setLoggingEnabled(*detail::processContext()->platform()->preferences, enabled);
}

}  // namespace orvanta
