#!/usr/bin/env bash
# Builds everything and runs the main job: the demo host embedding the kit.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/scripts/bootstrap.sh"
# ccache may reuse objects built with precompiled headers.
export CCACHE_SLOPPINESS="pch_defines,time_macros,include_file_mtime,include_file_ctime"
cmake -S "$root" -B "$root/build/main" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVANTA_WERROR=ON \
  -DORVANTA_BUILD_BENCH=ON >/dev/null
cmake --build "$root/build/main" -j "$(nproc)"
exec "$root/build/main/examples/demo/orvanta-demo" --data-dir "$root/build/demo-data" "$@"
