#!/usr/bin/env bash
# campaign_check.sh SOURCE_FOLDER BUILD_FOLDER: campaigns of faults on a small scenario. What is
# split, or killed and gone on with, comes to the same bytes; each class is seen as such; and a slip
# of the library that only two faults together show is found by pairs, and by nothing else.
set -euo pipefail
source=$(cd "$1" && pwd) build=$(cd "$2" && pwd)
. "$source/tests/support/rebuild.sh"
failures=0
tiny=$work/tiny.json
printf '{"cameras": [{"requests": 2, "frames": 1, "width": 128, "height": 96}]}\n' >"$tiny"

complain() {
    printf 'FAIL  %s\n' "$*"
    sed 's/^/      /' "$work/said"
    failures=$((failures + 1))
}
# campaign STATUS ARGUMENTS: with the library of the tree.
campaign() {
    local wanted=$1 found=0
    timeout 100 "$work/tree/campaign/oemlayer_campaign" "${@:2}" >"$work/said" 2>&1 || found=$?
    [ "$found" -eq "$wanted" ] || complain "status $wanted expected, $found found: ${*:2}"
}
# has PATTERN: what the last campaign said.
has() { grep -q -- "$1" "$work/said" || complain "not said: $1"; }
same() { cmp -s "$1" "$2" || complain "$1 and $2 differ"; }

plant host campaign
cd "$work"
some=(--scenario "$tiny" --most-calls 2)

# --- Files of results
campaign 0 "${some[@]}" --file whole
has '^all .* 0  *0  *0  *0$'
for shard in 1 2 3; do campaign 0 "${some[@]}" --shard $shard/3 --jobs 1 --file ./$shard; done
mv out/whole whole
campaign 0 --merge ./3 ./1 ./2 -o ./merged
same merged whole

name=$(basename "$tiny")
campaign 2 --merge ./1 ./2
has 'no file has shard 3/3'
sed '3d' 1 >short
campaign 2 --merge ./short ./2 ./3
has "^./short: these cells are missing.*:"
has "$name: fail"
campaign 2 --merge ./1 ./2 ./3 ./2
has "^./2: this cell is in ./2, too: .*$name: fail"
sed 's/"as documented"/"crash"/' 2 >other
campaign 2 --merge ./1 ./2 ./3 ./other
has "where it is 'as documented' and here 'crash': .*$name: "
sed '1s/"library":"/&0/' 2 >other
campaign 2 --merge ./1 ./other ./3
has '^./other: is of another build of the library'
campaign 2 --scenario "$tiny" --most-calls 1 --file ./whole
has '^./whole: is of another set of cells.*--anew'
campaign 2 "${some[@]}" --shard 2/3 --file ./1
has '^./1: is of another shard'
campaign 2 "${some[@]}" --file "$tiny"
has "^$tiny:1: this is no line of a campaign's results"

# --- Killed, with a line that is torn
"$work/tree/campaign/oemlayer_campaign" "${some[@]}" --file ./killed >/dev/null 2>&1 &
killed=$!
until [ -s killed ] && [ "$(wc -l <killed)" -gt 20 ]; do kill -0 $killed; done
kill -9 $killed
wait $killed 2>/dev/null || true
printf '{"scenario":"tin' >>killed
campaign 0 "${some[@]}" --file ./killed
grep -Eq '^resumed +[2-9][0-9] of ' "$work/said" || complain 'nothing is resumed'
same killed whole

# --- Classes: the campaign sees them, and so does the command that repeats them.
# classed CLASS TEXT STATUS ARGUMENTS: of all cells; the status is the host's.
classed() {
    local command found=0
    campaign 1 --scenario "$tiny" --file ./classed --anew "${@:4}"
    grep -q "^{\"scenario\".*\"class\":\"$1\",\"text\":\"[^\"]*$2" classed || complain "no $1: $2"
    command=$(sed -n "s/.*\"class\":\"$1\".*\"command\":\".\/dev host \(.*\)\"}/\1/p" classed |
        head -n 1)
    eval "timeout 100 $work/tree/host/oemlayer_host $command" >"$work/said" 2>&1 ||
        found=$?
    [ "$found" -eq "$3" ] || complain "status $3 expected, $found found: $command"
}
export REAL_ADAPTER=$build/adapterlayer/camera.oemlayer.adapter.so BROKEN_ADAPTER
broken=$build/tests/libbroken_adapter.so
while IFS='|' read -r BROKEN_ADAPTER class text status limit; do
    classed "$class" "$text" "$status" --library "$broken" --limit "$limit" --fault MetadataDestroy
done <<'TEXT'
abort 102|crash|died by signal 6|134|40
hang 102|hang|its time was over|142|1
refuse 102|violation|refused with status 4 for no reason|1|40
TEXT

# Where something is to go wrong the host takes the library that logs, unless it is named.
adapter=adapterlayer/camera.oemlayer.adapter.so
while IFS='|' read -r class text status edit; do
    plant host campaign
    rebuild "$adapter" adapterlayer/qcomadaptee.cpp "$edit" || failures=$((failures + 1))
    classed "$class" "$text" "$status" --library "$work/tree/$adapter" --fault MetadataDestroy
done <<'TEXT'
leak|metadata left at the vendor|1|s/pRequest->pAdaptee->DestroyMetadata\(.*/;/
leak|blocks of 208 bytes|0|s/^    delete pRequest->pOutputBuffer;//
violation|H7 release exactly once|1|s/^ *pHost->releaseRtBuffers\(pPrivData\);/&\n&/
TEXT

# --- What only two faults show
plant host campaign
slip='if (output.pMetadata == nullptr) abort();'
rebuild "$adapter" adapterlayer/qcomadaptee.cpp \
    "s/^ *OEM_LOG_ERROR_IN\(kSubmit, \"ExecuteRequest failed/$slip\n&/" ||
    failures=$((failures + 1))
campaign 0 "${some[@]}" --file ./singles
classed crash 'died by signal 6' 134 --library "$work/tree/$adapter" --most-calls 2 --pairs \
    --fault ExecuteRequest --fault MetadataCreate --fault MetadataDestroy
# Whichever of the two stands first.
execute='"fail ExecuteRequest[^"]*"' create='"[a-z]* MetadataCreate[^"]*"'
if grep '"class":"crash"' classed | grep -Ev "\[($execute,$create|$create,$execute)\]" >"$work/said"
then
    complain 'other cells crash'
fi
[ "$failures" -eq 0 ]
