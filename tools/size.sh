#!/usr/bin/env bash
# size.sh LIBRARY PROBE [REPEATS]: what the library costs, on storage and, measured by the probe, in
# a process. PROBE is "emulated" where it would run in an emulator.
set -euo pipefail
library=$1 probe=$2 repeats=${3:-51}
readelf=$(command -v llvm-readelf-14 || command -v llvm-readelf)

line() { # line NAME FORMAT [ARGUMENT...]
    printf "%-12s $2\n" "$1" "${@:3}"
}

machine=$("$readelf" --file-header "$library" | sed -En 's/^ *Machine: *(.* )?//p')
line file "%d bytes, for %s" "$(stat -c %s "$library")" "$machine"
[ ! -e "$library.debug" ] ||
    line "" "%d bytes of debug information beside it" "$(stat -c %s "$library.debug")"
"$readelf" --program-headers --wide "$library" | awk '$1 == "LOAD" {
    flags = ""; for (i = 7; i < NF; ++i) flags = flags $i; print flags, $5, $6 }' |
    while read -r flags in_file in_memory; do
        line segment "%-3s %6d bytes in the file, %6d in memory" "$flags" "$in_file" "$in_memory"
    done
line relocations "$("$readelf" --relocations "$library" | awk '$3 ~ /^R_/ {
    sub(/R_[A-Z0-9]+_/, "", $3); sub(/R_X86_64_/, "", $3); sub(/^64_/, "", $3); ++count[$3]; ++sum }
    END { text = sum ":"; for (kind in count) text = text " " count[kind] " " kind ","
        sub(/,$/, "", text); print text }')"
if [ "$probe" = emulated ]; then
    line ready "not measured under an emulator"
    line resident "not measured under an emulator"
    exit 0
fi

measured=$(for ((i = 0; i < repeats; ++i)); do "$probe" "$library"; done)
# of NAME [LEAST_AND_MOST]: the median, and with a second argument the least and the most.
of() {
    awk -v name="$1" '$1 == name { print $2 }' <<<"$measured" | sort -n |
        awk -v range="${2:-}" '{ value[NR] = $1 } END {
            printf "%d", value[int((NR + 1) / 2)]
            if (range != "") printf " (%d to %d)", value[1], value[NR] }'
}
line ready "%s microseconds from load to ready, %s of them in dlopen" \
    "$(of ready range)" "$(of opened range)"
line resident "%d KiB from load to ready, with the device's libraries; %d KiB are the library" \
    "$(of loaded)" "$(of library)"
for camera in 1 2 3 4; do
    line "camera $camera" "%d KiB resident, %d bytes of heap" \
        "$(of "resident$camera")" "$(of "heap$camera")"
done
line "" "medians of %d processes on the stand-in device, %s" "$repeats" \
    "whose own records of each camera are in them"
