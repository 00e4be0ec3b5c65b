# Turns a list of numbered messages into the source of an ICU resource bundle: array "1", in which
# message n is item n and every number without a message an empty item.
#
#     awk -v locale=de -f messages.awk de.msg >de.txt
/^[0-9]+ / {
    number = $1 + 0
    text = substr($0, length($1) + 2)
    gsub(/"/, "\\\"", text)
    messages[number] = text
    if (number > last) {
        last = number
    }
}
END {
    printf "%s {\n    \"1\":array {\n", locale
    for (number = 1; number <= last; ++number) {
        printf "        \"%s\",\n", messages[number]
    }
    printf "    }\n}\n"
}
