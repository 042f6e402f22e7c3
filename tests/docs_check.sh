#!/usr/bin/env bash
# docs_check.sh SOURCE_FOLDER: every test that the documents name exists, and so does every function
# that the contract names, whose rules are those of contract/rules.h. Each record's size is
# asserted, and its layout tested.
set -euo pipefail
cd "$1"
names=$(grep -hE '^TEST(_P)?\(' tests/*.cpp | sed -E 's/^TEST(_P)?\(//; s/\).*//; s/, /./')
quoted=$(grep -ohE '`[A-Z][A-Za-z]+\.([A-Z][A-Za-z]+|\*)`' docs/*.md README.md | tr -d '`')
[ -n "$quoted" ]
status=0
wrong() { # wrong WHAT: is said, and fails the check in the end
    printf '%s\n' "$*"
    status=1
}
while read -r name; do
    pattern="^${name//./\\.}\$"
    grep -qE "${pattern/%\*\$/}" <<<"$names" || wrong "no such test: $name"
done <<<"$quoted"

listed=$(sed -nE 's/^ *RULE\([A-Za-z]+, ([VHR][0-9]+), .*/\1/p' contract/rules.h)
# A row begins with its anchor: the number in small letters, as links have it.
row='^\| <a id="([vhr][0-9]+)"></a>([VHR][0-9]+) \|'
rows=$(grep -E '^\| .*[VHR][0-9]+ \|' docs/contract.md)
[ -n "$listed" ]
diff <(sed -E 's/.*/\L&\E &/' <<<"$listed") <(sed -E "s,$row.*,\1 \2," <<<"$rows") ||
    wrong 'the rules of contract/rules.h (<) and docs/contract.md (>) are not the same'
while read -r row; do
    places=$(grep -oE '`[A-Za-z]+` in `[a-z_/.]+`' <<<"$row" | tr -d '`') || {
        wrong "watched nowhere: $row"
        continue
    }
    while read -r function _ file; do
        grep -qE "\b$function\(" "$file" || wrong "no such function: $function in $file"
    done <<<"$places"
done <<<"$rows"
# What the documents say of a record's size is asserted in the code.
sizes=$(grep -ohE '`[A-Za-z]+`, [0-9]+ bytes' docs/*.md | tr -d '`,' | sort -u)
[ -n "$sizes" ]
while read -r record size _; do
    asserted="(ABI_SIZE\\(|sizeof\\()$record(,|\\) ==) $size\\)"
    grep -qE "$asserted" platform/*/*.h adapterlayer/*.h tests/kept_leaks_test.cpp ||
        wrong "not asserted: $record has $size bytes"
done <<<"$sizes"
# Every record whose size the headers assert is in the tests' own list, too.
while read -r record; do
    grep -qE "RECORD\\(([A-Za-z]+::)*$record," tests/layout_test.cpp ||
        wrong "not in tests/layout_test.cpp: $record"
done < <(grep -ohP '^ *ABI_SIZE\(\K\w+' adapterlayer/*.h platform/*/*.h)
exit "$status"
