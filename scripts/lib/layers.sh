# Sourced by scripts/test: checks which files include which.
# shellcheck shell=bash

# The layers of server/refetchd/, the lowest first. A file includes files of its own layer, of the
# layers below it, and of library/; "." is the top layer: start-up, run loop and main programs.
layers=(base url report config parse fetch .)

# includes_above LAYER ALLOWED...: prints each include of the layer that is not from library/ or one
# of the allowed layers.
includes_above() {
    local layer=$1 allowed
    shift
    allowed=$(printf '%s|' "$@")
    # A name with a folder must be in an allowed one. A name without is from library/ (HT...,
    # htthread, tfprintf), or from the top layer, which alone may include it.
    grep -nE '^#include "' "server/refetchd/$layer"/*.cpp "server/refetchd/$layer"/*.h |
        grep -vE "\"(${allowed%|})/[^/]*\.h\"|\"(HT[A-Za-z]*|htthread|tfprintf)\.h\"" |
        if [ "$layer" = . ]; then grep -vE '"(CA[a-z]*|refetchd)\.h"'; else cat; fi
}

# Prints the headers of the project that include each other in a circle, if there are any.
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
    for i in "${!layers[@]}"; do
        found=$(includes_above "${layers[i]}" "${layers[@]:0:i+1}") || true
        [ -z "$found" ] || fail "layer ${layers[i]} includes what is not below it: $found"
    done
    found=$(header_circles)
    [ -z "$found" ] || fail "headers include each other in a circle: $found"
    find server/refetchd -mindepth 1 -maxdepth 1 -type d -printf '%f\n' | sort |
        diff - <(printf '%s\n' "${layers[@]}" | grep -vxF . | sort) ||
        fail "scripts/lib/layers.sh does not list the folders of server/refetchd/"
}
