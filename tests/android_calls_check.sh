#!/usr/bin/env bash
# android_calls_check.sh LIBRARY LIST: Android's C library has everything that the library takes
# from Debian's.
set -euo pipefail
library=$1 list=$2
readelf=$(command -v llvm-readelf-14 || command -v llvm-readelf)

# Debian's C library is the one whose symbols have a version "GLIBC". What is weak may be missing.
calls=$("$readelf" --dyn-syms --wide "$library" |
    awk '$7 == "UND" && $5 != "WEAK" && sub(/@+GLIBC_.*/, "", $8) { print $8 }' | sort -u)
[ -n "$calls" ]
unknown=$(comm -23 <(printf '%s\n' "$calls") <(grep -v '^#' "$list" | tr -s ' ' '\n' | sort -u))
if [ -n "$unknown" ]; then
    printf 'not in %s:\n%s\n' "$list" "$unknown"
    exit 1
fi
