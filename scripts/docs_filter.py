#!/usr/bin/env python3
"""docs_filter.py FILE: prepares a header or a page for Doxygen, and keeps its line numbers.

The bars that divide a header, and the comments after them, become groups. The remarks on threads, signal
handlers, cancellation and the log become paragraphs with titles. Function names in a page get parentheses,
so that Doxygen links them.
"""
import pathlib
import re
import sys

BAR = re.compile(r"/\* -{3,} (.+) -- \*/$")
TITLED = re.compile(r"^( *\* )(Threads|Signal handlers|Cancellation|Logs): ")
FUNCTION = re.compile(r"`((?:zx\w+?|sha1)_(?:api|innerapi|appapi)_\w+|zxepoll_\w+|zx_api_\w+|SHA1(?!Context)[A-Z]\w+)`")


def filtered(lines):
    opened = False
    for i, line in enumerate(lines):
        bar = BAR.match(line)
        if bar:
            name = bar.group(1)[0].upper() + bar.group(1)[1:]
            text = next((k for k in (i + 1, i + 2) if lines[k] == "/*"), None)
            if text is not None:
                lines[text] = f"/** @name {name}"
                end = lines.index(" */", text)
                lines[end] = " * @{ */"
            begin = "" if text is not None else f"/** @name {name} */ /** @{{ */"
            line = ("/** @} */ " if opened else "") + begin
            opened = True
        elif opened and lines[i : i + 2] == ["", "#pragma GCC visibility pop"]:
            line = "/** @} */"
        yield TITLED.sub(r"\1@zx{\2} ", line)


path = pathlib.Path(sys.argv[1])
text = path.read_text()
if path.suffix == ".md":
    sys.stdout.write(FUNCTION.sub(r"`\1()`", text))
else:
    sys.stdout.write("\n".join(filtered(text.split("\n"))))
