// The C interface's start-up, life cycle, analytics, health and user data functions: each one
// the C++ call of the same name, guarded.

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "c_api/parameters.hpp"
#include "c_api/status.hpp"
#include "entry/platform_installation.hpp"
#include "orvanta/host_lifecycle.hpp"
#include "orvanta/linux_platform.hpp"
#include "orvanta/orvanta.h"
#include "orvanta/orvanta.hpp"
#include "orvanta/platform.hpp"
#include "orvanta/service_urls.hpp"

using orvanta::c_api::fail;
using orvanta::c_api::guarded;
using orvanta::c_api::kMaxName;
using orvanta::c_api::text;

struct orvanta_platform_options {
  orvanta::LinuxPlatformOptions options;
};

namespace orvanta::c_api {
namespace {

constexpr std::size_t kMaxLanguages = 64;

orvanta_platform_options& options(orvanta_platform_options* options) {
  if (options == nullptr) {
    fail(ORVANTA_ERROR_INVALID_ARGUMENT, "options is NULL");
  }
  return *options;
}

/// `value` as a path or name, none for NULL.
std::optional<std::string> optionalName(const char* value, const char* what) {
  if (value == nullptr) {
    return std::nullopt;
  }
  return std::string(text(value, what, kMaxName));
}

/// The profile field's accessors.
struct UserField {
  std::optional<std::string> (OrvantaUserData::*get)() const;
  void (OrvantaUserData::*set)(std::optional<std::string>);
};

UserField userField(const orvanta_user_field& field) {
  switch (const int number = enumValue(field)) {
    case ORVANTA_USER_EMAIL:
      return {&OrvantaUserData::email, &OrvantaUserData::setEmail};
    case ORVANTA_USER_PHONE:
      return {&OrvantaUserData::phone, &OrvantaUserData::setPhone};
    case ORVANTA_USER_FIRST_NAME:
      return {&OrvantaUserData::firstName, &OrvantaUserData::setFirstName};
    case ORVANTA_USER_LAST_NAME:
      return {&OrvantaUserData::lastName, &OrvantaUserData::setLastName};
    default:
      fail(ORVANTA_ERROR_INVALID_ARGUMENT, "no user field " + std::to_string(number));
  }
}

const ValueMap& valuesOf(const orvanta_parameters* parameters) {
  static const ValueMap kNone;
  return parameters != nullptr ? parameters->values : kNone;
}

}  // namespace
}  // namespace orvanta::c_api

