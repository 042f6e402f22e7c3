#!/usr/bin/env bash
# newest_clang.sh BUILD_FOLDER: every warning of the newest clang that the project builds with, and of its libc++, over
# all code of a configured build.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
database=$1/compile_commands.json
version=19

# Debian installs one libc++ at a time. The headers of this one are unpacked beside the build.
libcxx=$PWD/build/lint/libc++-$version
if [ ! -d "$libcxx" ]; then
    rm -rf "$libcxx.new"
    mkdir -p "$libcxx.new"
    (
        cd "$libcxx.new"
        download() { apt-get download "libc++-$version-dev" "libc++abi-$version-dev" >log 2>&1; }
        # The second attempt is for a machine whose package lists are gone.
        download || { apt-get update >/dev/null && download; } || { cat log >&2 && exit 2; }
        for package in *.deb; do
            dpkg-deb -x "$package" .
        done
    )
    mv "$libcxx.new" "$libcxx"
fi

# All warnings but these.
options=(
    -Weverything -Werror
    # Not this project's language or compiler.
    -Wno-c++98-compat -Wno-c++98-compat-pedantic
    # The layout of records is fixed and asserted.
    -Wno-padded
    # The boundary is one of C arrays and pointers.
    -Wno-unsafe-buffer-usage
    # The texts of log lines are fixed, with %d for words and %p for every pointer.
    -Wno-format-signedness -Wno-format-pedantic
    # What a designated initialiser leaves out is zero, on purpose.
    -Wno-missing-designated-field-initializers
    # Objects of a program's life, in the stand-in, the demo and the tests.
    -Wno-global-constructors -Wno-exit-time-destructors
    # A `default` is wanted where a switch does not name every value (-Wswitch), and only there.
    -Wno-switch-enum -Wno-switch-default
    # No lock is taken twice in one call chain; annotating that would mark every function.
    -Wno-thread-safety-negative
    # A name of a function around a lambda that does not capture it.
    -Wno-shadow-uncaptured-local
    # GoogleTest's macros.
    -Wno-used-but-marked-unused
)
# More for a folder.
standin=(
    # The vendor's functions are found by their names at run time; no header has them.
    -Wno-missing-prototypes
)
tests=(
    # Offsets and counts are written as plain numbers.
    -Wno-sign-conversion
    -Wno-missing-noreturn
)

# The commands of the build but those of the frameworks for tests and benchmarks, without their libc++ and object file.
commands() {
    sed -nE 's/^  "command": "(.*)",?$/\1/p' "$database" | grep -v -e ' /usr/src/googletest/[^ ]*$' -e '/build/benchmark/source/[^ ]*$' |
        sed -E 's/\\(["\\])/\1/g; s/^[^ ]+ //; s/ -stdlib=[^ ]+//; s/ -o [^ ]+ -c / -fsyntax-only /' | sort -u
}

commands | while IFS= read -r command; do
    case $command in
    *" $PWD/standin/"*) more=("${standin[@]}") ;;
    *" $PWD/tests/"*) more=("${tests[@]}") ;;
    *) more=() ;;
    esac
    printf 'clang++-%s -nostdinc++ -isystem "%s/usr/lib/llvm-%s/include/c++/v1" %s %s\0' \
        "$version" "$libcxx" "$version" "$command" "${options[*]} ${more[*]}"
done | xargs -0 -P "$(nproc)" -n 1 bash -c
