#!/usr/bin/env bash
# elf_check.sh LIBRARY EXPECTED_SYMBOLS: what the dynamic linker sees of the release library.
set -euo pipefail
library=$1
expected=$2
readelf=$(command -v llvm-readelf-14 || command -v llvm-readelf)
failures=0

check() { # check WHAT WANTED FOUND
    if [ "$2" = "$3" ]; then
        printf 'ok    %s\n' "$1"
    else
        printf 'FAIL  %s\n--- wanted\n%s\n--- found\n%s\n' "$1" "$2" "$3"
        failures=$((failures + 1))
    fi
}

# Binding and demangled name without argument list, of every defined symbol.
symbols=$("$readelf" --dyn-syms --demangle "$library" |
    awk '$7 != "UND" && $1 ~ /^[0-9]+:$/ && $7 != "Ndx" { name = $8; sub(/\(.*/, "", name); print $5, name }' | sort)
check "exported symbols" "$(grep -v '^#' "$expected" | sort)" "$symbols"

dynamic=$("$readelf" --dynamic-table "$library")
check "SONAME" "camera.oemlayer.adapter.so" "$(grep -oP 'SONAME.*\[\K[^]]+' <<<"$dynamic")"
check "immediate binding" "yes" "$(grep -q 'FLAGS_1.*NOW' <<<"$dynamic" && echo yes || echo no)"
check "no run path" "none" "$(grep -E 'RPATH|RUNPATH' <<<"$dynamic" || echo none)"
check "no text relocation" "none" "$(grep TEXTREL <<<"$dynamic" || echo none)"

segments=$("$readelf" --program-headers --wide "$library")
check "alignment of the loaded segments" "0x4000" "$(awk '$1 == "LOAD" { print $NF }' <<<"$segments" | sort -u)"
check "RELRO" "1" "$(grep -c GNU_RELRO <<<"$segments")"

[ "$failures" -eq 0 ]
