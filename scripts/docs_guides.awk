# docs_guides.awk: a page as it is to be, with the programs of examples/ in it. A line such as
# <!-- examples/zxfifo.c --> names one, and the fenced code that follows shows it.
/^<!-- examples\/.* -->$/ {
    print
    print "```" ($2 ~ /\.cpp$/ ? "cpp" : "c")
    while ((is_read = (getline line < $2)) > 0) print line
    print "```"
    if (is_read < 0) {
        print FILENAME ": there is no " $2 >"/dev/stderr"
        exit 1
    }
    follows = 1
    next
}
follows && /^```/ { inside = 1; follows = 0; next }
inside { inside = !/^```$/; next }
{ follows = 0; print }
