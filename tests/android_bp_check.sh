#!/usr/bin/env bash
# android_bp_check.sh SOURCE_FOLDER BUILD_FOLDER PROCESSOR [ANDROID_BP]: Android.bp says what the build did, all of it
# and nothing else; and each unit of the library is compiled with the flags that harden it. What the build did is
# taken from its own commands: compile_commands.json, and the command that linked the library.
set -euo pipefail
source_folder=$1
build=$2
processor=$3
file=${4:-$source_folder/Android.bp}
failures=0

# What Android.bp leaves out on purpose, and why. Every other flag of a command must be in it.
left_out=(
    '-O[23s]|-DNDEBUG'                                 # how the platform optimises is its own matter,
    '-g|-fstandalone-debug'                            # and so are its debug information and symbols
    '-fPIC|-shared|-fuse-ld=lld|-Wl,-z,defs'           # what it does without being told
    '-ffile-prefix-map=.*|-fdebug-compilation-dir=\.'  # about the folders of this machine
    '-Wl,-rpath-link,.*'
    '-isystem /.*/include/android'                     # there, `header_libs`
    '--target=.*|--sysroot=.*|-nostdinc\+\+|-(iwithsysroot |L=)/usr/lib/llvm-14/.*|-Wno-unused-command-line-argument'
    '-nostartfiles|-Wl,-z,force-bti|-Wl,--fatal-warnings' # about Debian's start files for arm64
)
cpp_only='-fno-exceptions|-fno-rtti|-fvisibility-inlines-hidden'
arm64_only='-mbranch-protection=standard|-mno-outline-atomics'

# What each unit must have, as the last flag of its family.
hardened=(
    '-f(no-)?stack-protector(-strong|-all)?  -fstack-protector-strong'
    '(-[DU])?_FORTIFY_SOURCE.*               -D_FORTIFY_SOURCE=2'
    '-O.*                                    -O[23s]'
    '-f(no-)?(cxx-)?exceptions               -fno-exceptions'
    '-f(no-)?rtti                            -fno-rtti'
    '-f(no-)?(PIC|pic)                       -fPIC'
    '-fvisibility=.*                         -fvisibility=hidden'
    '-f(no-)?visibility-inlines-hidden       -fvisibility-inlines-hidden'
)

fail() {
    printf 'FAIL  %s\n' "$1"
    failures=$((failures + 1))
}

compile_commands() {
    sed -nE 's/^  "command": "(.*)",?$/\1/p' "$build/compile_commands.json" | sed -E 's/\\(["\\])/\1/g'
}

link_command() { # of Makefiles, or of Ninja
    { cat "$build/adapterlayer/CMakeFiles/oemlayer_adapter.dir/link.txt" 2>/dev/null || ninja -C "$build" -t commands; } |
        sed -nE '/ -o (adapterlayer\/)?camera\.oemlayer\.adapter\.so /{s/^: && //; s/ && .*//; p}'
}

# The words behind the compiler, one a line, those that belong together on one: `-isystem FOLDER`, `-Wl,-z,now`.
words() {
    xargs printf '%s\n' | awk '
        NR == 1 { next }
        function linker(word) {
            if (taking != "") { print "-Wl," taking "," word; taking = "" }
            else if (word == "-z" || word == "-soname") taking = word
            else print "-Wl," word
        }
        $0 == "-Xlinker" { getline; linker($0); next }
        sub(/^-Wl,-rpath-link,/, "") { print "-Wl,-rpath-link," $0; next }
        sub(/^-Wl,/, "") { count = split($0, parts, ","); for (i = 1; i <= count; i++) linker(parts[i]); next }
        /^(-o|-c|-isystem|-iwithsysroot|-I|-D|-U|-include)$/ { printf "%s ", $0; getline }
        { print }'
}

needed_words() { grep -vxE -e "$(IFS='|' && printf '%s' "${left_out[*]}")"; }

compiled() { # what a compile command means, as properties
    words | needed_words | sed -E "
        s,^-c $source_folder/,srcs = ,; t
        /^-o /d
        s,^-I$source_folder/?\$,local_include_dirs = .,; t
        s,^-I,local_include_dirs = ,; t
        s,^-std=,cpp_std = ,; t
        s,^-stdlib=,stl = ,; t
        s,^-DOEMLAYER_LOG_LEVEL=[0-4]\$,cflags = -DOEMLAYER_LOG_LEVEL=LEVEL,; t
        s,^($cpp_only)\$,cppflags = &,; t
        s,^($arm64_only)\$,arch.arm64.cflags = &,; t
        s,^,cflags = ,"
}

linked() { # what the link command means
    words | needed_words | sed -E "
        /^-o |\.o\$|^-stdlib=/d
        s,^-Wl\,-soname\,(.*)\.so\$,stem = \1,; t
        s,^-Wl\,--version-script=$source_folder/,version_script = ,; t
        s,^(.*/)?device/.*\.so\$,shared_libs = a library of the device,; t
        s,^/.*/(lib[a-z]+)\.so\$,shared_libs = \1,; t
        s,^,ldflags = ," | awk '!/^stem/ || !stems[$0]++'
}

header_libraries() { # header_libraries FILE...: where the platform's headers come from
    sed -nE 's,^#include <android/.*,liblog_headers,p; s,^#include <(cutils|system|utils|hardware)/.*,lib\1_headers,p' \
        "$@" | sort -u
}

of() { sed "s/^/$1 = /"; }

# The order of a property's flags counts, that of files and libraries does not.
in_order() {
    local lines
    lines=$(cat)
    grep 'flags = ' <<<"$lines" | sort -s -k 1,1
    grep -v 'flags = ' <<<"$lines" | sort
}

