#!/usr/bin/env bash
# install_check.sh CMAKE BUILD_FOLDER COMPILER [COMPILER_ARGUMENTS...]: what is installed, with
# which modes, the layers only where they are asked for, that the libraries are the built ones, and
# that a host can be compiled against the installed headers.
set -euo pipefail
cmake=$1 build=$2
shift 2
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
# install WANTED [ARGUMENTS...]: whatever the umask is.
install() {
    rm -rf "${tree:?}"/*
    (umask 077 && "$cmake" --install "$build" --prefix "$tree" "${@:2}" >/dev/null)
    diff <(printf '%s\n' "$1") <(find "$tree" -type f -printf '%m %P\n' | LC_ALL=C sort -k 2)
    diff <(echo 755) <(find "$tree" -mindepth 1 -type d -printf '%m\n' | sort -u)
}

install "644 layers/camera.oemlayer.layer.so
644 layers/com.qti.chi.offline.layer.so
644 layers/symbols/camera.oemlayer.layer.so.debug
644 layers/symbols/com.qti.chi.offline.layer.so.debug" --component layers
for layer in "$tree"/layers/*.so; do cmp "$layer" "$build/layer/$(basename "$layer")"; done
printf 'ok    the layers\n'

install "644 include/adapterlayer/oemlayer_host.h
644 include/platform/abi.h
644 include/platform/android/camera3.h
644 symbols/vendor/lib64/camera.oemlayer.adapter.so.debug
644 vendor/lib64/camera.oemlayer.adapter.so"
printf 'ok    files and modes\n'

cmp "$tree/vendor/lib64/camera.oemlayer.adapter.so" "$build/adapterlayer/camera.oemlayer.adapter.so"
printf 'ok    the library\n'

printf '#include "adapterlayer/oemlayer_host.h"\nOemLayer::OfflineDataWraper wrapper;\n' |
    "$@" -std=c++20 -stdlib=libc++ -I "$tree/include" -Wall -Werror -fsyntax-only -x c++ -
printf 'ok    a host against the installed headers\n'
