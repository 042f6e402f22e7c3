#!/usr/bin/env bash
# log_levels_check.sh SOURCE_FOLDER COMPILER...: which level flags are on from the start, for each initial level.
set -euo pipefail
source=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

expected=("" Error "Error Warn" "Error Warn Info" "Error Warn Info Verbose")
for level in "${!expected[@]}"; do
    "$@" -std=c++20 -stdlib=libc++ -fno-exceptions -I"$source" "-DOEMLAYER_LOG_LEVEL=$level" \
        -c "$source/adapterlayer/platformadapter.cpp" -o "$work/object.o"
    symbols=$(llvm-nm-14 --demangle "$work/object.o")
    found=()
    for flag in Error Warn Info Verbose; do
        # A word that is not zero is in the data section.
        ! grep -q " D OemLayer::g_log${flag}Enabled\$" <<<"$symbols" || found+=("$flag")
    done
    if [ "${found[*]}" != "${expected[level]}" ]; then
        printf 'level %d turns on "%s", and must turn on "%s"\n' "$level" "${found[*]}" "${expected[level]}"
        exit 1
    fi
done
printf '%d levels\n' "${#expected[@]}"
