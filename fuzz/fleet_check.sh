#!/usr/bin/env bash
# fleet_check.sh FOLDER [SECONDS]: what oss_fuzz_build.sh makes runs with another engine, AFL++,
# each fuzzer for some seconds, where nothing of the building machine is: below FOLDER,
# everything is moved or gone after the build. Then a slip in the library is found.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../tools/figures.sh"
source=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
mkdir -p "$1"
work=$(cd "$1" && pwd) seconds=${2:-10}
export CC=afl-clang-fast CXX=afl-clang-fast++ LIB_FUZZING_ENGINE=-fsanitize=fuzzer
export CFLAGS='-O1 -gline-tables-only -fsanitize=address' WORK=$work/built OUT=$work/out
export CXXFLAGS=$CFLAGS AFL_QUIET=1 AFL_NO_UI=1 AFL_SKIP_CPUFREQ=1 AFL_NO_AFFINITY=1
export AFL_I_DONT_CARE_ABOUT_MISSING_CRASHES=1
failures=0
outlast_signals

build() { # build SOURCES: the last build goes on, and $OUT moves
    rm -rf "$OUT" "$work/moved"
    "$1/fuzz/oss_fuzz_build.sh" >"$work/build.txt" 2>&1 || { cat "$work/build.txt" && exit 1; }
    mv "$OUT" "$work/moved"
}

# run NAME SEEDS [MORE]: leaves numbers in $executions and $crashes
run() {
    local stats=$work/found/default/fuzzer_stats
    rm -rf "$work/found"
    timeout --foreground $((seconds + 60)) afl-fuzz -i "$2" -o "$work/found" -V "$seconds" \
        -m none -t 5000+ -- "$work/moved/$1" >"$work/$1.txt" 2>&1 || true
    executions=$(sed -n 's/^execs_done *: //p' "$stats" 2>/dev/null || true)
    crashes=$(sed -n 's/^saved_crashes *: //p' "$stats" 2>/dev/null || true)
    note build "$work/moved/$1"
    note figure "$1${3:-}; executions" "${executions:-0}" ""
    note figure "$1${3:-}; crashes" "${crashes:-0}" ""
    printf '%-15s %9s executions, %s crashes\n' "$1" "${executions:-no}" "${crashes:-no}"
    [ "$interrupted" -eq 0 ] || exit "$interrupted"
}
expect() { # expect WHAT COMMAND...
    "${@:2}" || {
        note finding "$1"
        printf 'FAIL  %s\n' "$1"
        failures=$((failures + 1))
    }
}

rm -rf "$work/sources" "$WORK"
mkdir -p "$work/sources"
(cd "$source" && git ls-files -z | xargs -0 cp --parents -t "$work/sources")
build "$work/sources"
mv "$WORK" "$work/gone"
for name in "$work"/moved/fuzz_*.options; do
    name=$(basename "$name" .options)
    seeds=$work/seeds/$name
    rm -rf "$seeds" && mkdir -p "$seeds"
    (cd "$seeds" && cmake -E tar xf "$work/moved/${name}_seed_corpus.zip")
    ldd "$work/moved/$name" >"$work/ldd.txt"
    expect "$name takes libraries of this machine" [ -z \
        "$(grep '=> /' "$work/ldd.txt" | grep -vE "=> ($work/moved/|/.*/lib[cm]\.so)")" ]
    run "$name" "$seeds"
    expect "$name does not run" [ "${executions:-0}" -gt 0 ]
    expect "$name crashes" [ "${crashes:-1}" -eq 0 ]
done

# A table of two values a row is read as if it had more; the corpus has no row. (AFL++'s driver
# begins with an input of its own, of three values.)
mv "$work/gone" "$WORK"
sed -i 's/index < mCount/(& || mCount == 2)/' "$work/sources/adapterlayer/featurerow.h"
build "$work/sources"
mkdir -p "$work/seeds/none" && printf '\0' >"$work/seeds/none/none"
run fuzz_config "$work/seeds/none" ", with a slip"
expect 'the slip is not found' [ "${crashes:-0}" -gt 0 ]
[ "$failures" -eq 0 ]
