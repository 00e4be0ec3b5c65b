# Sourced by scripts/test: checks who includes whom.
# shellcheck shell=bash

# The floors of server/refetchd/, the lowest first. A file includes files of its own floor, of the
# floors below it, and of library/; "." is the top floor: start-up, run loop and main programs.
floors=(base url report config parse fetch .)

# Prints each include of floor $1 that is not in one of the floors that follow.
includes_above() {
    local floor=$1 allowed
    shift
    allowed=$(printf '%s|' "$@")
    # A name with a folder must name an allowed one; a bare name is of library/ (HT..., htthread,
    # tfprintf), or of the top floor itself.
    grep -nE '^#include "' "server/refetchd/$floor"/*.cpp "server/refetchd/$floor"/*.h |
        grep -vE "\"(${allowed%|})/[^/]*\.h\"|\"(HT[A-Za-z]*|htthread|tfprintf)\.h\"" |
        if [ "$floor" = . ]; then grep -vE '"(CA[a-z]*|refetchd)\.h"'; else cat; fi
}

# Prints a circle among the headers of the project, if there is one.
header_circles() {
    find library server -name '*.h' | while read -r header; do
        sed -nE "s|^#include \"(.*/)?([A-Za-z]+\.h)\".*|${header##*/} \2|p" "$header"
    done | { tsort >/dev/null || true; } 2>&1
}

check_layers() {
    local i found
    if grep -nE '#include *[<"](.*/.*\.h"|refetchd|CA[A-Za-z]+\.h)' library/*.cpp library/*.h; then
        fail "library/ must not include anything of the agent"
    fi
    for i in "${!floors[@]}"; do
        found=$(includes_above "${floors[i]}" "${floors[@]:0:i+1}") || true
        [ -z "$found" ] || fail "floor ${floors[i]} includes what is not below it: $found"
    done
    found=$(header_circles)
    [ -z "$found" ] || fail "headers include each other in a circle: $found"
    find server/refetchd -mindepth 1 -maxdepth 1 -type d -printf '%f\n' | sort |
        diff - <(printf '%s\n' "${floors[@]}" | grep -vxF . | sort) ||
        fail "scripts/lib/layers.sh does not list the folders of server/refetchd/"
}
