#include "orvanta/orvanta_configuration.hpp"

#include "core/logging_switch.hpp"
#include "entry/platform_installation.hpp"

namespace orvanta {
namespace {

std::shared_ptr<detail::KitContext> context() {
  detail::noteEntry("OrvantaConfiguration");
  return detail::processContext();
}

}  // namespace

std::shared_ptr<OrvantaConfiguration> OrvantaConfiguration::defaultConfiguration() {
  auto configuration = std::make_shared<OrvantaConfiguration>();
  configuration->setIsLoggingEnabled(false);
  return configuration;
}

std::string OrvantaConfiguration::appId() const {
  return context()->configFile()->appId();
}

std::string OrvantaConfiguration::token() const {
  return context()->configFile()->token();
}

std::string OrvantaConfiguration::secret() const {
  return context()->configFile()->secret();
}

std::string OrvantaConfiguration::eventsToken() const {
  return context()->configFile()->eventsToken();
}

bool OrvantaConfiguration::isLoggingEnabled() const {
  return detail::isLoggingEnabled(*context()->platform()->preferences);
}

void OrvantaConfiguration::setIsLoggingEnabled(bool enabled) {
  loggingChoice_.store(enabled ? kOn : kOff);
  detail::setLoggingEnabled(*context()->platform()->preferences, enabled);
}

}  // namespace orvanta
