#!/usr/bin/env bash
# install_check.sh CMAKE BUILD_FOLDER COMPILER [COMPILER_ARGUMENTS...]: what is installed, with
# which modes, that the library is the built one, and that a host can be compiled against the
# installed headers.
set -euo pipefail
cmake=$1 build=$2
shift 2
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
# Whatever the umask is.
(umask 077 && "$cmake" --install "$build" --prefix "$tree" >/dev/null)

wanted="644 include/adapterlayer/oemlayer_host.h
644 include/platform/abi.h
644 include/platform/android/camera3.h
644 symbols/vendor/lib64/camera.oemlayer.adapter.so.debug
644 vendor/lib64/camera.oemlayer.adapter.so"
diff <(printf '%s\n' "$wanted") <(find "$tree" -type f -printf '%m %P\n' | LC_ALL=C sort -k 2)
diff <(echo 755) <(find "$tree" -mindepth 1 -type d -printf '%m\n' | sort -u)
printf 'ok    files and modes\n'

cmp "$tree/vendor/lib64/camera.oemlayer.adapter.so" "$build/adapterlayer/camera.oemlayer.adapter.so"
printf 'ok    the library\n'

printf '#include "adapterlayer/oemlayer_host.h"\nOemLayer::OfflineDataWraper wrapper;\n' |
    "$@" -std=c++20 -stdlib=libc++ -I "$tree/include" -Wall -Werror -fsyntax-only -x c++ -
printf 'ok    a host against the installed headers\n'
