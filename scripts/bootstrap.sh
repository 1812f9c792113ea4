#!/usr/bin/env bash
# Installs every Debian package that the build, the tests, the tools and the benchmarks need, and
# the npm packages of the sandbox console's browser test.
# Idempotent: when everything is present it changes nothing and needs no network.
set -euo pipefail

packages=(
  build-essential cmake pkg-config git ccache
  libgtest-dev libgmock-dev libbenchmark-dev
  nlohmann-json3-dev libplist-dev libplist-utils libcurl4-openssl-dev libsqlite3-dev
  libmicrohttpd-dev openssl
  clang libclang-rt-14-dev clang-format
  # Optional desktop adapters and their tests: GIO (network monitor, D-Bus), GTK 4 / WebKitGTK
  # on a private X server, the Objective-C runtime for delegate interception
  libglib2.0-dev dbus libgtk-4-dev libwebkitgtk-6.0-dev xvfb xauth gobjc++-12
  # The sandbox console's browser test
  nodejs npm chromium
)

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
  echo "bootstrap: all packages present"
else
  sudo=""
  if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
  fi
  echo "bootstrap: installing ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
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
