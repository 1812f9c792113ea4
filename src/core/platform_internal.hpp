#pragma once

#include <memory>

#include "orvanta/platform.hpp"

namespace orvanta::detail {

/// The platform installed now, without building the default when there is none (tests use it to
/// put back what they found).
std::shared_ptr<Platform> installedPlatformOrNull();

}  // namespace orvanta::detail
