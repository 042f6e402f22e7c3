#!/usr/bin/env bash
# demo_check.sh STATUS PATTERN COMMAND...: the command ends with this status, and prints this
# pattern.
set -uo pipefail
status=$1 pattern=$2
shift 2
output=$("$@" 2>&1)
found=$?
if [ "$found" -ne "$status" ] || ! grep -q -- "$pattern" <<<"$output"; then
    printf '%s\n' "$output"
    printf 'wanted status %s and "%s", got status %s\n' "$status" "$pattern" "$found"
    exit 1
fi
