#!/usr/bin/env bash
# reproducible_check.sh CMAKE SOURCE_FOLDER BUILT SYSROOT TOOLCHAIN [CMAKE_ARGUMENTS...]: the release library and its
# debug file are the same, byte for byte, when they are built from two copies of the source in two folders, against a
# sysroot with two names where there is one, and the same as those in the folder BUILT. TOOLCHAIN is a file of the
# source folder, or empty.
set -euo pipefail
cmake=$1 source=$2 built=$3 sysroot=$4 toolchain=$5
shift 5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# build SOURCE_COPY BUILD_FOLDER [CMAKE_ARGUMENTS...]
build() {
    local cross=() own_sysroot
    own_sysroot="$work/sysroot of ${1##*/}"
    mkdir -p "$1"
    (cd "$source" && cp -R CMakeLists.txt cmake adapterlayer platform standin kit host soak bench tools "$1")
    if [ -n "$toolchain" ]; then
        ln -s "$sysroot" "$own_sysroot"
        cross=("-DCMAKE_TOOLCHAIN_FILE=$1/$toolchain" "-DOEMLAYER_SYSROOT=$own_sysroot")
    fi
    "$cmake" -S "$1" -B "$2" "${@:3}" "${cross[@]}" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF -Wno-dev \
        --log-level=WARNING
    "$cmake" --build "$2" --target oemlayer_adapter
}

if ! { build "$work/one" "$work/one/build" "$@" &&
    build "$work/the other folder" "$work/else where" "$@"; } >"$work/log" 2>&1; then
    cat "$work/log"
    exit 1
fi
for file in camera.oemlayer.adapter.so camera.oemlayer.adapter.so.debug; do
    cmp "$work/one/build/adapterlayer/$file" "$work/else where/adapterlayer/$file"
    cmp "$work/one/build/adapterlayer/$file" "$built/$file"
    printf 'ok    %s\n' "$file"
done
