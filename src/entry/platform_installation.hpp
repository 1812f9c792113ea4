#pragma once

#include <memory>
#include <string>

#include "entry/kit_context.hpp"
#include "orvanta/platform.hpp"

namespace orvanta::detail {

/// The platform installed now, without building the default when there is none (tests use it to
/// put back what they found).
std::shared_ptr<Platform> installedPlatformOrNull();

/// The context of the platform in force: the stores and device authorization that the entry's
/// public calls use, and what the shared `Orvanta` is built from. Made on first use (over the
/// default platform when none was installed) and again after each `installPlatform`. Its requests
/// read their credentials from the shared instance's configuration. Any thread.
std::shared_ptr<KitContext> processContext();

/// Remembers `entry` (a public call, such as "Orvanta::analytics()") as the kit's first use when
/// none was remembered before: what `installPlatform` names when it comes too late. Any thread.
void noteEntry(const char* entry) noexcept;

/// What used the kit first, as `installPlatform` names it when it comes too late; empty while a
/// platform may still be installed. Any thread.
std::string firstUseDescription();

/// The kit is in use from now on: its entry point is being built over the process context, so
/// `installPlatform` can no longer change the platform. Any thread.
void markInUse();

/// Installs `platform` even when the kit is in use, and forgets that use: for tests, which stand
/// for a fresh process or a relaunch. Components built earlier keep the platform they were built
/// on.
void reinstallPlatform(std::shared_ptr<Platform> platform);

/// Credentials read from `Orvanta::shared().configuration()` on every request, so that the first
/// request creates the kit, as the first touch of any part of it does.
std::shared_ptr<const CredentialsSource> sharedConfigurationCredentials();

}  // namespace orvanta::detail
