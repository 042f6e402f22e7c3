#!/usr/bin/env bash
# log_levels_check.sh SOURCE_FOLDER COMPILER...: which level flags are on from the start, for each
# initial level.
set -euo pipefail
source=$1
shift
expected=("" Error "Error Warn" "Error Info Warn" "Error Info Verbose Warn")
for level in "${!expected[@]}"; do
    # A word that is not zero is in the data section.
    found=$("$@" -std=c++20 -stdlib=libc++ -fno-exceptions -I"$source" -c -o /dev/stdout \
        "-DOEMLAYER_LOG_LEVEL=$level" "$source/adapterlayer/platformadapter.cpp" |
        llvm-nm-14 --demangle - |
        sed -n 's/.* D OemLayer::g_log\(.*\)Enabled$/\1/p' | sort | paste -sd ' ')
    if [ "$found" != "${expected[level]}" ]; then
        printf 'level %d turns on "%s", not "%s"\n' "$level" "$found" "${expected[level]}"
        exit 1
    fi
done
printf '%d levels\n' "${#expected[@]}"
