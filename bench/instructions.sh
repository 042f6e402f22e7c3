#!/usr/bin/env bash
# instructions.sh PROGRAM LIBRARY FIGURES [--update]: counts the instructions of a request, from its
# submission to its completion, and compares them with the checked-in figures.
#
# Valgrind counts them on a processor of its own, so that neither the machine nor its load matters.
# The C library is told to leave out what it would choose by processor, and to keep freed memory at
# hand, so that the count does not depend on what was allocated before.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../tools/figures.sh"
program=$1 library=$2 figures=$3 update=${4:-}
margin=3 # percent, either way: a figure that is beaten by more is stale

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
# Without its debug information, which valgrind cannot read.
cp "$library" "$folder/camera.oemlayer.adapter.so"
GLIBC_TUNABLES=glibc.malloc.tcache_count=127
export GLIBC_TUNABLES+=:glibc.cpu.hwcaps=-AVX512F,-AVX2,-AVX,-ERMS,-FSRM,-SSE4_2

number=0
"$program" | while read -r requests name; do
    valgrind --tool=callgrind --toggle-collect=OneRequest --callgrind-out-file="$folder/$number" \
        "$program" "$number" "$folder/camera.oemlayer.adapter.so" >"$folder/log" 2>&1 ||
        { cat "$folder/log" >&2; exit 1; }
    awk -v name="$name" -v requests="$requests" '/^totals: / { print int($2 / requests), name }' \
        "$folder/$number"
    number=$((number + 1))
done >"$folder/found"
[ "$update" != --update ] || cp "$folder/found" "$figures"

printf 'Of the first, by where they are:\n'
callgrind_annotate --threshold=100 "$folder/0" 2>/dev/null | awk '
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
    END { for (place in sum) printf "  %-22s %5d\n", place, sum[place] }' | sort -k1,1 |
    tee "$folder/places"
sed -nE 's/^ *(.*[^ ]) +([0-9]+)$/figure\tinstructions of the first; \1\t\2\tinstructions/p' \
    "$folder/places" >>"${FIGURES:-/dev/null}"
note build "$library"

awk -v margin="$margin" -v report="${FIGURES:-/dev/null}" '
    { count = $1; name = substr($0, length($1) + 2) }
    NR == FNR { figures[name] = count; next }
    {
        figure = name in figures ? figures[name] : 0
        off = count > figure ? count - figure : figure - count
        verdict = 100 * off <= margin * figure ? "" : ": more than " margin " % off"
        failed = failed || verdict != ""
        wanted = figure ? figure " expected" : "no figure"
        printf "%-26s %6d instructions, %s%s\n", name, count, wanted, verdict
        room = margin * figure / 100
        printf "figure\tinstructions; %s\t%d\tinstructions\t%.2f\t%.2f\n", name, count,
            figure - room, figure + room >>report
        printf "figure\tinstructions; %s; expected\t%d\tinstructions\n", name, figure >>report
    }
    END { exit failed }' "$figures" "$folder/found" ||
    { printf 'Where the change is meant: bench/instructions.sh with --update\n'; exit 1; }
