#!/usr/bin/env bash
# Runs the Python package's tests (the folder given) with an interpreter that has pytest: Debian's
# /usr/bin/python3 (package python3-pytest) first, since the python3 on PATH may be another one
# without it. Exit status 77 (a skip, for CTest) when none has.
set -euo pipefail
for python in /usr/bin/python3 "$(command -v python3 || true)"; do
  if [ -n "$python" ] && [ -x "$python" ] && "$python" -c "import pytest" 2>/dev/null; then
    exec "$python" -m pytest -p no:cacheprovider -q "$@"
  fi
done
echo "run_pytest: no python3 with pytest (Debian package python3-pytest; scripts/bootstrap.sh installs it)"
exit 77
