#!/usr/bin/env bash
# CI leg: the concurrency tests under ThreadSanitizer (every export from four
# threads at once), then each libFuzzer harness for a few seconds from its
# committed corpus (make fuzz runs them for an hour). The guard-page and
# concurrency tests also run in every ctest build; LeakSanitizer runs with the
# address-sanitizer build of the whole suite.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh build
cmake --preset tsan > /dev/null
cmake --build build/tsan -j "${JOBS:-2}" --target robust_tests
TSAN_OPTIONS=halt_on_error=1 ./build/tsan/tests/robust_tests --gtest_brief=1 --gtest_filter='Concurrency.*'
bash scripts/fuzz.sh --seconds "${FUZZ_SECONDS:-20}"
