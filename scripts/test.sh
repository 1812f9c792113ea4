#!/usr/bin/env bash
# Installs every package the tests need (scripts/bootstrap.sh), then builds and runs the whole test
# suite:
#   1. everything (kit, tools, demo, benchmarks) with warnings as errors; unit, integration,
#      sandbox, crash and package tests;
#   2. the suite again under AddressSanitizer + UndefinedBehaviorSanitizer, with the fuzz
#      corpora and regressions replayed;
#   3. the concurrency tests under ThreadSanitizer.
# Warnings are errors in the main build; the sanitizer builds keep them as warnings, because g++
# reports false "maybe uninitialized" warnings once sanitizer instrumentation is on.
# Each stage builds in its own folder under build/. Set ORVANTA_TEST_STAGES to run a subset,
# e.g. ORVANTA_TEST_STAGES="main" or "main asan".
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/scripts/bootstrap.sh"
# ccache may reuse objects built with precompiled headers.
export CCACHE_SLOPPINESS="pch_defines,time_macros,include_file_mtime,include_file_ctime"

stages="${ORVANTA_TEST_STAGES:-main asan tsan}"
jobs="$(nproc)"
export CTEST_OUTPUT_ON_FAILURE=1
# Sanitizer reports end the test that caused them and say why.
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1"

total_passed=0
total_failed=0
summary=()

run_ctest() {
  local name="$1"
  shift
  local log
  log="$(mktemp)"
  local status=0
  ctest "$@" -j "$jobs" --timeout 300 2>&1 | tee "$log" || status=$?
  local line passed failed
  line="$(grep -E '^[0-9]+% tests passed, [0-9]+ tests failed out of [0-9]+' "$log" | tail -n 1 || true)"
  if [ -n "$line" ]; then
    failed="$(sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\1/' <<<"$line")"
    passed="$(( $(sed -E 's/.* out of ([0-9]+).*/\1/' <<<"$line") - failed ))"
    total_passed=$((total_passed + passed))
    total_failed=$((total_failed + failed))
    summary+=("$name: $passed passed, $failed failed")
    # The names of the failed tests, so that the tail of a long run says which ones broke.
    while IFS= read -r failure; do
      summary+=("  $name failed: $failure")
    done < <(sed -n '/The following tests FAILED:/,$p' "$log" | grep -E '^[[:space:]]+[0-9]+ - ' || true)
  else
    summary+=("$name: no result (ctest exit $status)")
    total_failed=$((total_failed + 1))
  fi
  rm -f "$log"
  return "$status"
}

configure() {
  local dir="$1"
  shift
  cmake -S "$root" -B "$root/build/$dir" "$@" >/dev/null
}

# The sanitizer builds keep line tables only (-g1): their reports name every frame's file and line,
# and a build without full debug information compiles about a fifth faster.
sanitized="-O1 -g1"

status=0
for stage in $stages; do
  case "$stage" in
    main)
      echo "== main build: everything, warnings as errors"
      configure main -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVANTA_WERROR=ON -DORVANTA_BUILD_TESTS=ON \
        -DORVANTA_BUILD_BENCH=ON
      cmake --build "$root/build/main" -j "$jobs"
      run_ctest main --test-dir "$root/build/main" || status=1
      ;;
    asan)
      echo "== AddressSanitizer + UndefinedBehaviorSanitizer"
      configure asan -DORVANTA_WERROR=OFF -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="$sanitized" \
        -DORVANTA_SANITIZE=address,undefined -DORVANTA_BUILD_FUZZ=ON \
        -DORVANTA_BUILD_EXAMPLES=OFF
      cmake --build "$root/build/asan" -j "$jobs"
      run_ctest asan --test-dir "$root/build/asan" -LE "package|crash" || status=1
      ;;
    tsan)
      echo "== ThreadSanitizer: concurrency tests"
      configure tsan -DORVANTA_WERROR=OFF -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="$sanitized" \
        -DORVANTA_SANITIZE=thread -DORVANTA_BUILD_EXAMPLES=OFF
      cmake --build "$root/build/tsan" -j "$jobs" --target orvanta_concurrency_tests
      run_ctest tsan --test-dir "$root/build/tsan" -L concurrency || status=1
      ;;
    *)
      echo "unknown stage: $stage" >&2
      exit 2
      ;;
  esac
done

echo
printf '%s\n' "${summary[@]}"
echo "total: $total_passed passed, $total_failed failed"
exit "$status"
