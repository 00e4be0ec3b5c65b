# Sourced by other scripts: checks that a program was built with protection against attacks.
# shellcheck shell=bash

# The rows: a property, the readelf options that show it, and a pattern for the line that does.
hardening=(
    'position-independent'   '-dW' 'FLAGS_1.* PIE'
    'relocations read-only'  '-lW' 'GNU_RELRO'
    'bound at start'         '-dW' 'FLAGS_1.* NOW'
    'no executable stack'    '-lW' 'GNU_STACK.* RW '
    'stack protector'        '-sW' ' __stack_chk_fail'
    'checked buffers'        '-sW' ' __(mem|str|vsn?|sn?|vfp|fp)[a-z]+_chk'
)

# check_hardening PROGRAM: fails unless the program has all these properties.
check_hardening() {
    local i
    for ((i = 0; i < ${#hardening[@]}; i += 3)); do
        if ! readelf "${hardening[i + 1]}" "$1" | grep -E "${hardening[i + 2]}" >/dev/null; then
            fail "$1 is not hardened: ${hardening[i]}"
        fi
        printf '  %s\n' "${hardening[i]}"
    done
}
