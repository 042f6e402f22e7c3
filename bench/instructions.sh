#!/usr/bin/env bash
# instructions.sh PROGRAM LIBRARY FIGURES [--update]: counts the instructions of one request, from its
# submission to its completion, and compares them with the checked-in figures.
#
# Valgrind counts them on a processor of its own, so that neither the machine nor its load matters. The C
# library is told to leave out what it would choose by processor, and to keep freed memory at hand, so that
# the count does not depend on what was allocated before.
set -euo pipefail
program=$1 library=$2 figures=$3 update=${4:-}
margin=3 # percent, either way: a figure that is beaten by more is stale

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
# Without its debug information, which valgrind cannot read.
cp "$library" "$folder/camera.oemlayer.adapter.so"
export GLIBC_TUNABLES=glibc.malloc.tcache_count=127:glibc.cpu.hwcaps=-AVX512F,-AVX2,-AVX,-ERMS,-FSRM,-SSE4_2

# count CASE: leaves the profile in the folder
count() {
    local log
    log=$(valgrind --tool=callgrind --toggle-collect=OneRequest --callgrind-out-file="$folder/$1" \
        "$program" "$1" "$folder/camera.oemlayer.adapter.so" 2>&1) || { printf '%s\n' "$log" >&2; exit 1; }
    sed -n 's/^totals: //p' "$folder/$1"
}

failed=0
cases=$("$program")
for case in $cases; do
    found=$(count "$case")
    if [ "$update" = --update ]; then
        printf '%s %s\n' "$case" "$found" >>"$folder/figures"
        continue
    fi
    figure=$(awk -v name="$case" '$1 == name { print $2 }' "$figures")
    if [ -z "$figure" ]; then
        printf '%-14s %6d instructions, and no figure in %s\n' "$case" "$found" "$figures"
        failed=1
    elif [ $((100 * (found > figure ? found - figure : figure - found))) -gt $((margin * figure)) ]; then
        printf '%-14s %6d instructions, %d expected: more than %d %% off\n' "$case" "$found" "$figure" "$margin"
        failed=1
    else
        printf '%-14s %6d instructions, %d expected\n' "$case" "$found" "$figure"
    fi
done
if [ "$update" = --update ]; then
    cp "$folder/figures" "$figures"
    cat "$figures"
fi

printf 'Of the first, by where they are:\n'
callgrind_annotate --threshold=100 "$folder/${cases%%[[:space:]]*}" 2>/dev/null | awk '
    !/^ *[0-9,]+ \([0-9. ]+%\) / || /PROGRAM TOTALS/ { next }
    {
        count = $1
        gsub(",", "", count)
        if (/camera\.oemlayer\.adapter\.so\]/) place = "the library"
        else if (/mutex/) place = "locks"
        else if (/malloc|operator (new|delete)|_int_free|free/) place = "the allocator"
        else if (/libc\.so/) place = "clearing and copying"
        else place = "vendor and host"
        sum[place] += count
    }
    END { for (place in sum) printf "  %-22s %5d\n", place, sum[place] }' | sort -k1,1
[ "$failed" -eq 0 ] || { printf 'Where the change is meant: bench/instructions.sh with --update\n'; exit 1; }
