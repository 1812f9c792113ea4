#!/usr/bin/env bash
# Fuzzes one target under libFuzzer (clang, AddressSanitizer + UndefinedBehaviorSanitizer) for a
# given time:
#   scripts/fuzz.sh <target> [seconds]     e.g. scripts/fuzz.sh fuzz_payload_json 60
#   scripts/fuzz.sh --list                 the targets
# The build lives in build/fuzz-clang. The session works on a copy of fuzz/corpus/<target>, so the
# checked-in seeds stay small; an input that crashes, leaks or hangs is copied to
# fuzz/regressions/<target>/, where every test run replays it from then on.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$root/build/fuzz-clang"
targets=(fuzz_payload_json fuzz_payload_userinfo fuzz_device_record fuzz_event_row)

if [ "${1:-}" = "--list" ]; then
  printf '%s\n' "${targets[@]}"
  exit 0
fi
if [ $# -lt 1 ]; then
  echo "usage: $0 <target> [seconds]   (targets: ${targets[*]})" >&2
  exit 2
fi
target="$1"
seconds="${2:-60}"
if [ ! -d "$root/fuzz/corpus/$target" ]; then
  echo "unknown target: $target (targets: ${targets[*]})" >&2
  exit 2
fi

"$root/scripts/bootstrap.sh" >/dev/null

# Coverage instrumentation for the whole kit (fuzzer-no-link); the targets link libFuzzer itself.
CC=clang CXX=clang++ cmake -S "$root" -B "$build" \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_FLAGS="-fsanitize=fuzzer-no-link" \
  -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link" \
  -DORVANTA_SANITIZE=address,undefined \
  -DORVANTA_BUILD_FUZZ=ON -DORVANTA_FUZZ_ENGINE=libfuzzer \
  -DORVANTA_BUILD_TESTS=OFF -DORVANTA_BUILD_EXAMPLES=OFF -DORVANTA_BUILD_TOOLS=OFF \
  -DORVANTA_BUILD_BENCH=OFF -DORVANTA_INSTALL=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target "$target"

work="$(mktemp -d "${TMPDIR:-/tmp}/orvanta-fuzz-$target.XXXXXX")"
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/corpus" "$work/artifacts"
cp -R "$root/fuzz/corpus/$target/." "$work/corpus/"

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
status=0
"$build/fuzz/$target" "$work/corpus" "$root/fuzz/regressions/$target" \
  -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=65536 \
  -print_final_stats=1 -artifact_prefix="$work/artifacts/" || status=$?

found=0
for artifact in "$work"/artifacts/*; do
  [ -e "$artifact" ] || continue
  cp "$artifact" "$root/fuzz/regressions/$target/"
  echo "fuzz: kept $(basename "$artifact") in fuzz/regressions/$target/"
  found=1
done
if [ "$status" -ne 0 ] || [ "$found" -ne 0 ]; then
  echo "fuzz: $target failed (exit $status)" >&2
  exit 1
fi
echo "fuzz: $target ran clean for ${seconds}s"
