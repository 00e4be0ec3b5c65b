# Sourced by scripts that check the documents: the manual pages have no faults, docs/directives.md lists
# the directives, and each example (a command line or a configuration) is run by a test.
# shellcheck shell=bash

documents=(README.md SECURITY.md CONTRIBUTING.md docs/*.md bench/README.md docs/*.8 docs/*.5.in recipes/*)

# The rows: a pattern for examples, and the test that runs those that match. The first row that matches
# counts.
testers=(
    '^(updateproxy|refetchd-hits|varnishncsa) '                tests/e2e/docs_test.cpp
    '^refetchd-check( |$)'                                     scripts/package-test
    '^refetchd-report '                                        tests/e2e/report_test.cpp
    '^(apt|systemctl|runuser|less|jq|curl) |^scripts/package$' scripts/package-test
    '^(squid|nginx|a2enmod|journalctl|install|promtool|sed) '  scripts/package-test
    '^(BENCH=1 )?(scripts|bench)/|ctest |^mandoc '             scripts/test
    '^(cmake|awk) '                                            scripts/lib/docs.sh
)

# Prints the code in the documents, a piece a line: "example" or "word", a tab, and the code. Examples
# are the lines of indented blocks in Markdown and of displays in manual pages, and what follows "Then"
# in recipes. A configuration, which begins with "updateproxy", is one example: its lines are joined
# with "; ". Words are all other code.
code_in_documents() {
    awk '
    function example(line) {
        sub(/^ +/, "", line)
        sub(/  +# .*/, "", line)
        if (held != "" && held !~ /^updateproxy /) held = held line
        else if (held != "") held = held "; " line
        else held = line
        if (sub(/\\e?$/, "", held) || held ~ /^updateproxy /) return
        end_example()
    }
    function end_example() {
        if (held != "") print "example\t" held
        held = ""
    }
    function words(text, mark) {
        count = split(text, part, mark)
        for (i = 2; i < count; i += 2) print "word\t" part[i]
    }
    function end_paragraph() {
        end_example()
        words(paragraph, "`")
        paragraph = ""
    }
    FNR == 1 { end_paragraph(); fenced = literal = then = 0 }

    FILENAME ~ /md$/ && /^ *```/ { fenced = !fenced; next }
    FILENAME ~ /md$/ && /^    / && !fenced { example($0); next }
    FILENAME ~ /md$/ && /^$/ { end_paragraph() }
    FILENAME ~ /md$/ && !fenced { end_example(); paragraph = paragraph " " $0 }

    FILENAME ~ /^recipes/ {
        then = then && /^#              /
        if (then) example(substr($0, 2))
        if (/Then[^:]*:$/) then = 1
        if (/Then: /) example(substr($0, index($0, "Then: ") + 6))
    }

    /^\.Bd -literal/ { literal = 1; next }
    /^\.Ed/ { literal = 0; end_example(); next }
    literal { example($0) }
    /^\.(Ql|Li|Dl) / { sub(/ [.,;:)]+$/, ""); print "word\t" substr($0, 5) }

    END { end_paragraph() }' "${documents[@]}"
}

directives=$(grep '^[a-z]' docs/directives.txt)

# is_command WORD: the word is a program with arguments, or one of this tree, and not a directive.
is_command() {
    local program=$1
    [[ $1 == *[/\ ]* ]] || return 1
    while [[ $program =~ ^[A-Z_]+=[^\ ]*\ (.*) ]]; do program=${BASH_REMATCH[1]}; done
    program=${program%% *}
    [[ $program =~ ^refetchd(-[a-z]+)?$ ]] && return
    [[ $'\n'$directives$'\n' != *$'\n'$program$'\n'* ]] && type -P -- "$program" >/dev/null
}

examples() {
    local kind code
    code_in_documents | while IFS=$'\t' read -r kind code; do
        if [ "$kind" = example ] || is_command "$code"; then
            printf '%s\n' "$code"
        fi
    done | sort -u
}

# examples_for [TESTER]: prints the examples that this test runs; without TESTER, those that no test runs.
examples_for() {
    local code tester i
    examples | while IFS= read -r code; do
        tester=''
        for ((i = 0; i < ${#testers[@]}; i += 2)); do
            [[ $code =~ ${testers[i]} ]] && tester=${testers[i + 1]} && break
        done
        [ "$tester" != "${1:-}" ] || printf '%s\n' "$code"
    done
}

# Prints the faults of the manual page $1. That another page of ours is not installed here is no fault.
faults_of_manual() {
    mandoc -Tlint "$1" |
        grep -v -E 'referenced manual not found: Xr (refetchd(-check|-hits|-report)?|tarnproxy\.conf) ' || true
    { LC_ALL=C.UTF-8 man --warnings --local-file "$1" >/dev/null; } 2>&1
}

# Prints the commands of a command line, a line each: the program, and the option behind it.
commands_in() {
    printf '%s\n' "${1//' && '/$'\n'}" | sed -E 's/^[A-Z_]+=[^ ]* //; s/^([^ ]+( -+[A-Za-z]+)?)( .*)?$/\1/'
}

# Fails if an example has no test. For scripts/test, this checks that it, or this file, runs the same
# programs with the same first option, most often with less to do. The examples that this file tests are
# run here.
check_examples() {
    local code untested command
    untested=$(examples_for)
    [ -z "$untested" ] || fail "scripts/lib/docs.sh names no test for: $untested"
    examples_for scripts/test | while IFS= read -r code; do
        commands_in "$code" | while IFS= read -r command; do
            # Not in a pipe: a grep that ends early would break it, and with pipefail that is a failure.
            [ "$command" = scripts/test ] ||
                grep -qE -- "(^|[ (])$command( |\$)" <(grep -hv '^ *#' scripts/test scripts/lib/docs.sh) ||
                fail "scripts/test does not run: $command ($code)"
        done
    done
    examples_for scripts/lib/docs.sh | while IFS= read -r code; do
        printf '  %s\n' "$code"
        DESTDIR=$PWD/build/install sh -ec "$code" >build/example.out || fail "it fails: $code"
    done
}

# Prints the lines that the configuration $1 switches on, and the one that the administrator completes.
settings_of() { grep -E '^([a-z]|#loadurl )' "$1" | sort; }

# check_docs BUILD: with the pages that were made there.
check_docs() {
    local page faults
    for page in docs/*.8 "$1"/docs/*.5; do
        faults=$(faults_of_manual "$page")
        [ -z "$faults" ] || fail "$page: $faults"
        printf '  %s\n' "$page"
    done
    if ! diff -B <(awk -v form=page -f docs/directives.awk docs/directives.txt) \
        <(sed -n '/^## /,$p' docs/directives.md); then
        fail "docs/directives.md does not list the directives as docs/directives.txt does"
    fi
    printf '  docs/directives.md\n'
    if ! diff <(settings_of docs/nightly.conf) <(settings_of "$1/docs/tarnproxy.conf"); then
        fail "docs/nightly.conf does not set what the sample configuration sets"
    fi
    printf '  docs/nightly.conf\n'
    check_examples
}
