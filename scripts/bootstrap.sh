#!/usr/bin/env bash
# Installs every Debian package that the build, the tests, the tools and the benchmarks need.
# Idempotent: when everything is present it changes nothing and needs no network.
set -euo pipefail

packages=(
  build-essential cmake pkg-config git ccache
  libgtest-dev libgmock-dev libbenchmark-dev
  nlohmann-json3-dev libplist-dev libplist-utils libcurl4-openssl-dev libsqlite3-dev
  libmicrohttpd-dev openssl
  clang libclang-rt-14-dev clang-format
  libglib2.0-dev dbus
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "bootstrap: all packages present"
  exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  sudo="sudo"
fi
echo "bootstrap: installing ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
