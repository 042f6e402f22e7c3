#!/usr/bin/env bash
# demo_check.sh HOST STATUS TEXT [OPTIONS...]: the demo ends with this status, and prints this pattern.
set -uo pipefail
host=$1
status=$2
text=$3
shift 3
output=$("$host" --width 64 --height 32 "$@" 2>&1)
found=$?
if [ "$found" -ne "$status" ] || ! grep -q -- "$text" <<<"$output"; then
    printf '%s\n' "$output"
    printf 'wanted status %s and "%s", got status %s\n' "$status" "$text" "$found"
    exit 1
fi
