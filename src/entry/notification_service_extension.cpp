#include "entry/components.hpp"
#include "entry/platform_installation.hpp"
#include "orvanta/orvanta_notification_service_extension.hpp"

namespace orvanta {

OrvantaNotificationServiceExtension::OrvantaNotificationServiceExtension()
    : impl_(detail::makeNotificationServiceExtension(detail::processContext())) {}

}  // namespace orvanta
