# Makes the list of directives from directives.txt: as the tables of directives.md, as the part of
# tarnproxy.conf(5), or as the body of the sample configuration.
#
#     awk -v form=page|man|sample -f directives.awk directives.txt

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
    if (form == "page") page()
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
    } else {
        printf "\n## %s\n\n| Directive | Argument | Default | Meaning |\n|---|---|---|---|\n", title
    }
}

function page() {
    argument = code(field["argument"])
    gsub(/\|/, "\\|", argument)
    printf "| `%s` | %s | %s | %s |\n", name, argument, field["default"], field["text"]
}

function code(text) { return "`" text "`" }

# The text with its marks, `code` and *name*, replaced: before a word by the mark of its kind, after it
# by the end.
function marked(text, literal, slanted, end, mark, before) {
    while (match(text, /`[^`]+`|\*[^*]+\*/)) {
        mark = substr(text, RSTART, 1) == "`" ? literal : slanted
        before = before substr(text, 1, RSTART - 1) mark \
            substr(text, RSTART + 1, RLENGTH - 2) end
        text = substr(text, RSTART + RLENGTH)
    }
    return before text
}

# A text of the manual: each sentence begins a line, as mdoc wants it.
function manual_text(text, asItIs) {
    gsub(/\\/, "\\e", text)
    gsub(/[.] /, ".\n", text)
    return marked(asItIs ? text : capital(text), "\\fB", "\\fI", "\\fP")
}

function print_manual_text(text, asItIs, sentences, count, i) {
    count = split(manual_text(text, asItIs), sentences, "\n")
    for (i = 1; i <= count; ++i) wrapped("", sentences[i])
}

function man(argument, lines, count, i, item, listed) {
    argument = field["argument"]
    gsub(/\[/, "Op Ar ", argument)
    gsub(/\]/, "", argument)
    printf ".It Ic %s Ar %s\n", name, argument
    print_manual_text(field["text"] ".")
    count = split(field["more"], lines, "\n")
    for (i = 1; i <= count; ++i) {
        item = lines[i] ~ /^- /
        if (item && !listed) print ".Bl -bullet -compact"
        if (!item && listed) print ".El"
        if (item) print ".It"
        print_manual_text(substr(lines[i], item ? 3 : 1), item)
        listed = item
    }
    if (listed) print ".El"
    if ("default" in field) printf "The default is %s.\n", small(manual_text(field["default"]))
    print ".Bd -literal"
    print "Example: " field["example"]
    print "Message: " ("message" in field ? field["message"] : "none")
    print ".Ed"
}

function small(text) { return tolower(substr(text, 1, 1)) substr(text, 2) }

function capital(text) { return toupper(substr(text, 1, 1)) substr(text, 2) }

# Prints a text in lines of at most 78 columns, each with the prefix before its words; in an item of
# a list, the words begin below each other.
function wrapped(prefix, text, words, count, i, line) {
    count = split(text, words, " ")
    line = prefix words[1]
    if (text ~ /^- /) prefix = prefix "  "
    for (i = 2; i <= count; ++i) {
        if (length(line) + 1 + length(words[i]) > 78) {
            print line
            line = prefix words[i]
        } else line = line " " words[i]
    }
    print line
}

function sample(lines, count, i) {
    printf "\n# %s %s", name, field["argument"]
    if ("default" in field) printf "   (default: %s)", plain(field["default"])
    print ""
    count = split(field["text"] "." ("more" in field ? " " field["more"] : ""), lines, "\n")
    for (i = 1; i <= count; ++i) wrapped("# ", plain(capital(lines[i])))
    print "sample" in field ? field["sample"] : "#" field["example"]
}

function plain(text) { return marked(text, "", "", "") }
