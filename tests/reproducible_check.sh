#!/usr/bin/env bash
# reproducible_check.sh CMAKE SOURCE_FOLDER BUILT SYSROOT TOOLCHAIN [CMAKE_ARGUMENTS...]: the
# release libraries and their debug files in the build folder BUILT are the same, byte for byte, as
# those of a copy of the source, built in another folder, against a sysroot with another name where
# there is one. TOOLCHAIN is a file of the source folder, or empty.
set -euo pipefail
cmake=$1 source=$2 built=$3 sysroot=$4 toolchain=$5
shift 5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
copy="$work/the other folder" other="$work/else where"

mkdir "$copy"
tar -C "$source" --exclude='./build*' --exclude=./out --exclude=./.git -c . | tar -C "$copy" -x
if [ -n "$toolchain" ]; then
    ln -s "$sysroot" "$work/the sysroot"
    set -- "$@" "-DCMAKE_TOOLCHAIN_FILE=$copy/$toolchain" "-DOEMLAYER_SYSROOT=$work/the sysroot"
fi
if ! { "$cmake" -S "$copy" -B "$other" "$@" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF &&
    "$cmake" --build "$other" --target oemlayer_adapter oemlayer_host_layer \
        oemlayer_vendor_layer; } >"$work/log" 2>&1; then
    cat "$work/log"
    exit 1
fi
for library in adapterlayer/camera.oemlayer.adapter layer/camera.oemlayer.layer \
    layer/com.qti.chi.offline.layer; do
    for file in "$library.so" "$library.so.debug"; do
        cmp "$other/$file" "$built/$file"
        printf 'ok    %s\n' "$file"
    done
done
