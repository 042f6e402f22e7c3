#!/usr/bin/env bash
# tagged_heap_check.sh SOURCE_FOLDER BUILD_FOLDER EMULATOR...: the library for a device dies of each
# kind of fault that a tagged heap is there for, and only there: without tags the same library runs
# to its end, so that no other check of the C library can be what is seen.
set -euo pipefail
source=$(cd "$1" && pwd) build=$(cd "$2" && pwd)
shift 2
emulator=("$@")
. "$source/tests/support/rebuild.sh"
failures=0
# Six times: where memory has been taken again, one in fifteen stale tags fits by chance.
printf '{"cameras": [{"requests": 6, "frames": 1, "width": 128, "height": 96}]}' \
    >"$work/scenario.json"

expect() { # expect STATUS WHAT [VARIABLE=VALUE...]: how the planted tree's host ends
    local wanted=$1 what=$2 status=0
    shift 2
    (ulimit -c 0 && exec env -u GLIBC_TUNABLES QEMU_CPU=max "$@" timeout 100 "${emulator[@]}" \
        "$work/tree/host/oemlayer_host" "$work/scenario.json") >"$work/said" 2>&1 || status=$?
    [ "$status" -ne "$wanted" ] || return 0
    printf 'FAIL  %s%s: status %s instead of %s\n' "$what" "${1:+ with $1}" "$status" "$wanted"
    tail -n 5 "$work/said"
    failures=$((failures + 1))
}
tagged=GLIBC_TUNABLES=glibc.mem.tagging=3

seed() { # seed FAULT EDIT: the fault is seen with tags, and without them by nothing
    plant host
    if rebuild adapterlayer/camera.oemlayer.adapter.so adapterlayer/qcomadaptee.cpp "$2"; then
        expect 139 "$1" "$tagged"
        expect 0 "$1"
    else
        failures=$((failures + 1))
    fi
}

plant host
expect 0 'no fault' "$tagged"
seed 'a use after free' \
    's/^ *::operator delete\(pRequest\);/& StoreRelaxed(pRequest->numReceivedBuffers, 0U);/'
# Plainly twice would be seen by the C library without tags.
seed 'a double free of memory that was taken again' \
    's/^ *return pRequest;/void* p = TAKE; GIVE; (void)TAKE; GIVE; &/
    s/TAKE;/::operator new(999);/g; s/GIVE;/::operator delete(p);/g'
seed 'a write 16 bytes too far' \
    's/^ *return pRequest;/volatile char\& last = pBlock[size + 15]; last = last; &/'
[ "$failures" -eq 0 ]
