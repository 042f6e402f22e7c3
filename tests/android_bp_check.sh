#!/usr/bin/env bash
# android_bp_check.sh SOURCE_FOLDER FACTS LIBRARY: Android.bp says what CMake knows (FACTS, written by it) and what
# the built library needs.
set -euo pipefail
cd "$1"
facts=$2
library=$3
readelf=$(command -v llvm-readelf-14 || command -v llvm-readelf)
failures=0

# Each value of Android.bp as a line: the path of its property from the kind of the module on, and the value.
properties=$(awk '
    function path(   name, level) {
        for (level = 1; level <= depth; level++) name = name (level > 1 ? "." : "") names[level]
        return name
    }
    {
        sub(/^[ \t]*\/\/.*/, "")
        while (match($0, /"[^"]*"|[A-Za-z_0-9]+|[^ \t]/)) {
            token = substr($0, RSTART, RLENGTH)
            $0 = substr($0, RSTART + RLENGTH)
            if (token ~ /^"/) print path() (depth ? "." : "") name, substr(token, 2, length(token) - 2)
            else if (token == "{") names[++depth] = name
            else if (token == "}") depth--
            else if (token == "true" || token == "false") print path() "." name, token
            else if (token == "[" || token == "]") lists += token == "[" ? 1 : -1
            else if (token ~ /^[A-Za-z_0-9]+$/) name = token
            else if (token !~ /^[:,]$/) { print "Android.bp:" NR ": unexpected " token > "/dev/stderr"; exit 1 }
            if (depth < 0 || lists < 0) { print "Android.bp:" NR ": unexpected " token > "/dev/stderr"; exit 1 }
        }
    }
    END { if (depth || lists) { print "Android.bp: a bracket is not closed" > "/dev/stderr"; exit 1 } }' Android.bp)

said() { # said PROPERTY...: of the library
    local property
    for property in "$@"; do
        awk -v property="cc_library_shared.$property" '$1 == property { sub(/^[^ ]+ /, ""); print }' <<<"$properties"
    done
}

known() { # known FACT
    sed -nE "s/^$1 (.+)/\1/p" "$facts"
}

compare() { # compare WHAT SAID KNOWN: lists, in any order
    local difference
    difference=$(diff <(sort -u <<<"$2") <(sort -u <<<"$3") |
        sed -nE 's/^< (.*)/    only in Android.bp: \1/p; s/^> (.*)/    missing in Android.bp: \1/p' || true)
    if [ -z "$difference" ]; then
        printf 'ok    %s\n' "$1"
    else
        printf 'FAIL  %s\n%s\n' "$1" "$difference"
        failures=$((failures + 1))
    fi
}

compare "sources" "$(said srcs)" "$(known source | sed 's,^,adapterlayer/,')"
compare "standard of C++" "$(said cpp_std)" "$(known standard)"

# What the build system chooses itself or has a property for.
#   -stdlib                     stl, below
#   -ffile-prefix-map           the paths of this machine
#   -g, -fstandalone-debug      unstripped libraries and symbols are its own matter
arm64=arch.arm64
[ "$(known processor)" = aarch64 ] || arm64=none
compare "flags" "$(said {,$arm64.}{cflags,cppflags})" \
    "$(known compile | grep -vxE -e '-stdlib=.*|-ffile-prefix-map=.*|-g|-fstandalone-debug')"
compare "standard library" "$(said stl)" "$(known compile | sed -n 's/^-stdlib=//p')"

# The linker's flags, each as a line of its own.
link=$(known link | awk '
    sub(/^(LINKER:|-Wl,)/, "") {
        count = split($0, parts, ",")
        for (i = 1; i <= count; i++) {
            if (parts[i] == "-z" || parts[i] == "-soname") { print "-Wl," parts[i] "," parts[i + 1]; i++ }
            else print "-Wl," parts[i]
        }
        next
    }
    { print }')
# Left out here as well:
#   -stdlib, -fuse-ld=lld, -z defs              what it does without being told
#   -soname, --version-script                   stem and version_script, below
#   -nostartfiles, -z force-bti, --fatal-warnings   about the start files of this machine
compare "flags of the linker" "$(said {,$arm64.}ldflags)" \
    "$(grep -vxE -e '-stdlib=.*|-fuse-ld=lld|-nostartfiles' \
        -e '-Wl,(-z,defs|-soname,.*|--version-script=.*|-z,force-bti|--fatal-warnings)' <<<"$link")"
compare "list of exports" "$PWD/$(said version_script)" "$(sed -n 's/^-Wl,--version-script=//p' <<<"$link")"

dynamic=$("$readelf" --dynamic-table "$library")
compare "SONAME" "$(said stem).so" "$(sed -nE 's/.*\(SONAME\).*\[(.*)\]/\1/p' <<<"$dynamic")"
# Without what every C++ library links with.
compare "libraries" "$(said shared_libs)" "$(sed -nE 's/.*\(NEEDED\).*\[([^]]+)\.so.*/\1/p' <<<"$dynamic" |
    grep -vxE 'libc\+\+|libc\+\+abi|libunwind|libgcc_s|libc|libm|ld-linux-.*')"

compare "64 bit, of the vendor" "64 true" "$(said compile_multilib vendor | xargs)"
# The host's header and what it includes are where the header library says.
folder=$(awk '$1 == "cc_library_headers.export_include_dirs" { print $2 }' <<<"$properties")
headers=$(sed -nE 's/^#include "(.*)"/\1/p' adapterlayer/oemlayer_host.h; echo adapterlayer/oemlayer_host.h)
compare "headers for the host" "$(cd "$folder" && ls $headers 2>/dev/null)" "$headers"

[ "$failures" -eq 0 ]
