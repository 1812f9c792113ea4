#pragma once

#include <memory>

#include "entry/kit_context.hpp"
#include "orvanta/platform.hpp"

namespace orvanta::detail {

/// The platform installed now, without building the default when there is none (tests use it to
/// put back what they found).
std::shared_ptr<Platform> installedPlatformOrNull();

/// The context of the platform in force: the process's shared stores and device authorization
/// (`Store::keychain()`, `AuthData::shared()`...) and what the shared `Orvanta` is built from.
/// Made on first use (over the Linux default when no platform was installed) and again after each
/// `installPlatform`. Its requests read their credentials from the shared instance's
/// configuration. Any thread.
std::shared_ptr<KitContext> processContext();

/// Credentials read from `Orvanta::shared().configuration()` on every request, so that the first
/// request creates the kit, as the first touch of any part of it does.
std::shared_ptr<const CredentialsSource> sharedConfigurationCredentials();

}  // namespace orvanta::detail
