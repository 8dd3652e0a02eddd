#!/usr/bin/env bash
# Runs every test program of a build under valgrind's memcheck and fails on
# any use of an uninitialised value, invalid access or leak.
# Usage: valgrind.sh [build dir, default build/release]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
command -v valgrind > /dev/null || bash scripts/install-deps.sh valgrind

status=0
for program in "$build"/tests/*_tests; do
  [ -x "$program" ] || continue
  name=$(basename "$program")
  start=$SECONDS
  if valgrind -q --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite \
       --track-origins=yes "$program" --gtest_brief=1 > "$build/$name.valgrind.log" 2>&1; then
    echo "valgrind: $name clean ($((SECONDS - start)) s)"
  else
    echo "valgrind: $name FAILED ($((SECONDS - start)) s)"
    grep -E '==[0-9]+==|FAILED' "$build/$name.valgrind.log" | head -40
    status=1
  fi
done
exit $status
