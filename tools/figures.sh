# For scripts what kit/figures.h is for programs: note figure NAME VALUE UNIT [LEAST [MOST]],
# note finding TEXT, note build FILE.
note() {
    [ -n "${FIGURES:-}" ] || return 0
    [ "$1" != build ] || set -- build "$(realpath "$2")"
    (
        IFS=$'\t'
        set -- "${@//[$'\t\n']/ }"
        printf '%s\n' "$*" >>"$FIGURES"
    )
}

# outlast_signals: one that ends the programs of a script leaves it the time to note what they did.
# $interrupted is then the status to end with, and 0 before.
outlast_signals() {
    interrupted=0
    trap 'interrupted=129' HUP
    trap 'interrupted=130' INT
    trap 'interrupted=143' TERM
}
