#!/usr/bin/env bash
# The Windows legs: (1) the 32-bit stdcall DLL and its export table, which must
# pass; (2) the test suite built for 64-bit Windows and run under wine, skipped
# loudly only when wine cannot be installed.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=${JOBS:-2}

bash scripts/install-deps.sh windows
cmake --preset win32 > /dev/null
cmake --build build/win32 -j "$jobs"
bash scripts/check-exports.sh build/win32/velomar.dll

if ! bash scripts/install-deps.sh wine || [ ! -x /usr/lib/wine/wine64 ]; then
  echo "!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!"
  echo "!!! SKIPPED: wine64 could not be installed; the 64-bit Windows   !!!"
  echo "!!! test suite was built but NOT run.                            !!!"
  echo "!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!"
  cmake --preset win64 > /dev/null && cmake --build build/win64 -j "$jobs"
  exit 0
fi
cmake --preset win64 > /dev/null
cmake --build build/win64 -j "$jobs"
export WINEPREFIX="$PWD/build/win64/wineprefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
/usr/lib/wine/wine64 wineboot --init > /dev/null 2>&1 || true
ctest --test-dir build/win64 --output-on-failure
