# Sourced by scripts/test: the manual pages have no fault, and README.md lists the directives.
# shellcheck shell=bash

# What is wrong with the manual page $1; nothing when it is well. Pages of ours that are not
# installed here are no fault.
faults_of_manual() {
    mandoc -Tlint "$1" |
        grep -v -E 'referenced manual not found: Xr (refetchd(-check|-hits)?|tarnproxy\.conf) ' || true
    { LC_ALL=C.UTF-8 man --warnings --local-file "$1" >/dev/null; } 2>&1
}

# check_docs BUILD: with the pages that were made there.
check_docs() {
    local page faults
    for page in docs/*.8 "$1"/docs/*.5; do
        faults=$(faults_of_manual "$page")
        [ -z "$faults" ] || fail "$page: $faults"
        printf '  %s\n' "$page"
    done
    if ! diff <(awk -v form=readme -f docs/directives.awk docs/directives.txt) \
        <(grep -E "^\| \`[a-z]+\` \| \`" README.md); then
        fail "README.md does not list the directives as docs/directives.txt does"
    fi
    printf '  README.md lists the directives\n'
}
