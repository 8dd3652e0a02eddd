#!/usr/bin/env bash
# Prints the exports declared in the public header, one per line, sorted.
root=$(cd "$(dirname "$0")/.." && pwd)
grep -oE 'VL_CALL[[:space:]]+[A-Za-z_][A-Za-z0-9_]*[[:space:]]*\(' "$root/include/velomar.h" |
  sed -E 's/VL_CALL[[:space:]]+//; s/[[:space:]]*\($//' | sort