extern "C" {

const char* orvanta_version(void) {
  return ORVANTA_VERSION_STRING;
}

int orvanta_abi_version(void) {
  return ORVANTA_C_ABI_VERSION;
}

// --- Platform options -----------------------------------------------------------------------

orvanta_platform_options* orvanta_platform_options_new(void) {
  orvanta_platform_options* options = nullptr;
  guarded(__func__, [&] { options = new orvanta_platform_options(); });
  return options;
}

void orvanta_platform_options_free(orvanta_platform_options* options) {
  delete options;
}

orvanta_status orvanta_platform_options_set_application_name(orvanta_platform_options* options,
                                                             const char* name) {
  return guarded(__func__, [&] {
    orvanta::c_api::options(options).options.applicationName =
        orvanta::c_api::optionalName(name, "name").value_or("");
  });
}

orvanta_status orvanta_platform_options_set_bundle_directory(orvanta_platform_options* options,
                                                             const char* path) {
  return guarded(__func__, [&] {
    orvanta::c_api::options(options).options.bundleDirectory =
        orvanta::c_api::optionalName(path, "path");
  });
}

orvanta_status orvanta_platform_options_set_data_directory(orvanta_platform_options* options,
                                                           const char* path) {
  return guarded(__func__, [&] {
    orvanta::c_api::options(options).options.dataDirectory =
        orvanta::c_api::optionalName(path, "path");
  });
}

orvanta_status orvanta_platform_options_set_preferences_file(orvanta_platform_options* options,
                                                             const char* path) {
  return guarded(__func__, [&] {
    orvanta::c_api::options(options).options.preferencesFile =
        orvanta::c_api::optionalName(path, "path");
  });
}

orvanta_status orvanta_platform_options_set_kit_resources_directory(
    orvanta_platform_options* options, const char* path) {
  return guarded(__func__, [&] {
    orvanta::c_api::options(options).options.kitResourcesDirectory =
        orvanta::c_api::optionalName(path, "path");
  });
}

orvanta_status orvanta_platform_options_set_application_id(orvanta_platform_options* options,
                                                           const char* application_id) {
  return guarded(__func__, [&] {
    orvanta::c_api::options(options).options.applicationId =
        orvanta::c_api::optionalName(application_id, "application_id").value_or("");
  });
}

orvanta_status orvanta_platform_options_set_push_distributor(orvanta_platform_options* options,
                                                             const char* distributor) {
  return guarded(__func__, [&] {
    orvanta::c_api::options(options).options.pushDistributor =
        orvanta::c_api::optionalName(distributor, "distributor").value_or("");
  });
}

orvanta_status orvanta_platform_options_set_vapid_public_key(orvanta_platform_options* options,
                                                             const char* key) {
  return guarded(__func__, [&] {
    orvanta::c_api::options(options).options.vapidPublicKey =
        orvanta::c_api::optionalName(key, "key").value_or("");
  });
}

orvanta_status orvanta_platform_options_set_accept_plain_push_messages(
    orvanta_platform_options* options, bool accept) {
  return guarded(
      __func__, [&] { orvanta::c_api::options(options).options.acceptPlainPushMessages = accept; });
}

orvanta_status orvanta_platform_options_set_desktop_entry(orvanta_platform_options* options,
                                                          const char* desktop_entry) {
  return guarded(__func__, [&] {
    orvanta::c_api::options(options).options.desktopEntry =
        orvanta::c_api::optionalName(desktop_entry, "desktop_entry");
  });
}

orvanta_status orvanta_platform_options_set_resident_notifications(
    orvanta_platform_options* options, bool resident) {
  return guarded(
      __func__, [&] { orvanta::c_api::options(options).options.residentNotifications = resident; });
}

orvanta_status orvanta_platform_options_add_language(orvanta_platform_options* options,
                                                     const char* language) {
  return guarded(__func__, [&] {
    auto& languages = orvanta::c_api::options(options).options.languages;
    std::string name(text(language, "language", kMaxName));
    if (languages.size() >= orvanta::c_api::kMaxLanguages) {
      fail(ORVANTA_ERROR_INVALID_ARGUMENT,
           "more than " + std::to_string(orvanta::c_api::kMaxLanguages) + " languages");
    }
    languages.push_back(std::move(name));
  });
}

orvanta_status orvanta_platform_options_set_event_durability(orvanta_platform_options* options,
                                                             orvanta_durability durability) {
  return guarded(__func__, [&] {
    auto& chosen = orvanta::c_api::options(options).options.eventDurability;
    switch (const int number = orvanta::c_api::enumValue(durability)) {
      case ORVANTA_DURABILITY_NORMAL:
        chosen = orvanta::port::Durability::normal;
        return;
      case ORVANTA_DURABILITY_FULL:
        chosen = orvanta::port::Durability::full;
        return;
      default:
        fail(ORVANTA_ERROR_INVALID_ARGUMENT, "no durability " + std::to_string(number));
    }
  });
}

orvanta_status orvanta_install_linux_platform(const orvanta_platform_options* options) {
  return guarded(__func__, [&] {
    auto platform = orvanta::makeLinuxPlatform(
        options != nullptr ? options->options : orvanta::LinuxPlatformOptions{});
    if (!orvanta::installPlatform(std::move(platform))) {
      fail(ORVANTA_ERROR_TOO_LATE, "the kit is already in use (" +
                                       orvanta::detail::firstUseDescription() +
                                       "): install the platform before any other call into it");
    }
  });
}

// --- Services and configuration -------------------------------------------------------------

orvanta_status orvanta_set_service_base_urls(const char* push_url, const char* api_url) {
  return guarded(__func__, [&] {
    const std::string push(text(push_url, "push_url", kMaxName));
    const std::string api(text(api_url, "api_url", kMaxName));
    for (const auto& [url, what] : {std::pair{&push, "push_url"}, std::pair{&api, "api_url"}}) {
      if (!orvanta::isAcceptableServiceBaseURL(*url)) {
        fail(ORVANTA_ERROR_REFUSED,
             std::string(what) + " must end in \"/\" and use https, or http on a loopback host");
      }
    }
    if (!orvanta::setServiceBaseURLs(push, api)) {
      fail(ORVANTA_ERROR_REFUSED, "the service URLs were refused");
    }
  });
}

void orvanta_reset_service_base_urls(void) {
  guarded(__func__, [] { orvanta::resetServiceBaseURLs(); });
}

orvanta_status orvanta_configure(bool logging_enabled) {
  return guarded(__func__, [&] {
    auto configuration = orvanta::OrvantaConfiguration::defaultConfiguration();
    configuration->setIsLoggingEnabled(logging_enabled);
    orvanta::Orvanta::configure(std::move(configuration));
  });
}

void orvanta_set_logging_enabled(bool enabled) {
  guarded(__func__,
          [&] { orvanta::Orvanta::shared().configuration()->setIsLoggingEnabled(enabled); });
}

// --- Life cycle -----------------------------------------------------------------------------

orvanta_status orvanta_post_lifecycle_event(orvanta_lifecycle_event event) {
  return guarded(__func__, [&] {
    using orvanta::port::LifecycleEvent;
    switch (const int number = orvanta::c_api::enumValue(event)) {
      case ORVANTA_DID_FINISH_LAUNCHING:
        return orvanta::postLifecycleEvent(LifecycleEvent::didFinishLaunching);
      case ORVANTA_WILL_ENTER_FOREGROUND:
        return orvanta::postLifecycleEvent(LifecycleEvent::willEnterForeground);
      case ORVANTA_DID_ENTER_BACKGROUND:
        return orvanta::postLifecycleEvent(LifecycleEvent::didEnterBackground);
      default:
        fail(ORVANTA_ERROR_INVALID_ARGUMENT, "no life-cycle event " + std::to_string(number));
    }
  });
}

void orvanta_post_will_suspend(void) {
  guarded(__func__, [] { orvanta::postWillSuspend(); });
}

// --- Analytics and health -------------------------------------------------------------------

orvanta_status orvanta_analytics_track_event(const char* name,
                                             const orvanta_parameters* parameters) {
  return guarded(__func__, [&] {
    orvanta::Orvanta::analytics().trackEvent(std::string(text(name, "name")),
                                             orvanta::c_api::valuesOf(parameters));
  });
}

size_t orvanta_flush(uint32_t timeout_ms) {
  std::size_t left = 0;
  guarded(__func__, [&] { left = orvanta::Orvanta::flush(std::chrono::milliseconds(timeout_ms)); });
  return left;
}

orvanta_status orvanta_health_json(char** json) {
  return guarded(__func__, [&] {
    if (json == nullptr) {
      fail(ORVANTA_ERROR_INVALID_ARGUMENT, "json is NULL");
    }
    *json = orvanta::c_api::ownedCopy(orvanta::Orvanta::health().json());
  });
}

// --- User data ------------------------------------------------------------------------------

orvanta_status orvanta_user_set(orvanta_user_field field, const char* value) {
  return guarded(__func__, [&] {
    const auto accessors = orvanta::c_api::userField(field);
    std::optional<std::string> given;
    if (value != nullptr) {
      given.emplace(text(value, "value"));
    }
    (orvanta::Orvanta::user().*accessors.set)(std::move(given));
  });
}

orvanta_status orvanta_user_get(orvanta_user_field field, char** value) {
  return guarded(__func__, [&] {
    if (value == nullptr) {
      fail(ORVANTA_ERROR_INVALID_ARGUMENT, "value is NULL");
    }
    const auto accessors = orvanta::c_api::userField(field);
    const auto current = (orvanta::Orvanta::user().*accessors.get)();
    *value = current ? orvanta::c_api::ownedCopy(*current) : nullptr;
  });
}

orvanta_status orvanta_user_set_custom_parameters(const orvanta_parameters* parameters) {
  return guarded(__func__, [&] {
    if (parameters == nullptr) {
      fail(ORVANTA_ERROR_INVALID_ARGUMENT, "parameters is NULL");
    }
    orvanta::Orvanta::user().setCustomParameters(parameters->values);
  });
}

orvanta_status orvanta_user_custom_parameters(orvanta_parameters** parameters) {
  return guarded(__func__, [&] {
    if (parameters == nullptr) {
      fail(ORVANTA_ERROR_INVALID_ARGUMENT, "parameters is NULL");
    }
    *parameters = orvanta::c_api::newParameters(orvanta::Orvanta::user().customParameters());
  });
}

orvanta_status orvanta_user_save(void) {
  return guarded(__func__, [] { orvanta::Orvanta::user().saveUser(); });
}

orvanta_status orvanta_user_remove(void) {
  return guarded(__func__, [] { orvanta::Orvanta::user().removeUser(); });
}

}  // extern "C"
