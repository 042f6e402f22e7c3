#!/usr/bin/env bash
# no_layers_check.sh FOLDER COMMAND...: a run of the host's tells the same, and writes the same
# picture, with layers and without. Times and handles are left out.
set -uo pipefail
work=$1/no_layers.$$
shift
mkdir -p "$work"
trap 'rm -rf "$work"' EXIT

tell() { # tell NAME COMMAND...: what the run says, and its status
    local name=$1
    shift
    "$@" --picture "$work/picture.png" 2>"$work/$name.log" |
        sed -E 's/ +-?[0-9]+\.[0-9]+/ T/g; s/0x[0-9a-f]+/HANDLE/g
            /^  camera [0-9]+ sent /d' >"$work/$name.txt"
    printf 'status %s\n' "${PIPESTATUS[0]}" >>"$work/$name.txt"
    [ ! -e "$work/picture.png" ] || mv "$work/picture.png" "$work/$name.png"
}

tell with "$@"
tell without "$@" --no-layers
for each in txt png; do
    [ -e "$work/with.$each" ] || [ -e "$work/without.$each" ] || continue
    cmp "$work/with.$each" "$work/without.$each" && continue
    diff "$work/with.txt" "$work/without.txt"
    cat "$work"/*.log
    exit 1
done
grep -x 'status 0' "$work/with.txt"
