#!/usr/bin/env bash
# Installs the Debian packages (and npm packages) that a command of this repository needs.
#
#   scripts/bootstrap.sh demo   what the demo needs: the compiler, CMake, ccache, and the
#                               libraries of the kit, orvanta-sandbox and orvanta-distributor
#   scripts/bootstrap.sh        everything the build, the tests, the tools and the benchmarks need
#                               (the demo's packages, GoogleTest, Google Benchmark, clang, GTK 4,
#                               WebKitGTK, Xvfb, gobjc++, Chromium, abi-dumper and
#                               abi-compliance-checker, pytest), and the npm packages of the
#                               sandbox console's browser test and of the web-push sender test
#
# Idempotent: when everything is present it changes nothing and needs no network.
set -euo pipefail

profile="${1:-all}"

# The kit (libcurl, SQLite, libplist, nlohmann/json, GIO for desktop notifications, libcrypto for
# encrypted pushes), the sandbox (libmicrohttpd, libcrypto) and the distributor (GIO, libcrypto);
# dbus for the demo's private session bus.
demo_packages=(
  build-essential cmake pkg-config git ccache
  nlohmann-json3-dev libplist-dev libcurl4-openssl-dev libsqlite3-dev libmicrohttpd-dev
  libglib2.0-dev libssl-dev dbus
)
test_packages=(
  libgtest-dev libgmock-dev libbenchmark-dev libplist-utils openssl
  clang libclang-rt-14-dev clang-format
  # Optional desktop adapters and their tests: GTK 4 / WebKitGTK on a private X server, the
  # Objective-C runtime for delegate interception
  libgtk-4-dev libwebkitgtk-6.0-dev xvfb xauth gobjc++-12
  # The sandbox console's browser test, and the web-push sender test (node)
  nodejs npm chromium
  # The C ABI's check against the last release; the Python package, its install and its tests
  abi-dumper abi-compliance-checker python3 python3-pytest python3-setuptools python3-pip
)

case "$profile" in
  demo) packages=("${demo_packages[@]}") ;;
  all) packages=("${demo_packages[@]}" "${test_packages[@]}") ;;
  *)
    echo "usage: scripts/bootstrap.sh [demo]" >&2
    exit 2
    ;;
esac

missing=()
for p in "${packages[@]}"; do
  # A nodejs package that bundles npm (as NodeSource's does) conflicts with Debian's npm.
  if [ "$p" = npm ] && command -v npm >/dev/null 2>&1; then
    continue
  fi
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "bootstrap: all packages present ($profile)"
else
  sudo=""
  if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
  fi
  echo "bootstrap: installing ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

if [ "$profile" = demo ]; then
  exit 0
fi

# The npm packages of the sandbox console's browser test, exactly as locked (no browser is
# downloaded: the test drives Debian's chromium). Skipped when the locked versions are in place.
browser_tests="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/tests/sandbox/browser"
if ! (cd "$browser_tests" && npm ls --omit=dev --depth=0 >/dev/null 2>&1); then
  echo "bootstrap: installing the browser test's npm packages"
  (cd "$browser_tests" && npm ci --omit=dev --no-audit --no-fund)
else
  echo "bootstrap: browser test npm packages present"
fi

# The web-push sender test's npm package (tests/desktop/webpush), exactly as locked.
webpush_sender="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/tests/desktop/webpush"
if ! (cd "$webpush_sender" && npm ls --omit=dev --depth=0 >/dev/null 2>&1); then
  echo "bootstrap: installing the web-push test's npm packages"
  (cd "$webpush_sender" && npm ci --omit=dev --no-audit --no-fund)
else
  echo "bootstrap: web-push test npm packages present"
fi
