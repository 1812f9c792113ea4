#include "orvanta/orvanta_configuration.hpp"

#include "core/config_file_helper.hpp"
#include "core/logging_switch.hpp"

namespace orvanta {

std::shared_ptr<OrvantaConfiguration> OrvantaConfiguration::defaultConfiguration() {
  auto configuration = std::make_shared<OrvantaConfiguration>();
  configuration->setIsLoggingEnabled(false);
  return configuration;
}

std::string OrvantaConfiguration::appId() const {
  return OrvantaConfigFileHelper::appId();
}

std::string OrvantaConfiguration::token() const {
  return OrvantaConfigFileHelper::token();
}

std::string OrvantaConfiguration::secret() const {
  return OrvantaConfigFileHelper::secret();
}

std::string OrvantaConfiguration::eventsToken() const {
  return OrvantaConfigFileHelper::eventsToken();
}

bool OrvantaConfiguration::isLoggingEnabled() const {
  return detail::isLoggingEnabled();
}

void OrvantaConfiguration::setIsLoggingEnabled(bool enabled) {
  loggingChoice_.store(enabled ? kOn : kOff);
  detail::setLoggingEnabled(enabled);
}

}  // namespace orvanta
