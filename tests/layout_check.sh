#!/usr/bin/env bash
# layout_check.sh FILE [LAYOUTS]: the records of the boundary have the layouts that the text LAYOUTS says. FILE is a
# library with debug information, or the debug file of a stripped one, of any architecture: sizes, offsets and types
# of the members are read from there. The records are those whose size the headers assert. Without LAYOUTS, prints
# such a text.
set -euo pipefail
file=$1
layouts=${2:-}
headers=$(dirname "${BASH_SOURCE[0]}")/..

if ! command -v pahole >/dev/null; then
    printf "layout_check.sh: pahole is not installed. './dev setup' installs it.\n" >&2
    exit 2
fi
mapfile -t records < <(grep -ohP '^ *ABI_SIZE\(\K\w+' "$headers"/adapterlayer/*.h "$headers"/platform/*/*.h | sort -u)
[ "${#records[@]}" -gt 0 ]

# Each record once, without the remarks on cache lines and holes.
found=$(for record in "${records[@]}"; do
    pahole --class_name "$record" "$file" 2>/dev/null | awk -v record="$record" '
        $1 ~ /^(struct|class|union)$/ && $2 == record && !done { inside = done = 1 }
        !inside || /^\t\/\*/ && !/\/\* size: / || /^$/ { next }
        { sub(/, cachelines: .*, members/, ", members"); gsub(/[ \t]+/, " "); print }
        /^\}/ { inside = 0 }
        END { if (!done) print record, "is not in the debug information" }'
done)
if [ -z "$layouts" ]; then
    printf '%s\n' "$found"
elif difference=$(diff <(grep -v '^#' "$layouts") - <<<"$found"); then
    printf 'ok    %d records\n' "${#records[@]}"
else
    printf 'FAIL  layouts: wanted <, found >\n%s\n' "$difference"
    exit 1
fi
