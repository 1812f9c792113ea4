// Links the portable core and the platform layer (the Linux adapters, the GIO ones when built)
// without the entry layer: the build fails if a platform object calls into the entry, which hands
// the platform what it needs through the seam instead. Running it checks nothing more.
#include "default_platform.hpp"

int main() {
  auto* seam = &orvanta::detail::makeDefaultPlatform;
  return seam != nullptr ? 0 : 1;
}
