#!/usr/bin/env bash
# Checks the 32-bit Windows DLL's export table: exactly the names of the export
# table (src/velomar.def), all declared in the public header, under plain
# (undecorated) names, and the DLL imports only system DLLs.
set -euo pipefail
dll=${1:?usage: check-exports.sh path/to/velomar.dll}
root=$(cd "$(dirname "$0")/.." && pwd)

table=$(bash "$root/scripts/export-table.sh")
declared=$(bash "$root/scripts/declared-exports.sh")
exported=$(i686-w64-mingw32-objdump -p "$dll" |
           sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' |
           sed -nE 's/^[[:space:]]*\[ *[0-9]+\] ([^ ]+)$/\1/p' | sort)

status=0
report() {  # report <what> <list>
  if [ -n "$2" ]; then echo "FAIL: $1:"; echo "$2" | sed 's/^/  /'; status=1; fi
}
report "in the export table but not exported" "$(comm -23 <(echo "$table") <(echo "$exported"))"
report "exported but not in the export table" "$(comm -13 <(echo "$table") <(echo "$exported"))"
report "header and export table differ" "$(comm -3 <(echo "$table") <(echo "$declared"))"
if echo "$exported" | grep -q '@'; then echo "FAIL: decorated export names found"; status=1; fi

imports=$(i686-w64-mingw32-objdump -p "$dll" | sed -n 's/^[[:space:]]*DLL Name: //p' | sort -u)
system_dlls='^(KERNEL32|USER32|GDI32|ADVAPI32|msvcrt|ucrtbase|api-ms-win-[a-z0-9-]+)\.dll$'
report "non-system DLL imports" "$(echo "$imports" | grep -viE "$system_dlls" || true)"

if [ $status -eq 0 ]; then
  echo "export table OK: $(echo "$exported" | grep -c .) exports under plain names; imports: $(echo $imports)"
fi
exit $status
