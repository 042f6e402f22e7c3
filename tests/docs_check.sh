#!/usr/bin/env bash
# docs_check.sh SOURCE_FOLDER: every test that the documents name exists.
set -euo pipefail
cd "$1"
names=$(grep -hE '^TEST(_P)?\(' tests/*.cpp | sed -E 's/^TEST(_P)?\(//; s/\).*//; s/, /./')
quoted=$(grep -ohE '`[A-Z][A-Za-z]+\.([A-Z][A-Za-z]+|\*)`' docs/*.md README.md | tr -d '`' | sort -u)
[ -n "$quoted" ]
status=0
while read -r name; do
    pattern="^${name//./\\.}\$"
    if ! grep -qE "${pattern/%\*\$/}" <<<"$names"; then
        printf 'no such test: %s\n' "$name"
        status=1
    fi
done <<<"$quoted"
exit "$status"
