#!/usr/bin/env bash
# fuzz.sh BUILD CORPUS SECONDS|--merge: runs the fuzzers of a build over the corpus, and for some
# seconds beyond it where there are any; or keeps the corpus small. One line says of each what came
# of it.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../tools/figures.sh"
build=$1 corpora=$2 seconds=$3
here=$(dirname "${BASH_SOURCE[0]}")
outlast_signals

fuzz_options() { sed -nE 's/^([a-z_]+) = (.+)/-\1=\2/p' "$here/$1.options"; }

# fuzz_one NAME SECONDS: the program's own output is kept.
fuzz_one() {
    local name=$1 seconds=$2 found=$build/found/$1 status=0 runs=0 covered=0 input
    local program=$build/fuzz/fuzz_$name log=$found.log what="$2 s" outcome="no finding"
    [ "$interrupted" -eq 0 ] || exit "$interrupted"
    local corpus=("$corpora/$name") limits=(-max_total_time="$2")
    mapfile -t -O 1 limits < <(fuzz_options "$name")
    mkdir -p "$found" "$build/corpus/$name"
    if [ "$seconds" -eq 0 ]; then
        limits=(-runs=0 -timeout=10) what="the corpus"
    else
        # What is new stays in the build folder, for the next run.
        corpus=("$build/corpus/$name" "${corpus[@]}")
    fi
    note build "$program"
    "$program" "${limits[@]}" -artifact_prefix="$found/" "${corpus[@]}" >"$log" 2>&1 ||
        status=$? outcome="1 FINDING"
    # A fuzzer that gets the signal, too, ends with 72, or dies of it.
    [ "$interrupted" -eq 0 ] || [[ ! $status =~ ^(72|1..)$ ]] || status=0 outcome=interrupted
    # "#18 DONE cov: 5 ...", or the last such line before a finding.
    read -r runs covered < <(sed -nE 's/^#([0-9]+)\t.* cov: ([0-9]+) .*/\1 \2/p' "$log" |
        tail -n 1) || true
    note figure "$name; $what; executions" "$((runs))" ""
    note figure "$name; $what; places covered" "$((covered))" ""
    note figure "$name; $what; findings" "$((status != 0))" "" "" 0
    printf '%-9s %9d executions, %4d places covered, %s, %s\n' \
        "$name" "$runs" "$covered" "$what" "$outcome"
    [ "$status" -ne 0 ] || return 0
    input=$(sed -n 's/.*Test unit written to //p' "$log" | tail -n 1)
    {
        grep -m 3 -E '^FOUND: |^==[0-9]+==ERROR: |runtime error: |^SUMMARY: ' "$log" ||
            tail -n 5 "$log"
        printf '          input      %s\n' "${input:-none; see $log}"
        [ -z "$input" ] ||
            printf '          reproduce  OEMLAYER_FUZZ_TRACE=1 %s %s\n' "$program" "$input"
    } | tee "$found.txt"
    note finding "$name: $(sed 's/  */ /g' "$found.txt")"
    return 1
}

# fuzz_merge NAME: the corpus becomes what somebody has given a name, and of the rest of it, and of
# what was found, few small inputs that cover as many places. How often one passes through a place
# does not count: else each run of a minute would add hundreds.
fuzz_merge() {
    local name=$1 corpus=$corpora/$1 merged=$build/merged/$1 before options
    local program=$build/fuzz/fuzz_$name found=$build/corpus/$1
    rm -rf "$merged" "$merged".crash-*
    mkdir -p "$merged" "$found"
    find "$corpus" -type f -regextype egrep ! -regex "$unnamed" -exec cp -t "$merged" {} +
    mapfile -t options < <(fuzz_options "$name")
    before=$(fuzz_size "$corpus" "$name; before")
    note build "$program"
    if ! "$program" -merge=1 -use_counters=0 "${options[@]}" -artifact_prefix="$merged.crash-" \
        "$merged" "$corpus" "$found" >"$merged.log" 2>&1 || [ -z "$(ls "$merged")" ] ||
        compgen -G "$merged.crash-*" >/dev/null; then
        [ "$interrupted" -eq 0 ] || exit "$interrupted"
        note finding "fuzz_$name does not merge: $merged.log"
        printf 'fuzz_%s does not merge, and its corpus is as it was: %s\n' \
            "$name" "$merged.log" >&2
        exit 2
    fi
    cp -nt "$corpus" "$merged"/*
    find "$corpus" -type f -regextype egrep -regex "$unnamed" -printf '%f\n' |
        while read -r input; do [ -e "$merged/$input" ] || rm "$corpus/$input"; done
    printf '%-9s %s before, %s after, %s found in %s\n' "$name" "$before" \
        "$(fuzz_size "$corpus" "$name; after")" "$(fuzz_size "$found" "$name; found")" "$build"
}
# fuzz_size FOLDER FIGURE: of all inputs.
fuzz_size() {
    local inputs bytes
    read -r inputs bytes < <(find "$1" -type f -printf '%s\n' |
        awk '{ bytes += $1 } END { print NR + 0, bytes + 0 }')
    note figure "$2; inputs" "$inputs" ""
    note figure "$2; size" "$bytes" bytes
    printf '%d inputs of %d bytes' "$inputs" "$bytes"
}

if [ "$seconds" = --merge ]; then
    unnamed='.*/[0-9a-f]{40}'
    for name in table config log recording; do
        fuzz_merge "$name"
        [ "$interrupted" -eq 0 ] || exit "$interrupted"
    done
    exit
fi
status=0
# The fuzzers, and their share of the time, in tenths.
for fuzzer in table:7 config:1 log:1 recording:1; do
    name=${fuzzer%:*} share=$((seconds * ${fuzzer#*:} / 10))
    fuzz_one "$name" 0 && { [ "$seconds" -eq 0 ] || fuzz_one "$name" "$share"; } || status=1
done
[ "$interrupted" -eq 0 ] || status=$interrupted
exit "$status"
