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
