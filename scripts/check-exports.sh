#!/usr/bin/env bash
# Checks the 32-bit Windows DLL's export table: every export declared in the
# public header is present under its plain (undecorated) name, nothing else is
# exported, and the DLL imports only system DLLs.
set -euo pipefail
dll=${1:?usage: check-exports.sh path/to/velomar.dll}
root=$(cd "$(dirname "$0")/.." && pwd)

declared=$(bash "$root/scripts/declared-exports.sh")
exported=$(i686-w64-mingw32-objdump -p "$dll" |
           sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' |
           sed -nE 's/^[[:space:]]*\[ *[0-9]+\] ([^ ]+)$/\1/p' | sort)
def="$(dirname "$dll")/velomar.def"  # generated from the header beside the DLL
listed=$(sed -n '/^EXPORTS/,$p' "$def" | grep -vE '^(EXPORTS|[[:space:]]*;|[[:space:]]*$)' |
         awk '{print $1}' | sort)

status=0
missing=$(comm -23 <(echo "$declared") <(echo "$exported"))
extra=$(comm -13 <(echo "$declared") <(echo "$exported"))
unlisted=$(comm -3 <(echo "$declared") <(echo "$listed"))
if [ -n "$missing" ]; then echo "FAIL: declared but not exported:"; echo "$missing" | sed 's/^/  /'; status=1; fi
if [ -n "$extra" ]; then echo "FAIL: exported but not declared:"; echo "$extra" | sed 's/^/  /'; status=1; fi
if [ -n "$unlisted" ]; then echo "FAIL: header and export table differ:"; echo "$unlisted" | sed 's/^/  /'; status=1; fi
if echo "$exported" | grep -q '@'; then echo "FAIL: decorated export names found"; status=1; fi

imports=$(i686-w64-mingw32-objdump -p "$dll" | sed -n 's/^[[:space:]]*DLL Name: //p' | sort -u)
system_dlls='^(KERNEL32|USER32|GDI32|ADVAPI32|msvcrt|ucrtbase|api-ms-win-[a-z0-9-]+)\.dll$'
foreign=$(echo "$imports" | grep -viE "$system_dlls" || true)
if [ -n "$foreign" ]; then echo "FAIL: non-system DLL imports:"; echo "$foreign" | sed 's/^/  /'; status=1; fi

count=$(echo "$declared" | grep -c . || true)
if [ $status -eq 0 ]; then
  echo "export table OK: $count exports under plain names; imports: $(echo $imports)"
fi
exit $status
