#!/usr/bin/env bash
# Checks that the shared library's dynamic symbol table defines exactly the
# exports declared in the public header: everything else stays hidden.
set -euo pipefail
lib=${1:?usage: check-linux-exports.sh path/to/libvelomar.so}
declared=$(bash "$(dirname "$0")/declared-exports.sh")
defined=$(nm -D --defined-only "$lib" | awk '{print $3}' | sort)
if [ "$declared" != "$defined" ]; then
  echo "FAIL: exported symbols differ from the header's declarations:"
  diff <(echo "$declared") <(echo "$defined") | sed 's/^/  /'
  exit 1
fi
echo "exports OK: $(echo "$defined" | wc -l) symbols, all declared"
