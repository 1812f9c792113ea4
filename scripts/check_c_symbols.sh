#!/usr/bin/env bash
# Compares what liborvanta.so exports with what it may export:
#   - its C symbols (orvanta_*) must be exactly those of abi/orvanta_c.symbols, each of the same
#     kind (T: a function): one missing or changed breaks every program built against the ABI,
#     and a new one must be added to the list deliberately;
#   - everything else it exports must belong to the C++ interface (namespace orvanta).
#
#   scripts/check_c_symbols.sh build/main/liborvanta.so [abi/orvanta_c.symbols]
#   scripts/check_c_symbols.sh --update build/main/liborvanta.so    # rewrite the list
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
update=0
if [ "${1:-}" = "--update" ]; then
  update=1
  shift
fi
library="${1:?usage: check_c_symbols.sh [--update] LIBRARY [LIST]}"
list="${2:-$root/abi/orvanta_c.symbols}"

# "name kind" for each defined dynamic symbol of C linkage named orvanta_*.
exported="$(nm -D --defined-only "$library" | awk '$3 ~ /^orvanta_/ { print $3, $2 }' | LC_ALL=C sort)"
if [ "$update" = 1 ]; then
  {
    echo "# The C symbols liborvanta.so exports (name, nm kind): the C ABI of orvanta/orvanta.h."
    echo "# scripts/check_c_symbols.sh compares the library with this list; add new functions here."
    echo "$exported"
  } >"$list"
  echo "check_c_symbols: wrote $(wc -l <<<"$exported") symbols to $list"
  exit 0
fi

status=0
expected="$(grep -v '^#' "$list" | LC_ALL=C sort)"
if [ "$exported" != "$expected" ]; then
  echo "check_c_symbols: the C symbols of $library differ from $list:"
  diff <(echo "$expected") <(echo "$exported") | sed -n 's/^< /  missing or changed: /p; s/^> /  not in the list: /p'
  status=1
fi

# Anything else must be C++ in namespace orvanta (demangled), with its tables and type information.
others="$(nm -D --defined-only -C "$library" | cut -d' ' -f3- | grep -v '^orvanta_' |
  grep -Ev '^((typeinfo|typeinfo name|vtable|VTT) for |(non-)?virtual thunk to )?orvanta::' || true)"
if [ -n "$others" ]; then
  echo "check_c_symbols: $library exports symbols outside its interfaces:"
  head -n 20 <<<"$others" | sed 's/^/  /'
  status=1
fi

if [ "$status" = 0 ]; then
  echo "check_c_symbols: $(wc -l <<<"$exported") C symbols as listed, nothing outside the interfaces"
fi
exit "$status"
