#!/usr/bin/env bash
# reproducible_check.sh CMAKE SOURCE_FOLDER [CMAKE_ARGUMENTS...]: the release library and its debug file are the same,
# byte for byte, when they are built from two copies of the source in two folders.
set -euo pipefail
cmake=$1
source=$2
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# build SOURCE_COPY BUILD_FOLDER [CMAKE_ARGUMENTS...]
build() {
    mkdir -p "$1"
    (cd "$source" && cp -R CMakeLists.txt cmake adapterlayer platform standin host tools "$1")
    "$cmake" -S "$1" -B "$2" "${@:3}" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF -Wno-dev --log-level=WARNING
    "$cmake" --build "$2" --target oemlayer_adapter
}

if ! { build "$work/one" "$work/one/build" "$@" &&
    build "$work/the other folder" "$work/elsewhere" "$@"; } >"$work/log" 2>&1; then
    cat "$work/log"
    exit 1
fi
for file in camera.oemlayer.adapter.so camera.oemlayer.adapter.so.debug; do
    cmp "$work/one/build/adapterlayer/$file" "$work/elsewhere/adapterlayer/$file"
    printf 'ok    %s\n' "$file"
done
