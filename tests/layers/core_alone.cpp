// Links the portable core on its own, without libcurl, the Linux adapters or the entry layer:
// the build fails if any core object needs one of them. Running it checks nothing more.
#include "core/uri.hpp"

int main() {
  return orvanta::parseUriReference("https://example.com/").has_value() ? 0 : 1;
}
