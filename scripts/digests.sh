#!/usr/bin/env bash
# CI leg: the same bytes everywhere. velomar-digest prints a digest of every
# export's result on fixed pictures (every layout, defaults and each
# parameter moved in turn). x86-64 Linux under every instruction set (through
# the dispatcher's override), 32-bit x86 Linux (-m32, SSE2 arithmetic) and
# 64-bit Windows under wine must all print the committed table
# tools/velomar/digests.txt. `digests.sh --update` rewrites the table from
# x86-64 Linux.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=${JOBS:-2}
table=tools/velomar/digests.txt
bash scripts/install-deps.sh build multilib

cmake --preset release > /dev/null
cmake --build build/release -j "$jobs" --target velomar_digest
if [ "${1:-}" = "--update" ]; then
  ./build/release/velomar-digest > "$table"
  exit 0
fi

failed=0
check() {  # check NAME COMMAND...: the command's output against the table
  local name=$1 out
  shift
  out=$("$@" 2>/dev/null | tr -d '\r')
  if [ "$out" = "$(cat "$table")" ]; then
    echo "digests $name: all $(wc -l < "$table") cases as committed"
  else
    echo "FAIL: digests $name differ from $table:"
    diff "$table" <(echo "$out") | head -20
    failed=1
  fi
}

check "x86-64 widest" env -u VELOMAR_ISA ./build/release/velomar-digest
for isa in avx2 sse2; do check "x86-64 $isa" env VELOMAR_ISA=$isa ./build/release/velomar-digest; done

cmake -S . -B build/m32 -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_FLAGS=-m32 -DCMAKE_CXX_FLAGS=-m32 \
  -DVELOMAR_TESTS=OFF -DVELOMAR_HOST=OFF -DVELOMAR_DIGEST=ON -DVELOMAR_INSTALL=OFF > /dev/null
cmake --build build/m32 -j "$jobs" --target velomar_digest
check "x86 32-bit widest" env -u VELOMAR_ISA ./build/m32/velomar-digest
check "x86 32-bit sse2" env VELOMAR_ISA=sse2 ./build/m32/velomar-digest

if bash scripts/install-deps.sh windows wine && [ -x /usr/lib/wine/wine64 ]; then
  cmake --preset win64 > /dev/null
  cmake --build build/win64 -j "$jobs" --target velomar_digest
  export WINEPREFIX="$PWD/build/win64/wineprefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
  /usr/lib/wine/wine64 wineboot --init > /dev/null 2>&1 || true
  check "Windows x86-64 (wine)" /usr/lib/wine/wine64 build/win64/velomar-digest.exe
else
  echo "!!! SKIPPED: wine64 could not be installed; Windows digests NOT compared !!!"
fi
exit $failed
