#!/usr/bin/env bash
# Builds the fuzzers as OSS-Fuzz and ClusterFuzzLite want them. The environment has: CXX, CXXFLAGS
# (CC, CFLAGS for what CMake tries), LIB_FUZZING_ENGINE, WORK for what is built on the way, and
# OUT, below which everything is afterwards that runs, wherever that folder is moved. SRC is not
# needed: the sources are those around this file. Beside the compiler it takes what `./dev setup`
# installs, and patchelf.
set -euo pipefail
: "${CXX:?}" "${LIB_FUZZING_ENGINE:?}" "${WORK:?}" "${OUT:?}"
source=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$WORK/oemlayer

# The sanitizers of the flags, so that what depends on them knows; fuzzing is none.
sanitize=
for flag in ${CXXFLAGS:-}; do
    [[ $flag != -fsanitize=* || $flag == -fsanitize=fuzzer* ]] || sanitize+=,${flag#*=}
done
# AFL++ follows what clang's fuzzers do: not the device, whose libraries are opened late, when it
# takes none.
mkdir -p "$build" "$OUT/lib"
printf 'src:*%s\n' adapterlayer/\* view/\* contract/recording.cpp >"$build/followed.txt"
export AFL_LLVM_ALLOWLIST=$build/followed.txt

cmake -S "$source" -B "$build" -G Ninja -Wno-dev -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DOEMLAYER_FUZZ=ON -DBUILD_TESTING=OFF "-DOEMLAYER_SANITIZE=${sanitize#,}" \
    "-DLIB_FUZZING_ENGINE=$LIB_FUZZING_ENGINE"
cmake --build "$build" --target fuzz_table fuzz_config fuzz_log fuzz_recording

cp -r "$build/device" "$OUT"
programs=()
for corpus in "$source"/fuzz/corpus/*; do
    name=fuzz_$(basename "$corpus")
    programs+=("$OUT/$name")
    cp "$build/fuzz/$name" "$OUT"
    cp "$source/fuzz/${name#fuzz_}.options" "$OUT/$name.options"
    rm -f "$OUT/${name}_seed_corpus.zip"
    (cd "$corpus" && cmake -E tar cf "$OUT/${name}_seed_corpus.zip" --format=zip -- *)
done

# What they take from this machine, but for the C library, and one list of folders in the programs:
# a library with one of its own would look for what it takes nowhere else.
mapfile -t libraries < <(find "$OUT/device" -name '*.so')
ldd "${programs[@]}" "${libraries[@]}" | sed -nE 's,.* => (/[^ ]+) .*,\1,p' | sort -u |
    grep -vE "^$build/|/(libc|libm|libdl|librt|libpthread|ld-linux[^/]*)\.so\.[0-9]+$" |
    xargs -r cp -Lt "$OUT/lib"
folders='$ORIGIN/lib'
for folder in vendor/lib64 odm/lib64 system/lib64; do folders+=":\$ORIGIN/device/$folder"; done
for file in "${libraries[@]}" "$OUT"/lib/*; do patchelf --remove-rpath "$file"; done
for file in "${programs[@]}"; do patchelf --force-rpath --set-rpath "$folders" "$file"; done
