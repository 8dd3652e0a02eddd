#!/usr/bin/env bash
# Prints the names of the export table (src/velomar.def), one per line, sorted.
root=$(cd "$(dirname "$0")/.." && pwd)
sed -n '/^EXPORTS/,$p' "$root/src/velomar.def" | grep -vE '^(EXPORTS|[[:space:]]*;|[[:space:]]*$)' |
  awk '{print $1}' | sort
