#!/usr/bin/env bash
# size.sh LIBRARY PROBE [REPEATS]: what the library costs, on storage and, measured by the probe, in
# a process. PROBE is "emulated" where it would run in an emulator.
set -euo pipefail
library=$1 probe=$2 repeats=${3:-51}
. "$(dirname "${BASH_SOURCE[0]}")/figures.sh"
readelf=$(command -v llvm-readelf-14 || command -v llvm-readelf)

line() { # line NAME FORMAT [ARGUMENT...]
    printf "%-12s $2\n" "$1" "${@:3}"
}

note build "$library"
machine=$("$readelf" --file-header "$library" | sed -En 's/^ *Machine: *(.* )?//p')
bytes=$(stat -c %s "$library")
note figure file "$bytes" bytes
line file "%d bytes, for %s" "$bytes" "$machine"
if [ -e "$library.debug" ]; then
    bytes=$(stat -c %s "$library.debug")
    note figure "debug information" "$bytes" bytes
    line "" "%d bytes of debug information beside it" "$bytes"
fi
segment=0
while read -r flags in_file in_memory; do
    segment=$((segment + 1)) in_memory=$((in_memory)) in_file=$((in_file))
    note figure "segment $segment, $flags; in the file" "$in_file" bytes
    note figure "segment $segment, $flags; in memory" "$in_memory" bytes
    line segment "%-3s %6d bytes in the file, %6d in memory" "$flags" "$in_file" "$in_memory"
done < <("$readelf" --program-headers --wide "$library" | awk '$1 == "LOAD" {
    flags = ""; for (i = 7; i < NF; ++i) flags = flags $i; print flags, $5, $6 }')
relocations=$("$readelf" --relocations "$library" | awk '$3 ~ /^R_/ {
    sub(/R_[A-Z0-9]+_/, "", $3); sub(/R_X86_64_/, "", $3); sub(/^64_/, "", $3); ++count[$3]; ++sum }
    END { text = sum + 0 ":"; for (kind in count) text = text " " count[kind] " " kind ","
        sub(/,$/, "", text); print text }')
note figure relocations "${relocations%%:*}" ""
while read -r count kind; do
    [ -z "$kind" ] || note figure "relocations; $kind" "$count" ""
done < <(tr , '\n' <<<"${relocations#*:}")
line relocations "$relocations"
if [ "$probe" = emulated ]; then
    line ready "not measured under an emulator"
    line resident "not measured under an emulator"
    exit 0
fi

measured=$(for ((i = 0; i < repeats; ++i)); do "$probe" "$library"; done)
# of NAME FIGURE UNIT [RANGE]: leaves the median in $found, and with RANGE the least and the most
# behind it.
of() {
    local median least most
    read -r median least most < <(awk -v name="$1" '$1 == name { print $2 }' <<<"$measured" |
        sort -n | awk '{ value[NR] = $1 }
            END { print value[int((NR + 1) / 2)], value[1], value[NR] }')
    found=$median
    note figure "$2" "$median" "$3"
    [ -n "${4:-}" ] || return 0
    found="$median ($least to $most)"
    note figure "$2, least" "$least" "$3"
    note figure "$2, most" "$most" "$3"
}
of ready "from load to ready" us range && ready=$found
of opened "in dlopen" us range && opened=$found
line ready "%s microseconds from load to ready, %s of them in dlopen" "$ready" "$opened"
of loaded "resident from load to ready" KiB && loaded=$found
of library "resident of the library" KiB
line resident "%d KiB from load to ready, with the device's libraries; %d KiB are the library" \
    "$loaded" "$found"
for camera in 1 2 3 4; do
    of "resident$camera" "camera $camera; resident" KiB && resident=$found
    of "heap$camera" "camera $camera; heap" bytes
    line "camera $camera" "%d KiB resident, %d bytes of heap" "$resident" "$found"
done
note figure processes "$repeats" ""
line "" "medians of %d processes on the stand-in device, %s" "$repeats" \
    "whose own records of each camera are in them"
