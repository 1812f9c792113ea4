#include "orvanta/orvanta.hpp"

#include <utility>

#include "analytics/orvanta_analytics_impl.hpp"
#include "core/config_file_helper.hpp"
#include "core/logger.hpp"
#include "core/logging_switch.hpp"
#include "core/orvanta_components.hpp"

namespace orvanta {

Orvanta::Orvanta() : components_(std::make_unique<Components>()) {
  // Component steps, in this order (each module adds its own):
  //   1. push facade
  //   2. user-data facade
  //   3. analytics stack, observing did-enter-background
  //   4. in-app push handler, observing will-enter-foreground and did-finish-launching
  components_->orvantaPush = std::make_unique<OrvantaPush>();
  // 3. Event database "Orvanta.sqlite" in the documents directory (none when it can't be opened),
  //    event queue, and the analytics facade observing did-enter-background.
  components_->orvantaAnalytics = detail::makeOrvantaAnalytics();

  // Last step: the default configuration, which switches logging off.
  configuration_ = OrvantaConfiguration::defaultConfiguration();
}

Orvanta::~Orvanta() = default;

Orvanta& Orvanta::shared() {
  // Never destroyed: components may still be in use by threads running at process exit.
  static Orvanta* instance = new Orvanta();
  return *instance;
}

void Orvanta::configure(std::shared_ptr<OrvantaConfiguration> configuration) {
  try {
    Orvanta& orvanta = shared();
    if (!configuration) {
      configuration = std::make_shared<OrvantaConfiguration>();
    }
    // Creating the shared instance above switched logging off; the host's own choice on the
    // object it installs wins.
    if (int choice = configuration->loggingChoice_.load(); choice != OrvantaConfiguration::kUnset) {
      detail::setLoggingEnabled(choice == OrvantaConfiguration::kOn);
    }
    {
      std::lock_guard lock(orvanta.configurationMutex_);
      orvanta.configuration_ = std::move(configuration);
    }
    OrvantaLogger::info("Configuration with token: " + OrvantaConfigFileHelper::token() +
                        ", secret: " + OrvantaConfigFileHelper::secret() +
                        ", appId: " + OrvantaConfigFileHelper::appId() +
                        " and eventsToken: " + OrvantaConfigFileHelper::eventsToken());
  } catch (...) {  // NOLINT(bugprone-empty-catch): nothing reaches the host
  }
}

OrvantaPush& Orvanta::push() {
  return *shared().components_->orvantaPush;
}

OrvantaAnalytics& Orvanta::analytics() {
  return *shared().components_->orvantaAnalytics;
}

std::shared_ptr<OrvantaConfiguration> Orvanta::configuration() const {
  std::lock_guard lock(configurationMutex_);
  return configuration_;
}

}  // namespace orvanta
