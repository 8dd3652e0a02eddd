#!/usr/bin/env bash
# Checks that the shared library's dynamic symbol table defines exactly the
# names of the export table (src/velomar.def) but Render, which draws on a
# Windows device context and is built on Windows only; everything else stays
# hidden. The public header must declare exactly the table's names.
set -euo pipefail
lib=${1:?usage: check-linux-exports.sh path/to/libvelomar.so}
root=$(cd "$(dirname "$0")/.." && pwd)
table=$(bash "$root/scripts/export-table.sh")
declared=$(bash "$root/scripts/declared-exports.sh")
expected=$(echo "$table" | grep -vx Render)
defined=$(nm -D --defined-only "$lib" | awk '{print $3}' | sort)
status=0
if [ "$declared" != "$table" ]; then
  echo "FAIL: the header's declarations differ from the export table:"
  diff <(echo "$table") <(echo "$declared") | sed 's/^/  /'
  status=1
fi
if [ "$expected" != "$defined" ]; then
  echo "FAIL: exported symbols differ from the export table:"
  diff <(echo "$expected") <(echo "$defined") | sed 's/^/  /'
  status=1
fi
[ $status -eq 0 ] && echo "exports OK: $(echo "$defined" | wc -l) symbols, the export table but Render"
exit $status
