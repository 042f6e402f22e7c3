#!/usr/bin/env bash
# cppcheck.sh BUILD_FOLDER: cppcheck over all code of a configured build.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# What is left out, and why; single places say it in the code.
suppressed=(
    # A handle that the vendor returns is taken for the address of the record that it was asked with.
    'danglingLifetime:*adapterlayer/qcomadaptee.cpp'
    'returnDanglingLifetime:*adapterlayer/platformadapter.cpp'
)
# This version does not define the name by which code can tell it.
cppcheck --project="$1/compile_commands.json" -i/usr/src -ibuild/benchmark -D__cppcheck__ \
    -j "$(nproc)" --quiet --error-exitcode=1 --template=gcc \
    --enable=warning,performance,portability --inline-suppr --library=googletest \
    "${suppressed[@]/#/--suppress=}"