built() {
    local root=$source_folder/adapterlayer platform=$source_folder/platform
    cat <<TEXT
cc_library_headers.name = camera.oemlayer.adapter_headers
cc_library_headers.vendor = true
cc_library_headers.compile_multilib = 64
cc_library_headers.export_include_dirs = .
cc_library_shared.name = camera.oemlayer.adapter
cc_library_shared.vendor = true
cc_library_shared.compile_multilib = 64
TEXT
    header_libraries "$root/oemlayer_host.h" "$platform"/{abi.h,android/camera3.h} |
        sed -E 's/.*/cc_library_headers.header_libs = &\ncc_library_headers.export_header_lib_headers = &/'
    header_libraries "$root"/*.{h,cpp} "$platform"/*/*.h | of cc_library_shared.header_libs
    { printf '%s\n' "$units" "$flags" "$link"; } | sed '/^$/d; s/^/cc_library_shared./'
    # The flags for arm64 are known to a build for it only.
    [ "$processor" = aarch64 ] || tr '|' '\n' <<<"$arm64_only" | of cc_library_shared.arch.arm64.cflags
}

# Android.bp as lines `module.property = value`. Its values are texts, truth values, lists and maps.
said() {
    awk '
        function stop(what) { print "Android.bp:" line[at] ": " what > "/dev/stderr"; failed = 1; exit 1 }
        function take(pattern, what) { if (token[at] !~ pattern) stop(what " wanted, not " token[at]); return token[at++] }
        function map(path,   name) {
            take("^{$", "{")
            if (token[at] == "}") print path " = {}"
            while (token[at] != "}") {
                name = path "." take("^[a-z_0-9]+$", "a property")
                if (seen[module, name]++) stop(name " is there already")
                take("^:$", ":")
                value(name)
                if (token[at] != "}") take("^,$", ", or }")
            }
            at++
        }
        function list(path) {
            at++
            if (token[at] == "]") print path " = []"
            while (token[at] != "]") {
                text(path)
                if (token[at] != "]") take("^,$", ", or ]")
            }
            at++
        }
        function text(path,   word) { word = take("^\"", "a text"); print path " = " substr(word, 2, length(word) - 2) }
        function value(path) {
            if (token[at] == "{") map(path)
            else if (token[at] == "[") list(path)
            else if (token[at] ~ /^(true|false)$/) print path " = " token[at++]
            else text(path)
        }
        {
            sub(/^[ \t]*\/\/.*/, "")
            while (match($0, /"[^"]*"|[A-Za-z_0-9]+|[^ \t]/)) {
                token[++count] = substr($0, RSTART, RLENGTH)
                line[count] = NR
                $0 = substr($0, RSTART + RLENGTH)
            }
        }
        END {
            line[count + 1] = NR
            for (at = 1; !failed && at <= count;) { module++; map(take("^[a-z_]+$", "a module")) }
            exit failed
        }' "$file"
}

# What may be another one on a device: the log level, the folder, and the names of the device's own libraries.
platform_libraries() { sed -n 's/^shared_libs = \(lib.*\)/\1/p' <<<"$link"; }
normalised() {
    sed -E "s/(cflags = -DOEMLAYER_LOG_LEVEL=)[0-4]\$/\1LEVEL/; /^cc_library_shared\.relative_install_path = /d
        /^cc_library_shared\.shared_libs = ($(platform_libraries | paste -sd '|'))\$/b
        s/^(cc_library_shared\.shared_libs = )[A-Za-z0-9_.@+:\/-]+\$/\1a library of the device/"
}

link=$(link_command | linked)
units= flags=
for object in $(link_command | words | sed -n 's,.*CMakeFiles/\(.*\.o\)$,\1,p'); do
    properties=$(compile_commands | { grep -F "/$object " || echo "- -c '$source_folder/$object'"; } | compiled)
    units+=$(sed -n '/^srcs/p' <<<"$properties")$'\n'
    properties=$(sed '/^srcs/d' <<<"$properties")
    flags=${flags:-$properties}
    [ "$properties" = "$flags" ] || fail "$object has flags of its own"
done

if ! lines=$(said); then
    fail "Android.bp is not well formed"
elif difference=$(diff <(normalised <<<"$lines" | in_order) <(built | in_order)); then
    printf 'ok    Android.bp, %s values\n' "$(wc -l <<<"$lines")"
else
    fail "Android.bp"
    sed -nE 's/^< (.*)/    only in Android.bp: \1/p; s/^> (.*)/    only in the build: \1/p' <<<"$difference"
fi

[ "$processor" != aarch64 ] || hardened+=(
    '-mbranch-protection=.*         -mbranch-protection=standard' '-m(no-)?outline-atomics     -mno-outline-atomics')
count=0
while IFS= read -r command; do
    unit=$(words <<<"$command")
    name=$(sed -n "s,^-c $source_folder/adapterlayer/,,p" <<<"$unit")
    count=$((count + 1))
    for row in "${hardened[@]}"; do
        read -r family wanted <<<"$row"
        last=$(grep -xE -e "$family" <<<"$unit" | tail -n 1 || true)
        grep -qxE -e "$wanted" <<<"$last" || fail "$name: $wanted wanted, ${last:-nothing} found"
    done
done < <(compile_commands | grep -F -e "-c $source_folder/adapterlayer/" -e "-c \"$source_folder/adapterlayer/")
[ "$count" -gt 0 ] || fail "compile_commands.json has no unit of the library"
[ "$failures" -gt 0 ] || printf 'ok    hardening of %d units\n' "$count"

[ "$failures" -eq 0 ]
