#!/usr/bin/env bash
# layout_compare.sh ONE OTHER: the records of the boundary have the same layout in both files. A file is a library
# with debug information, or the debug file of a stripped one, of any architecture: sizes, offsets and types of the
# members are read from there. The records are those whose size the headers assert.
set -euo pipefail
one=$1
other=$2
cd "$(dirname "${BASH_SOURCE[0]}")/.."
failures=0

if ! command -v pahole >/dev/null; then
    printf "layout_compare.sh: pahole is not installed. './dev setup' installs it.\n" >&2
    exit 2
fi
mapfile -t records < <(grep -ohP '^ *ABI_SIZE\(\K\w+' adapterlayer/*.h platform/*/*.h | sort -u)
[ "${#records[@]}" -gt 0 ]

# layouts FILE FOLDER: a file for each record, with the remarks on cache lines and holes left out.
layouts() {
    local names
    names=$(IFS=, && printf '%s' "${records[*]}")
    pahole --class_name "$names" "$1" 2>/dev/null | awk -v folder="$2" '
        /^(struct|class|union) [A-Za-z0-9_]+ *(:.*)?\{$/ { file = folder "/" $2 }
        /^\t\/\*/ && !/\/\* size: / || /^$/ { next }
        { sub(/, cachelines: .*, members/, ", members"); gsub(/[ \t]+/, " "); if (file != "") print > file }
        /^\}/ { file = "" }'
}

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/one" "$folder/other"
layouts "$one" "$folder/one"
layouts "$other" "$folder/other"
for record in "${records[@]}"; do
    if [ ! -s "$folder/one/$record" ] || [ ! -s "$folder/other/$record" ]; then
        printf 'FAIL  %s is not in the debug information\n' "$record"
        failures=$((failures + 1))
    elif ! diff -U 0 "$folder/one/$record" "$folder/other/$record" >"$folder/difference"; then
        printf 'FAIL  %s\n%s\n' "$record" "$(sed '/^\(---\|+++\|@@\)/d' "$folder/difference")"
        failures=$((failures + 1))
    else
        printf 'ok    %s: %s\n' "$record" "$(grep -oP 'size: \d+, members: \d+' "$folder/one/$record" | tail -n 1)"
    fi
done

[ "$failures" -eq 0 ]
