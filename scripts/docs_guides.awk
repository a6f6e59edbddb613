# docs_guides.awk: prints a page with the current programs of examples/ in it. A line such as
# <!-- examples/zxfifo.c --> names a program; the fenced code after it is replaced by the program.
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
