#!/usr/bin/env bash
# The Windows files a host needs, as a host's loader sees them: the module
# KXMP3Lib.zss exports exactly ZSSGetPluginInfo and CreateInstance_KXMP3 and imports
# the two host libraries and Windows system libraries only (the C++ runtime is
# linked in); the host libraries and kxhost.exe import no C++ runtime either.
#   pe_tables_test.sh BUILD_DIR
set -euo pipefail
build=$1
objdump=x86_64-w64-mingw32-objdump
command -v "$objdump" >/dev/null || { echo "skipped: $objdump is missing"; exit 77; }
status=0
fail() { echo "FAIL: $*"; status=1; }

# Windows system libraries a file may import.
system_dlls='^(KERNEL32|msvcrt|USER32|SHLWAPI|ADVAPI32|GDI32|COMCTL32|WINMM|ucrtbase|api-ms-win-[a-z0-9-]+)\.dll$'

imports() { "$objdump" -p "$1" | sed -n 's/^\s*DLL Name: //p' | sort; }

check_imports() {
  local file=$1 allowed=$2
  local dll
  while read -r dll; do
    if ! [[ "$dll" =~ $system_dlls ]] && ! [[ " $allowed " == *" $dll "* ]]; then
      fail "$(basename "$file") imports $dll"
    fi
  done < <(imports "$file")
}

module="$build/plugins/KXMP3Lib.zss"
exports=$("$objdump" -p "$module" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' | sed -n 's/^\s*\[ *[0-9]*\] //p' | sort | tr '\n' ' ')
[ "$exports" = "CreateInstance_KXMP3 ZSSGetPluginInfo " ] || fail "KXMP3Lib.zss exports: $exports"
check_imports "$module" "KXLibCore.dll KXAFLib.dll"
imports "$module" | grep -qx KXLibCore.dll || fail "KXMP3Lib.zss does not import KXLibCore.dll"
imports "$module" | grep -qx KXAFLib.dll || fail "KXMP3Lib.zss does not import KXAFLib.dll"
check_imports "$build/bin/KXLibCore.dll" ""
check_imports "$build/bin/KXAFLib.dll" "KXLibCore.dll"
check_imports "$build/bin/kxhost.exe" "KXLibCore.dll KXAFLib.dll"
[ "$status" = 0 ] && echo "export and import tables as a host needs them"
exit "$status"
