#!/usr/bin/env bash
# schedules_check.sh SOURCE_FOLDER BUILD_FOLDER: libraries are made by an edit each, with a slip
# that only some orders of results show. The plan that has such orders finds them, in every run the
# same, and the number of one repeats it; another plan finds nothing.
set -euo pipefail
source=$(cd "$1" && pwd) build=$(cd "$2" && pwd)
. "$source/tests/support/rebuild.sh"
failures=0
fail() {
    printf 'FAIL  %s\n' "$*"
    failures=$((failures + 1))
}

run() { timeout 100 "$work/tree/schedules/oemlayer_schedules" "$@" 2>/dev/null || true; }
# What was found, of which order.
found() { sed -nE 's/^found  [^ ]+, order ([0-9]+) of [0-9]+: (.*): \.\/dev.*/\1 \2/p'; }

# expect PLAN BAD WHAT: so many of its orders are bad, and the first of them says that.
expect() {
    local first number what again
    run "$1" >"$work/said"
    grep -q "; $2 BAD, " "$work/said" ||
        fail "$1: $2 bad orders expected: $(tail -n 2 "$work/said")"
    first=$(found <"$work/said" | sed -n 1p)
    number=${first%% *} what=${first#* }
    [[ $what =~ $3 ]] || fail "$1: '$3' expected, '$what' found"
    for again in 2 3; do
        run "$1" | found | cmp -s - <(found <"$work/said") ||
            fail "$1: run $again finds other orders"
    done
    [ "$(run "$1" --order "$number" | found)" = "$first" ] ||
        fail "$1 --order $number: does not repeat it"
    number=$((number + 1))
    found <"$work/said" | grep -q "^$number " ||
        run "$1" --order "$number" | grep -q '^came true' || fail "$1 --order $number: not good"
}

plant schedules
run three | grep -q '^came true' || fail 'three: not good where nothing is edited'
# slip PLAN BAD WHAT GOOD EDIT...: the edits make a library with which all of GOOD stays good.
slip() {
    local edits
    edits=$(printf '%s\n' "${@:5}")
    plant schedules
    if rebuild adapterlayer/camera.oemlayer.adapter.so adapterlayer/qcomadaptee.cpp "$edits"; then
        expect "$1" "$2" "$3"
        run "$4" | grep -q '^came true' || fail "$4: not good"
    else
        failures=$((failures + 1))
    fi
}
# The status is wrong after one row of results: those of the frames 2 3 1 1 3 2.
slip three 1 "^request 2: the completion's status is 1" one-in-call \
    's/^constexpr const char kSubmit/unsigned g_row;\n&/' \
    's/^    StoreRelaxed\(session.offlineFrameNumber.*/&\n    g_row = 0;/' \
    's/^( *)CountReceivedBuffers\(\*.*/&\n\1g_row = 4 * g_row + pResult->frameNumber;/' \
    's/bufferStatus != 0 \?/bufferStatus != 0 || g_row == 2910 ?/'
# The frame number is written once the execute call returned.
slip one-in-call 2 "^request 1: a result's frame number is 0" three \
    's/^    privData.rtFrameNumber = .*//' \
    's/return (ExecuteRequest\(sessHdl.*)/const uint32_t status = \1\n@    return status;/' \
    's/@/    privData.rtFrameNumber = wrapper.rtFrameNumber;\n/'
# What the host completes from within is freed twice.
slip in-completions 312 '^the process died by signal' four \
    's/^( *)RequestPrivData\* pPrivData = pRequest->.*/&\n\1static OfflineRequest* pLast;@/' \
    's/@/\n    pLast = pRequest;/' \
    's/operator delete\(pRequest\)/operator delete(pLast)/'
# A completion does not come right behind the first partial of another request.
slip partials 330 '^request .: no releaseRtBuffers came' four \
    's/^( *)CountReceivedBuffers\(\*.*/\1static uint32_t last;\n\1const uint32_t before = @\n&/' \
    's/@/std::exchange(last, block.numPartialMetadata);/' \
    's/block.numPartialMetadata == 0\)/block.numPartialMetadata == 0 \&\& before != 2)/'
# All requests get the first one's partial number.
slip three 90 "^request [23]: a result's partial number is 257" one-in-call \
    's/privData.partialResultBase \+ kOff/std::min(2U, privData.partialResultBase) + kOff/'
[ "$failures" -eq 0 ]
