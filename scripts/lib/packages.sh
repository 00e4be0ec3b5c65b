# Sourced by the other scripts: prints what they do, and installs the Debian packages that they need.
# shellcheck shell=bash

# What the build needs.
build_packages=(g++ cmake ninja-build pkgconf libicu-dev libssl-dev zlib1g-dev libbrotli-dev libzstd-dev
    libexpat1-dev libsimdjson-dev)

say() { printf '\n==> %s\n' "$*"; }

fail() {
    printf 'error: %s\n' "$*" >&2
    exit 1
}

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

have_package() {
    dpkg-query --show --showformat='${Status}' "$1" 2>/dev/null | grep -q 'ok installed'
}

# Installs those of the named packages that are missing. Unless the machine has a policy-rc.d of its
# own, there is one during the installation that keeps new daemons from being started.
need_packages() {
    local policy=/usr/sbin/policy-rc.d placed=0 status=0 package
    local -a missing=()
    for package in "$@"; do
        have_package "$package" || missing+=("$package")
    done
    if [ "${#missing[@]}" -eq 0 ]; then
        say "All packages that this needs are installed."
        return
    fi
    say "Installing: ${missing[*]}"
    if [ "$(id -u)" -ne 0 ] && ! command -v sudo >/dev/null; then
        fail "packages are missing; run this as root or install sudo"
    fi
    if [ ! -e "$policy" ]; then
        printf '#!/bin/sh\nexit 101\n' | as_root tee "$policy" >/dev/null
        as_root chmod 755 "$policy"
        placed=1
    fi
    {
        as_root apt-get update -qq &&
            as_root env DEBIAN_FRONTEND=noninteractive \
                apt-get install -y -qq --no-install-recommends "${missing[@]}"
    } </dev/null || status=$?
    if [ "$placed" -eq 1 ]; then
        as_root rm -f "$policy"
    fi
    [ "$status" -eq 0 ] || fail "apt-get could not install them"
}
