#!/usr/bin/env bash
# The libFuzzer harnesses (tests/fuzz), built with clang and address +
# undefined-behaviour sanitizers. Each runs from its committed corpus
# (tests/fuzz/corpus/NAME.tar.gz, unpacked with what earlier runs found into
# build/fuzz/corpus-NAME) for the given seconds; any crash, leak, timeout or
# excess memory fails the run and leaves the input in build/fuzz/findings.
# Named inputs in tests/fuzz/regressions/NAME (earlier findings) run first.
#   fuzz.sh [--seconds N] [--jobs J] [--timeout T] [--only NAME]
#                                       (CI: a few seconds; make fuzz: an hour)
#   fuzz.sh --merge                     refresh the committed corpora
# The timeout (seconds of wall time for one input, 20 by default, also for
# the regression inputs) counts time the machine gives to other work: raise
# it on a busy machine.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=10 jobs=1 merge=0 timeout=20 only=
while [ $# -gt 0 ]; do
  case $1 in
    --seconds) seconds=$2; shift 2 ;;
    --jobs) jobs=$2; shift 2 ;;
    --merge) merge=1; shift ;;
    --timeout) timeout=$2; shift 2 ;;
    --only) only=$2; shift 2 ;;
    *) echo "unknown option $1"; exit 2 ;;
  esac
done
bash scripts/install-deps.sh build fuzz
cmake --preset fuzz > /dev/null
cmake --build build/fuzz -j "${JOBS:-2}"
export ASAN_OPTIONS=allocator_may_return_null=1:max_allocation_size_mb=1024:detect_leaks=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
findings=$PWD/build/fuzz/findings
mkdir -p "$findings"
status=0
for harness in tests/fuzz/*_fuzzer.cpp; do
  name=$(basename "$harness" _fuzzer.cpp)
  [ -z "$only" ] || [ "$only" = "$name" ] || continue
  exe=build/fuzz/tests/fuzz/${name}_fuzzer
  corpus=build/fuzz/corpus-$name
  mkdir -p "$corpus"
  [ -f "tests/fuzz/corpus/$name.tar.gz" ] && tar -C "$corpus" -xzf "tests/fuzz/corpus/$name.tar.gz"
  if [ $merge = 1 ]; then
    fresh=$(mktemp -d)
    "$exe" -merge=1 "$fresh" "$corpus" > /dev/null 2>&1
    tar -C "$fresh" -czf "tests/fuzz/corpus/$name.tar.gz" .
    echo "$name: $(ls "$fresh" | wc -l) inputs in tests/fuzz/corpus/$name.tar.gz"
    rm -rf "$fresh"
    continue
  fi
  # Inputs that once found something, each named after its export and what
  # it caught, replayed first: one that fails, times out, or no longer
  # decodes to its export (the harness's table changed) fails the run.
  for input in tests/fuzz/regressions/$name/*; do
    [ -f "$input" ] || continue
    if ! shown=$(VELOMAR_FUZZ_SHOW=1 "$exe" -timeout="$timeout" -rss_limit_mb=4096 "$input" 2>&1); then
      echo "FAIL: $name regression $(basename "$input"):"
      echo "$shown" | grep -E 'ERROR|runtime error|SUMMARY|timeout' | head -5
      status=1
    elif [ "$(echo "$shown" | grep -m1 -oE '^[A-Za-z0-9]+ [0-9]+x' | cut -d' ' -f1)" != "$(basename "$input" | cut -d- -f1)" ]; then
      echo "FAIL: $name regression $(basename "$input") no longer calls its export (tests/fuzz/encode_exports_input.py remakes it)"
      status=1
    fi
  done
  # The workers' logs (fuzz-N.log) go to a folder of the harness's own, so
  # that harnesses can run at the same time.
  log=$PWD/build/fuzz/$name.log work=$PWD/build/fuzz/jobs-$name
  rm -rf "$work" && mkdir -p "$work"
  if (cd "$work" && "$OLDPWD/$exe" "$OLDPWD/$corpus" -max_total_time="$seconds" -jobs="$jobs" -workers="$jobs" \
        -rss_limit_mb=4096 -timeout="$timeout" -artifact_prefix="$findings/$name-" -print_final_stats=1) > "$log" 2>&1; then
    # Counted from the workers' own logs: the main log repeats each of them.
    runs=$(grep -h 'stat::number_of_executed_units' "$work"/fuzz-*.log 2>/dev/null | awk '{s += $2} END {print s + 0}')
    echo "$name: no finding in $seconds s ($runs executions)"
    # A harness that counts its executions per export prints them at exit.
    grep -h '^executions per export:' "$work"/fuzz-*.log 2>/dev/null | tr ' ' '\n' | grep '=' |
      awk -F= '{n[$1] += $2} END {for (k in n) printf "  %s %d\n", k, n[k]}' | sort || true
  else
    echo "FAIL: $name found something (log: $log and $work, input in $findings):"
    grep -h -E 'ERROR|runtime error|SUMMARY' "$work"/fuzz-*.log 2>/dev/null | head -5
    status=1
  fi
done
exit $status
