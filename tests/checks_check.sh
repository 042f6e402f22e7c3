#!/usr/bin/env bash
# checks_check.sh LIBRARY PROCESSOR COMPILER [ARGUMENTS...]: each check, given what it is there for,
# fails and says so. What it is given is made here: a library of one tiny source, and doctored
# copies.
set -euo pipefail
built=$1 processor=$2
shift 2
compiler=("$@")
cd "$(dirname "${BASH_SOURCE[0]}")"
readonly objcopy=$(command -v llvm-objcopy-14 || command -v llvm-objcopy)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

expect() { # expect LINE COMMAND...: the command fails and prints the line. An empty one: it passes
    local line=$1 output status=0
    shift
    output=$("$@" 2>&1) || status=$?
    if [ -n "$line" ] && [ "$status" -ne 0 ] && grep -qxF -- "$line" <<<"$output"; then return; fi
    if [ -z "$line" ] && [ "$status" -eq 0 ]; then return; fi
    printf 'FAIL  not seen: %s\n%s\n' "$line" "$output"
    failures=$((failures + 1))
}

# The library's file.
library=$work/camera.oemlayer.adapter.so
cat >"$work/tiny.cpp" <<'TEXT'
#include <stdlib.h>
#include <string.h>
extern "C" void Copy(char* to, const char* from) {
    char text[64];
    strcpy(text, from);
    asm volatile("" ::"r"(text), "r"(to) : "memory");
    CALL;
}
TEXT
mkdir "$work/lists"
echo "GLOBAL Copy" >"$work/lists/exported_symbols.txt"
printf '%s\n' GLOBAL\ __{stack_chk_fail,strcpy_chk} >"$work/lists/imported_symbols.$processor.txt"
echo libc.so.6 >"$work/lists/needed.$processor.txt"
if [ "$processor" = aarch64 ]; then
    echo "GLOBAL __stack_chk_guard" >>"$work/lists/imported_symbols.$processor.txt"
    echo ld-linux-aarch64.so.1 >>"$work/lists/needed.$processor.txt"
fi
split() {
    "$objcopy" --only-keep-debug "$library" "$library.debug"
    "$objcopy" --strip-all --add-gnu-debuglink="$library.debug" "$library"
}
elf() { # elf LINE FLAGS [COMMAND_AFTER_LINKING]
    rm -f "$library"*
    "${compiler[@]}" -shared -nostdlib -fuse-ld=lld -fPIC -O2 -g -DCALL= -U_FORTIFY_SOURCE \
        -D_FORTIFY_SOURCE=2 -fstack-protector-strong ${protection:-} -Wl,-z,now,-z,separate-code \
        -Wl,-z,max-page-size=16384,-z,common-page-size=16384,--as-needed,--build-id=sha1 \
        -Wl,-soname,camera.oemlayer.adapter.so $2 \
        -Wno-everything -o "$library" "$work/tiny.cpp" -lc ${protection:+-l:ld-linux-aarch64.so.1}
    "${3:-split}"
    expect "${1:+FAIL  $1}" bash elf_check.sh "$library" "$work/lists" "$processor" Release
}
[ "$processor" != aarch64 ] || protection=-mbranch-protection=standard
without_name() { split && "$objcopy" --remove-section=.gnu_debuglink "$library"; }
another_debug_file() { split && "$objcopy" --remove-section=.note.gnu.build-id "$library.debug"; }
elf "" ""
while IFS='|' read -r line flags after; do elf "$line" "$flags" "$after"; done <<'TEXT'
exported symbols|-DCopy=Duplicate
imported symbols|-DCALL=abort()
SONAME|-Wl,-soname,other.so
needed libraries|-Wl,--no-as-needed -l:libm.so.6
immediate binding|-Wl,-z,lazy
no run path|-Wl,-rpath,/vendor
no text relocation|-Wl,-z,notext -DCALL=asm(".quad\tCopy")
alignment of the loaded segments|-Wl,-z,max-page-size=4096
RELRO, up to the end of a page|-Wl,-z,norelro
no segment that is writable and executable|-DCALL=asm(".section\t.both,\"awx\";.byte\t0;.previous")
a stack that is not executable|-Wl,-z,execstack
code in pages of its own|-Wl,-z,noseparate-code
build id|-Wl,--build-id=none
stack protector|-fno-stack-protector
fortified calls|-U_FORTIFY_SOURCE
stripped||true
name of the debug file||without_name
debug information|-g0
build id of the debug file||another_debug_file
TEXT
[ "$processor" != aarch64 ] ||
    elf "landing pads and signed return addresses" -mbranch-protection=none

# Calls that Android's C library may lack, and another Android.bp.
grep -vx dlopen android_calls.txt >"$work/calls"
expect dlopen bash android_calls_check.sh "$built" "$work/calls"
sed '/"libzlog"/d' ../Android.bp >"$work/Android.bp"
expect '-        "libzlog",' bash android_bp_check.sh ../Android.bp "$work/Android.bp"
sed '/"fuzz\/model.cpp"/d' ../Android.bp >"$work/Android.bp"
expect '-        "fuzz/model.cpp",' bash android_bp_check.sh ../Android.bp "$work/Android.bp"
[ "$failures" -eq 0 ]
