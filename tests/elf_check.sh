#!/usr/bin/env bash
# elf_check.sh LIBRARY LISTS PROCESSOR BUILD_TYPE: what the dynamic linker sees of the library, how
# it is hardened, and what a release imports. LISTS is the folder of the checked-in lists.
set -euo pipefail
library=$1 lists=$2 processor=$3 build_type=$4
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
list() { grep -v '^#' "$lists/$1"; }
has() { grep -qE -- "$1" <<<"$2" && echo yes || echo no; } # has PATTERN TEXT

# Section index, binding and demangled name of every symbol.
symbols=$("$readelf" --dyn-syms --demangle "$library" | awk '$1 ~ /^[0-9]+:$/ && $8 != "" {
    name = $8; for (i = 9; i <= NF; ++i) name = name " " $i; print $7, $5, name }')
# An export is without its arguments, since a type in them is another one on each architecture.
exports=$(grep -v '^UND ' <<<"$symbols" | cut -d' ' -f2- | sed 's/(.*//' | sort)
# An import is without the version that the C library gives it.
imports=$(grep '^UND ' <<<"$symbols" | cut -d' ' -f2- | sed 's/@.*//' | LC_ALL=C sort)
check "exported symbols" "$(list exported_symbols.txt | sort)" "$exports"

dynamic=$("$readelf" --dynamic-table "$library")
named() { grep -oP "$1.*\[\K[^]]+" <<<"$dynamic"; }
check "SONAME" "$(basename "$library")" "$(named SONAME)"
check "needed libraries" "$(list "needed.$processor.txt")" "$(named NEEDED)"
check "immediate binding" "yes" "$(has 'FLAGS_1.*NOW' "$dynamic")"
check "no run path" "no" "$(has 'RPATH|RUNPATH' "$dynamic")"
check "no text relocation" "no" "$(has 'TEXTREL' "$dynamic")"

# The segments, with every number in decimal.
segments=$("$readelf" --program-headers --wide "$library" | awk '$2 ~ /^0x/ && $6 ~ /^0x/ {
    flags = ""; for (i = 7; i < NF; ++i) flags = flags $i; print $1, $2, $3, $5, $6, flags, $NF }' |
    while read -r type offset address in_file in_memory flags alignment; do
        echo "$type $((offset)) $((address)) $((in_file)) $((in_memory)) $flags $((alignment))"
    done)
of_segments() { awk "$1" <<<"$segments" | sort -u; }
check "alignment of the loaded segments" "16384" "$(of_segments '$1 == "LOAD" { print $7 }')"
check "RELRO, up to the end of a page" "0" \
    "$(of_segments '$1 == "GNU_RELRO" { print ($3 + $5) % 16384 }')"
check "no segment that is writable and executable" "" "$(of_segments '$6 ~ /W/ && $6 ~ /E/')"
check "a stack that is not executable" "RW" "$(of_segments '$1 == "GNU_STACK" { print $6 }')"
check "code in pages of its own" "" "$(of_segments '$1 == "LOAD" && $4 > 0 {
    for (page = int($2 / 16384); page <= int(($2 + $4 - 1) / 16384); ++page) {
        if (page in flags && (flags[page] ~ /E/) != ($6 ~ /E/)) print page, flags[page], $6
        flags[page] = $6
    } }')"

notes=$("$readelf" --notes "$library")
check "build id" "yes" "$(has 'Build ID: [0-9a-f]{40}$' "$notes")"
check "stack protector" "yes" "$(has ' __stack_chk_fail$' "$imports")"
check "fortified calls" "yes" "$(has ' __[a-z]+_chk$' "$imports")"
[ "$processor" != aarch64 ] || check "landing pads and signed return addresses" "yes" \
    "$(has 'aarch64 feature: BTI, PAC' "$notes")"

# What the compiler calls by itself depends on how it optimises.
if [ "$build_type" = Release ]; then
    check "imported symbols" "$(list "imported_symbols.$processor.txt" | LC_ALL=C sort)" "$imports"
    sections=$("$readelf" --section-headers "$library")
    check "stripped" "no" "$(has ' \.(symtab|debug_[a-z]+) ' "$sections")"
    link=$("$readelf" --string-dump=.gnu_debuglink "$library" |
        sed -nE 's/.*\] +([^ ]+\.debug).*/\1/p')
    check "name of the debug file" "$(basename "$library").debug" "$link"
    debug_file=$(dirname "$library")/$link
    sections=$("$readelf" --section-headers "$debug_file" 2>&1)
    check "debug information" "yes" "$(has ' \.debug_info ' "$sections")"
    check "build id of the debug file" "$(grep 'Build ID' <<<"$notes")" \
        "$("$readelf" --notes "$debug_file" 2>&1 | grep 'Build ID')"
fi
[ "$failures" -eq 0 ]
