#!/usr/bin/env bash
# Installs what the demo needs, builds the demo host, orvanta-sandbox and orvanta-distributor (no
# tests, no benchmarks) and runs the demo host embedding the kit. Arguments go to the demo host.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/scripts/bootstrap.sh" demo
# ccache, when present, may reuse objects built with precompiled headers.
export CCACHE_SLOPPINESS="pch_defines,time_macros,include_file_mtime,include_file_ctime"
build="$root/build/main"
# A first configuration leaves out the tests and benchmarks (their packages come with the test
# command, which turns them on in the same folder); a folder configured before keeps its choice.
first=()
if [ ! -f "$build/CMakeCache.txt" ]; then
  first=(-DORVANTA_BUILD_TESTS=OFF -DORVANTA_BUILD_BENCH=OFF)
fi
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVANTA_WERROR=ON \
  "${first[@]}" >/dev/null
cmake --build "$build" -j "$(nproc)" --target demo
exec "$build/examples/demo/orvanta-demo" --data-dir "$root/build/demo-data" "$@"
