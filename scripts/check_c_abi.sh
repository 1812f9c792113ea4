#!/usr/bin/env bash
# Checks that the C ABI (include/orvanta/orvanta.h) is still compatible with the last release.
#
# The C interface's objects, linked alone into a library with debug information
# (liborvanta_c_abi.so, target orvanta_c_abi_probe: exactly the orvanta_* functions that
# liborvanta.so exports, with the types they take), are dumped with abi-dumper and compared by
# abi-compliance-checker with the dump of the newest release tag (v*), or, before the first
# release, with the baseline kept in abi/orvanta_c.dump. Dumping the probe takes some 15 s where
# the whole liborvanta.so would take minutes. The handles' own structures are opaque in C, so
# their insides are not compared.
#
#   scripts/check_c_abi.sh build/main/tests/c/liborvanta_c_abi.so
#   scripts/check_c_abi.sh --update build/main/tests/c/liborvanta_c_abi.so   # write the baseline
#
# Exit status 0: compatible (or a new ABI version, whose soname differs); 1: not compatible, the
# report (abi_compat_report.html beside the probe) says why; 77: abi-dumper or
# abi-compliance-checker is not installed, or the probe was built without debug information.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
update=0
if [ "${1:-}" = "--update" ]; then
  update=1
  shift
fi
probe="$(realpath "${1:?usage: check_c_abi.sh [--update] PATH/liborvanta_c_abi.so}")"
baseline="$root/abi/orvanta_c.dump"

for tool in abi-dumper abi-compliance-checker; do
  if ! command -v "$tool" >/dev/null 2>&1; then
    echo "check_c_abi: $tool is not installed (Debian package $tool; scripts/bootstrap.sh installs it)"
    exit 77
  fi
done

if ! readelf -S "$probe" 2>/dev/null | grep -q '\.debug_info'; then
  echo "check_c_abi: $probe has no debug information (a build without -g): nothing to compare"
  exit 77
fi

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
version="$(sed -n 's/^#define ORVANTA_C_ABI_VERSION \([0-9][0-9]*\)$/\1/p' "$root/include/orvanta/orvanta.h")"
echo "$root/include/orvanta/orvanta.h" >"$work/headers"
if ! (cd "$work" && abi-dumper "$probe" -o "$work/new.dump" -lver "$version" \
  -public-headers "$work/headers" -sort -quiet >"$work/dumper.log" 2>&1); then
  cat "$work/dumper.log"
  echo "check_c_abi: abi-dumper could not read $probe"
  exit 1
fi

if [ "$update" = 1 ]; then
  cp "$work/new.dump" "$baseline"
  echo "check_c_abi: wrote the baseline of C ABI $version to $baseline"
  exit 0
fi

tag="$(git -C "$root" tag --list 'v*' --sort=-v:refname 2>/dev/null | head -n 1 || true)"
if [ -n "$tag" ]; then
  if ! git -C "$root" show "$tag:abi/orvanta_c.dump" >"$work/old.dump" 2>/dev/null; then
    echo "check_c_abi: release $tag keeps no abi/orvanta_c.dump to compare with"
    exit 1
  fi
  against="release $tag"
else
  cp "$baseline" "$work/old.dump"
  against="the baseline abi/orvanta_c.dump (no release tag yet)"
fi

old_version="$(sed -n "s/^ *'LibraryVersion' => '\([^']*\)',\$/\1/p" "$work/old.dump" | head -n 1)"
if [ "$old_version" != "$version" ]; then
  echo "check_c_abi: C ABI $version is a new ABI (liborvanta.so.$version), $against was $old_version: nothing to compare"
  exit 0
fi

# The handles are opaque to C: what is inside them is the kit's own business.
printf '%s\n' orvanta_parameters orvanta_platform_options orvanta_push_delegate \
  orvanta_registration_observer orvanta_completion >"$work/opaque"
report="$(dirname "$probe")/abi_compat_report.html"
status=0
abi-compliance-checker -l orvanta -old "$work/old.dump" -new "$work/new.dump" -binary \
  -skip-types "$work/opaque" -report-path "$report" >"$work/checker.log" 2>&1 || status=$?
grep -E "compatibility|problems" "$work/checker.log" | sed 's/^/  /' || true
if [ "$status" = 0 ]; then
  echo "check_c_abi: C ABI $version compatible with $against"
elif [ "$status" = 1 ]; then
  echo "check_c_abi: C ABI $version is NOT compatible with $against; see $report"
else
  cat "$work/checker.log"
  echo "check_c_abi: abi-compliance-checker failed (status $status)"
fi
exit "$status"
