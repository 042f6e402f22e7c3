#!/usr/bin/env bash
# checks_check.sh SOURCE_FOLDER BUILD_FOLDER PROCESSOR COMPILER [ARGUMENTS...]: each check, given what it is there for,
# fails and says so. What it is given is made here: a library of one tiny source, and doctored copies.
set -euo pipefail
source_folder=$1 build=$2 processor=$3
shift 3
compiler=("$@")
cd "$source_folder/tests"
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
        -D_FORTIFY_SOURCE=2 -fstack-protector-strong ${protection:-} -Wl,-z,now,-z,separate-code,-z,max-page-size=16384 \
        -Wl,-z,common-page-size=16384,--as-needed,--build-id=sha1,-soname,camera.oemlayer.adapter.so $2 \
        -Wno-everything -o "$library" "$work/tiny.cpp" -lc ${protection:+-l:ld-linux-aarch64.so.1}
    "${3:-split}"
    expect "${1:+FAIL  $1}" bash elf_check.sh "$library" "$work/lists" Release
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
no segment that is writable and executable|-DCALL=asm(".pushsection\t.both,\"awx\";.byte\t0;.popsection")
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
[ "$processor" != aarch64 ] || elf "landing pads and signed return addresses" -mbranch-protection=none

# Records, and calls that Android's C library may lack.
layouts() { expect "FAIL  layouts: wanted <, found >" bash layout_check.sh "$debug_file" "$work/layouts"; }
debug_file=$build/adapterlayer/camera.oemlayer.adapter.so.debug
sed '/ cameraId; /s/ 8 4 / 4 8 /' layouts.txt >"$work/layouts" && layouts
sed '/^struct ZOfflineLogOps/,/^}/d' layouts.txt >"$work/layouts" && layouts
grep -vx dlopen android_calls.txt >"$work/calls"
expect dlopen bash android_calls_check.sh "${debug_file%.debug}" "$work/calls"

# Android.bp against the build: in copies of it, and of the build's records of its commands, one thing is changed.
declare -A original=([bp]=../Android.bp [compile]=$build/compile_commands.json [link]=$work/commands)
declare -A copy=([bp]=$work/Android.bp [compile]=$work/build/compile_commands.json
    [link]=$work/build/adapterlayer/CMakeFiles/oemlayer_adapter.dir/link.txt)
mkdir -p "$(dirname "${copy[link]}")"
cat "${copy[link]/#"$work/build"/"$build"}" >"$work/commands" 2>/dev/null || ninja -C "$build" -t commands >"$work/commands"
while IFS='|' read -r what edit line; do
    for kind in bp compile link; do cp "${original[$kind]}" "${copy[$kind]}"; done
    sed -i -E "$edit" "${copy[$what]}"
    ! cmp -s "${original[$what]}" "${copy[$what]}" || expect "something changed by $edit" false
    expect "$line" bash android_bp_check.sh "$source_folder" "$work/build" "$processor" "$work/Android.bp"
done <<'TEXT'
bp|s/"lib(zlog)"/"\/\/maker:device-\1"/; s/LEVEL=0/LEVEL=2/; s/^    stem:/    relative_install_path: "hw",\n&/|
bp|s/LEVEL=0/LEVEL=5/|    only in Android.bp: cc_library_shared.cflags = -DOEMLAYER_LOG_LEVEL=5
bp|s/"libzlog"/&, "libmore"/|    only in Android.bp: cc_library_shared.shared_libs = a library of the device
bp|/"liblog"/d|    only in the build: cc_library_shared.shared_libs = liblog
bp|s/^    stl:/    rtti: true,\n&/|    only in Android.bp: cc_library_shared.rtti = true
bp|s/^    arch: \{/& x86_64: { cflags: ["-g"] },/|    only in Android.bp: cc_library_shared.arch.x86_64.cflags = -g
bp|s/^    srcs:/    exclude_srcs: [],\n&/|    only in Android.bp: cc_library_shared.exclude_srcs = []
bp|/^    header_libs:/,/\]/d|    only in the build: cc_library_headers.header_libs = libcutils_headers
bp|/export_include_dirs/d|    only in the build: cc_library_headers.export_include_dirs = .
bp|0,/vendor: true/s//vendor: false/|    only in Android.bp: cc_library_headers.vendor = false
bp|s/adapter_headers"/adapter_header"/|    only in the build: cc_library_headers.name = camera.oemlayer.adapter_headers
bp|s/^    srcs:/    stl: "none",\n&/|Android.bp:28: cc_library_shared.stl is there already
bp|s/"-Wall",/"-Wall"/|Android.bp:39: , or ] wanted, not "-Wextra"
bp|s/"-Wall",/&\n"-mno-outline-atomics",/|    only in Android.bp: cc_library_shared.cflags = -mno-outline-atomics
bp|s/"-U_FORTIFY_SOURCE",//; s/"-D_FORTIFY_SOURCE=2",/&\n"-U_FORTIFY_SOURCE",/|    only in Android.bp: cc_library_shared.cflags = -D_FORTIFY_SOURCE=2
compile|s/ -fno-rtti / -fwrapv&/|    only in the build: cc_library_shared.cflags = -fwrapv
compile|s/ -fno-rtti / -I\/more&/|    only in the build: cc_library_shared.local_include_dirs = /more
compile|/qcomadaptee/s/ -fno-rtti / -g3&/|FAIL  oemlayer_adapter_objects.dir/qcomadaptee.cpp.o has flags of its own
compile|s/ -fno-rtti / /|FAIL  qcomadaptee.cpp: -fno-rtti wanted, nothing found
compile|s/ -c / -fno-stack-protector&/|FAIL  qcomadaptee.cpp: -fstack-protector-strong wanted, -fno-stack-protector found
compile|s/ -c / -U_FORTIFY_SOURCE&/|FAIL  platformadapter.cpp: -D_FORTIFY_SOURCE=2 wanted, -U_FORTIFY_SOURCE found
compile|s/stack-protector-strong/stack-protector/|FAIL  qcomadaptee.cpp: -fstack-protector-strong wanted, -fstack-protector found
compile|s/ -fno-exceptions / /|FAIL  platformadapter.cpp: -fno-exceptions wanted, nothing found
link|s/ -shared / -flto=thin&/|    only in the build: cc_library_shared.ldflags = -flto=thin
link|s/ [^ ]*libzlog\.so/ libmore.a&/|    only in the build: cc_library_shared.ldflags = libmore.a
link|s/ [^ ]*qcomadaptee\.cpp\.o/& CMakeFiles\/more.cpp.o/|    only in the build: cc_library_shared.srcs = more.cpp.o
TEXT
[ "$failures" -eq 0 ]
