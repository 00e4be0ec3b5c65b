# Sourced by scripts/test: checks which files include which.
# shellcheck shell=bash

# The layers of server/refetchd/, the lowest first. A file includes files of its own layer, of the
# layers below it, and of library/; "." is the top layer: start-up, run loop and main programs.
layers=(base url report config parse fetch .)

# Prints "FILE NAME" for each include in the C++ files of a folder, quotes and angle brackets alike.
includes_of() {
    local file
    for file in "$1"/*.cpp "$1"/*.h; do
        sed -nE "s|^ *# *include *[<\"]([^\">]*)[\">].*|$file \1|p" "$file"
    done
}

# The project's own headers: those in a folder of the agent, those of library/ and of the top layer.
# A system header in a folder, such as <sys/stat.h>, is none.
own_in_folder="^[^ ]* (.*/)?($(printf '%s|' "${layers[@]:0:6}")\.\.?|server|library)/"
own_top='^[^ ]* (CA[A-Za-z]*|refetchd)\.h$'

# includes_above LAYER ALLOWED...: prints each include of the layer that is not from library/ or one
# of the allowed layers.
includes_above() {
    local layer=$1 allowed
    shift
    allowed=$(printf '%s|' "$@")
    includes_of "server/refetchd/$layer" | grep -E "$own_in_folder|$own_top" |
        grep -vE " (${allowed%|})/[^/]*$" |
        if [ "$layer" = . ]; then grep -vE "$own_top"; else cat; fi
}

# Prints the headers of the project that include each other in a circle, if there are any.
header_circles() {
    find library server -name '*.h' | while read -r header; do
        sed -nE "s|^#include \"(.*/)?([A-Za-z]+\.h)\".*|${header##*/} \2|p" "$header"
    done | { tsort >/dev/null || true; } 2>&1
}

check_layers() {
    local i found
    found=$(includes_of library | grep -E "$own_in_folder|$own_top") || true
    [ -z "$found" ] || fail "library/ includes files of the agent: $found"
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
