# Makes the list of directives from directives.txt: as rows of README.md's table, as the part of
# tarnproxy.conf(5), or as the body of the sample configuration.
#
#     awk -v form=readme|man|sample -f directives.awk directives.txt

/^(#|$)/ { next }

/^= / { finish(); section(substr($0, 3)); next }

/^[a-z]/ { finish(); name = $1; next }

{
    value = $0
    sub(/^ +[a-z]+ +/, "", value)
    if ($1 in field) value = field[$1] "\n" value
    field[$1] = value
}

END {
    finish()
    if (form == "man") print ".El"
}

function finish() {
    if (name == "") return
    if (form == "readme") readme()
    else if (form == "man") man()
    else sample()
    name = ""
    split("", field)
}

function section(title) {
    if (form == "man") {
        if (sections++) print ".El"
        print ".Ss " title
        print ".Bl -tag -width Ds"
    } else if (form == "sample") {
        rule = sprintf("%76s", "")
        gsub(/ /, "-", rule)
        printf "\n# %s\n# %s\n", title, rule
    }
}

function readme() {
    argument = code(field["argument"])
    gsub(/\|/, "\\|", argument)
    printf "| `%s` | %s | %s | %s |\n", name, argument, field["default"], field["text"]
}

function code(text) { return "`" text "`" }

# The text with its marks replaced: `code` and *name*, each by what stands before and behind it.
function marked(text, literal, slanted, end, mark, before) {
    while (match(text, /`[^`]+`|\*[^*]+\*/)) {
        mark = substr(text, RSTART, 1) == "`" ? literal : slanted
        before = before substr(text, 1, RSTART - 1) mark \
            substr(text, RSTART + 1, RLENGTH - 2) end
        text = substr(text, RSTART + RLENGTH)
    }
    return before text
}

# A text of the manual, each sentence on lines of its own, as mdoc wants it.
function manual_text(text) {
    gsub(/\\/, "\\e", text)
    gsub(/[.] /, ".\n", text)
    text = toupper(substr(text, 1, 1)) substr(text, 2)
    return marked(text, "\\fB", "\\fI", "\\fP")
}

function print_manual_text(text, sentences, count, i) {
    count = split(manual_text(text), sentences, "\n")
    for (i = 1; i <= count; ++i) wrapped("", sentences[i])
}

function man(argument) {
    argument = field["argument"]
    gsub(/\[/, "Op Ar ", argument)
    gsub(/\]/, "", argument)
    printf ".It Ic %s Ar %s\n", name, argument
    print_manual_text(field["text"] ".")
    if ("more" in field) print_manual_text(field["more"])
    if ("default" in field) printf "The default is %s.\n", small(manual_text(field["default"]))
    print ".Bd -literal"
    print "Example: " field["example"]
    print "Message: " ("message" in field ? field["message"] : "none")
    print ".Ed"
}

function small(text) { return tolower(substr(text, 1, 1)) substr(text, 2) }

# Prints a text in lines of at most 78 columns, each with the prefix before its words.
function wrapped(prefix, text, words, count, i, line) {
    count = split(text, words, " ")
    line = prefix words[1]
    for (i = 2; i <= count; ++i) {
        if (length(line) + 1 + length(words[i]) > 78) {
            print line
            line = prefix words[i]
        } else line = line " " words[i]
    }
    print line
}

function sample() {
    printf "\n# %s %s", name, field["argument"]
    if ("default" in field) printf "   (default: %s)", plain(field["default"])
    print ""
    wrapped("# ", plain(field["text"] "." ("more" in field ? " " field["more"] : "")))
    print "sample" in field ? field["sample"] : "#" field["example"]
}

function plain(text) { return marked(text, "", "", "") }
