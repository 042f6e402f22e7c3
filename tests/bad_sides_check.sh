#!/usr/bin/env bash
# bad_sides_check.sh SOURCE_FOLDER BUILD_FOLDER: vendors and adapters that do one thing wrong are
# made by one edit each of the stand-in and of the library, and run under the host: exactly the rule
# that fits is broken, as the host reports, as the recording tells, and as the layers told the log.
# None is where nothing is edited.
set -euo pipefail
source=$(cd "$1" && pwd) build=$(cd "$2" && pwd)
. "$source/tests/support/rebuild.sh"
failures=0

run() { # run SCENARIO: leaves what the host said, what the layers told the log, and a recording
    rm -f "$work/run.rec"
    timeout 100 "$work/tree/host/oemlayer_host" "$1" --watch --record "$work/run.rec" \
        >"$work/said" 2>"$work/log" || true
    "$build/view/oemlayer_view" check "$work/run.rec" >"$work/checked" || true
    sed -nE 's/^violation +([VHR].*)/\1/p' "$work/checked" >"$work/recorded"
    sed -nE 's/^CamLayer(Host|Vendor) E .* ([VHR][0-9]+ .*)/\2/p' "$work/log" >"$work/told"
}

rules_of() { sed -E 's/ .*//' | sort -u | paste -sd' '; }

# The places where rules are watched: each prints the rules that the last run broke.
broken_here() { sed -nE 's/^violation +([VHR].*)/\1/p' "$work/said" | rules_of; }
in_recording() {
    [ -s "$work/checked" ] || echo 'no recording'
    rules_of <"$work/recorded"
}
on_the_log() { # the same lines, each once
    cmp -s "$work/recorded" "$work/told" || printf 'other lines than recorded, of '
    rules_of <"$work/told"
}

expect() { # expect RULE CAMERA VENDOR: of the tree that is planted, with a scenario's settings
    local place found
    printf '{"cameras": [{"frames": 1, "width": 128, "height": 96%s}], "vendor": {%s}}\n' \
        "$2" "$3" >"$work/scenario.json"
    run "$work/scenario.json"
    for place in broken_here in_recording on_the_log; do
        found=$("$place")
        [ "$found" = "$1" ] && continue
        printf "FAIL  %s: '%s' expected, '%s' found\n" "$place" "$1" "$found"
        failures=$((failures + 1))
    done
}

plant host
expect '' '' ''

while IFS='|' read -r rule file camera vendor edit; do
    case $file in
    session) library=device/system/lib64/libstandin.so ;;
    offline | metadata) library=device/vendor/lib64/hw/com.qti.chi.offline.so ;;
    *) library=adapterlayer/camera.oemlayer.adapter.so ;;
    esac
    folder=standin
    [ "$library" = "${library#adapterlayer}" ] || folder=adapterlayer
    if [ "$camera" = lends ]; then
        camera=', "output": "on-request"' vendor='"frameworkBuffers": true'
    fi
    plant host
    if rebuild "$library" "$folder/$file.cpp" "$edit"; then
        expect "$rule" "$camera" "$vendor"
    else
        failures=$((failures + 1))
    fi
done <<'TEXT'
R1|offline|, "features": ["A", "B"]||s/return (handle;)/static auto a=\1 return a;/;s/kFailed;/kOk;/
R3|offline|||s/^    return stream;/    stream.height += isOutput ? 2 : 0;\n    return stream;/
R4|offline|||s/(offlineFrame =) device->nextFrame\+\+/\1 -1/
R5|session|||s/^ *records->buffer = output;/static auto a = *callbacks; callbacks = \&a; &/
R9|session|||s/(frameNumber = .*offlineFrame\))/\1 + 1/
R10|session|||s/^( *\{\{.metadata = true\}, \{.buffer = true)\}/\1, .partials = 1}, {}/
R13|session|lends||s/OutputStream\(\)\), 1/data.streamPointers[0]), 1/; s/(returned ==) 1/\1 9/
V5|offline|||s/^    session->Stop\(\);/&\n    return kFailed;/
V23|metadata|||s/return Remove<Metadata>.*/return metadata != nullptr ? kFailed : kOk; }/
V24|metadata|||s/Remove<AndroidMetadata>\(android\)/android == nullptr/
V3|qcomadaptee|||s/reserved24 = nullptr/reserved24 = pInfo/
V12|qcomadaptee|||s/(offlineFrameNumber,) -1/\1 0/
V13|qcomadaptee|||s/(pRecord->size = )sizeof.*/\1200;/
V17|qcomadaptee|||s/(pFormat->cfaPattern =) (.*);/\1 \2 + 77;/
V23|qcomadaptee|||s/pRequest->pAdaptee->DestroyMetadata\(.*/;/
H2|qcomadaptee|||s/(kOfflinePartialResult =) 255/\1 254/
H7|qcomadaptee|||s/^ *pHost->releaseRtBuffers\(pPrivData\);/&\n&/
H9|qcomadaptee|||s/kStatusFailure : kStatusOk\)/kStatusOk : kStatusFailure)/
H9|qcomadaptee||"shape": "error-buffer"|s/kStatusFailure : kStatusOk\)/kStatusOk : kStatusOk)/
V30|qcomadaptee|||s/^ *mpOfflineBufferOps->pClose\(mpOfflineBufferOps\);//
TEXT
[ "$failures" -eq 0 ]
