#pragma once

// The Orvanta kit's public interface.

#include "orvanta/error.hpp"
#include "orvanta/export.hpp"
#include "orvanta/host_lifecycle.hpp"
#include "orvanta/linux_platform.hpp"
#include "orvanta/orvanta.hpp"
#include "orvanta/orvanta_analytics.hpp"
#include "orvanta/orvanta_configuration.hpp"
#include "orvanta/orvanta_in_app_interaction.hpp"
#include "orvanta/orvanta_notification_service_extension.hpp"
#include "orvanta/orvanta_push.hpp"
#include "orvanta/orvanta_push_interception.hpp"
#include "orvanta/orvanta_user_data.hpp"
#include "orvanta/platform.hpp"
#include "orvanta/service_urls.hpp"
