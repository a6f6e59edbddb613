#!/usr/bin/env python3
"""docs_man.py XML_DIR MAN_DIR VERSION: makes manual pages from Doxygen's XML. Runs in the top folder.

In section 3, every header, exported name, record, type and class has a page. Every block of constants has
one page, with an alias for each name. Section 7 gets docs/zxcommon.7. Doxygen's own manual pages are not
used: it makes only one page for a header, and one for every member of a record, so that members
called "time" and "free" would hide the pages of the system.

The page of a function says whether threads, signal handlers and cancellation are safe. It takes this from
the comment of the function, of its group or of its header.

Fails if a name in the headers or in the version scripts has no page or no summary, if a header does not
state all three facts in the fixed form, or if no scenario of the fault injection calls a function that
has cancellation points.
"""
import itertools
import pathlib
import re
import sys
import textwrap
import xml.etree.ElementTree as ET

LISTS = {"itemizedlist", "orderedlist"}
ORDER = ("NAME", "SYNOPSIS", "DESCRIPTION", "PARAMETERS", "RETURN VALUE", "SAFETY")  # then as they come
SAFETY = {"Threads": ("safe", "unsafe"), "Signal handlers": ("safe", "unsafe"),
          "Cancellation": ("none", "safe", "unsafe")}
PRINTS = "prints to standard output, whose calls do not fail in the scenarios"
CALLBACK = "has a cancellation point only in the caller's function"
NOT_IN_SCENARIOS = {
    "zxaes_innerapi_cryptCFB128": PRINTS,
    "zxaes_innerapi_cryptECB": PRINTS,
    "zxaes_innerapi_setDecKey": PRINTS,
    "zxaes_innerapi_setEncKey": PRINTS,
    "zxfifo_api_blockIn": CALLBACK,
    "zxfifo_api_blockOut": CALLBACK,
    "zxfifo_innerapi_blockIOin": CALLBACK,
    "zxfifo_innerapi_blockIOout": CALLBACK,
    "zxmd_api_checkVarTypeLen": PRINTS,
    "zxmd_api_parseOpt": PRINTS,
}
BLOCKS = {"simplesect", "parameterlist", "verbatim", "programlisting"} | LISTS
HEADERS = sorted([*pathlib.Path("include").glob("*.h*"), *pathlib.Path("zxlog/include").glob("*.h")])
SCENARIOS = pathlib.Path("tests/faults").glob("scenarios_*.cpp")
CALLED = set(re.findall(r"\w+", "".join(path.read_text() for path in SCENARIOS)))
MAPS = (pathlib.Path("src/zxcommon.map"), pathlib.Path("zxlog/zxlog.map"))


wrong = []  # lines about what is missing


def escape(text):
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("|", "|\\:")
    return re.sub(r"^([.'])", r"\\&\1", text, flags=re.M)


def bold(text):
    return f"\\fB{escape(text)}\\fP"


def runs(node):
    """Yields the texts and blocks of a node in their order. A text is one line; linked names in it are bold."""
    text = escape(node.text or "")
    for child in node:
        if child.tag in BLOCKS:
            yield " ".join(text.split())
            yield child
            text = ""
        else:
            inner = inline(child)
            text += f"\\fB{inner}\\fP" if child.tag in ("ref", "bold", "computeroutput") else inner
        text += escape(child.tail or "")
    yield " ".join(text.split())


def inline(node):
    return " ".join(run for run in runs(node) if isinstance(run, str) and run)


def text_of(node):
    return " ".join(inline(para) for para in node.iter("para"))


def parameters(block):
    for item in block.iter("parameteritem"):
        names = ", ".join(inline(name) for name in item.iter("parametername"))
        yield f"\\fI{names}\\fP", text_of(item.find("parameterdescription"))


def words(member):
    """Returns the whole comment as one line."""
    said = []
    for para in itertools.chain(member.find("briefdescription"), member.find("detaileddescription")):
        for run in runs(para):
            if isinstance(run, str):
                said.append(run)
            elif run.tag == "parameterlist":
                said += [f"{names}: {text}" for names, text in parameters(run)]
            elif run.get("kind") == "return":
                said.append("Returns " + text_of(run))
            else:
                said.append(text_of(run))
    return " ".join(filter(None, said))


class Page:
    def __init__(self, names, summary, header, code=""):
        """A page that the NAMES find, in the file of the first; CODE is what HEADER has of them."""
        self.names = names
        self.header = header
        self.sections = {}
        self.safety = {}
        self.section("NAME", [f"{', '.join(names)} \\- {summary}"])
        self.section("SYNOPSIS", [".nf", f"#include <{escape(header)}>"])
        self.section("SYNOPSIS", ["", escape(code), ".fi"] if code else [".fi"])

    def section(self, title, lines):
        self.sections.setdefault(title, []).extend(lines)

    def entry(self, title, term, text):
        self.section(title, [".TP", term, text])

    def describe(self, description, title="DESCRIPTION"):
        """Sorts the paragraphs of a description into the sections of the page."""
        for para in description.findall("para"):
            for run in runs(para):
                if not isinstance(run, str):
                    self.block(run, title)
                elif run:
                    self.section(title, [".PP", run])

    def block(self, block, title):
        if block.tag == "parameterlist":
            for names, text in parameters(block):
                self.entry("PARAMETERS", names, text)
        elif block.tag == "simplesect" and block.findtext("title") in SAFETY:
            self.safety.setdefault(block.findtext("title"), text_of(block))
        elif block.tag == "simplesect":
            heading = "RETURN VALUE" if block.get("kind") == "return" else inline(block.find("title"))
            self.section(heading.upper(), [".PP", text_of(block)])
        elif block.tag in LISTS:
            for item in block.iter("listitem"):
                self.section(title, [".IP \\(bu 2", text_of(item)])
        elif block.tag in ("verbatim", "programlisting"):
            code = textwrap.dedent("".join(block.itertext())).strip("\n")
            self.section(title, [".PP", ".nf", escape(code), ".fi"])

    def describe_safety(self, inherited):
        """Shows what the page says of it, and otherwise what it inherits: its header must say all."""
        for title, first_words in SAFETY.items():
            text = self.safety.get(title, inherited.get(title, ""))
            is_own = title in self.safety or self.header in self.names
            if is_own and not re.fullmatch(rf"({'|'.join(first_words)})(; .+)?\.", text):
                wrong.append(f'{self.header}: "{title}: {text}" of {self.names[0]} does not begin with '
                             f"one of: {', '.join(first_words)}")
            self.section("SAFETY", [".TP 18", bold(title), text])
        self.safety = {**inherited, **self.safety}

    def write(self, folder, version):
        see = [bold(self.header) + "(3)"] if self.header not in self.names else []
        self.section("SEE ALSO", [", ".join([*see, "\\fBzxcommon\\fP(7)"])])
        lines = [f'.TH "{self.names[0]}" 3 "" "libzxcommon {version}" "Library Functions"', ".nh", ".ad l"]
        for title in [t for t in ORDER if t in self.sections] + [t for t in self.sections if t not in ORDER]:
            lines += [f".SH {title}"] + self.sections[title]
        (folder / f"{self.names[0]}.3").write_text("\n".join(lines) + "\n")
        for alias in self.names[1:]:
            (folder / f"{alias}.3").write_text(f".so man3/{self.names[0]}.3\n")


def first_sentence(member):
    text = " ".join(inline(para) for para in member.iterfind("briefdescription/para"))
    if not text:
        wrong.append(f"no summary for {member.findtext('name') or member.findtext('compoundname')}")
    return re.split(r"(?<=[a-z0-9)])[.;] ", text + " ")[0].rstrip(". ")


def prototype(member):
    text = member.findtext("definition")
    if member.get("kind") == "enum":
        values = (value.findtext("name") for value in member.findall("enumvalue"))
        text = f"enum class {member.findtext('name')} {{ {', '.join(values)} }}"
    elif member.get("kind") == "function":
        text += member.findtext("argsstring").replace(",...", ", ...")
    elif member.get("kind") == "variable":
        text = f"extern {text}"
    return re.sub(r"(?<=\w) *(\*+) *(?=\w)", r"\1 ", text) + ";"


def member_page(name, member, header, notes=None, safety=None):
    page = Page([name], first_sentence(member), header, prototype(member))
    page.describe(member.find("briefdescription"))
    page.describe(member.find("detaileddescription"))
    if notes is not None:
        page.describe(notes, "NOTES")
    if safety is not None:
        page.describe_safety(safety)
    return page


def record_page(member, fields, header, source):
    """Makes the page of a record or an enumeration, with an alias for each value of an enumeration."""
    name = member.findtext("name")
    code = re.search(rf"^typedef \w+ {name} {{.*?^}} {name};", source, re.M | re.S).group()
    code = re.sub(r" */\*.*?\*/", "", code, flags=re.S)
    code = re.sub(r"(?<=[^;,{}\n])\n +|(?<=\n) *\n", " ", code)  # join lines that comments had split
    values = [field.findtext("name") for field in fields if field.tag == "enumvalue"]
    page = Page([name, *values], first_sentence(member), header, code)
    page.describe(member.find("briefdescription"))
    page.describe(member.find("detaileddescription"))
    for field in fields:
        if words(field):
            page.entry("VALUES" if values else "FIELDS", bold(field.findtext("name")), words(field))
    return page


def macro_pages(members, header, source):
    """Makes a page for each block of macros in the header. An empty line ends a block."""
    lines = source.split("\n")
    members.sort(key=lambda member: int(member.find("location").get("line")))
    blocks = []
    for member in members:
        line = int(member.find("location").get("line"))
        if not blocks or "" in lines[last:line]:
            blocks.append([])
        blocks[-1].append(member)
        last = line
    for block in blocks:
        begin = "\n".join(lines[: int(block[0].find("location").get("line")) - 1])
        title = re.search(r"/\* (?!-)((?:(?!\*/).)+) \*/$", begin, re.S)
        if title:
            summary = escape(re.sub(r"::|`|\n \*", "", title.group(1)).rstrip("."))
        else:
            summary = first_sentence(block[0]) if len(block) == 1 else f"constants of {header}"
        codes = []
        for member in block:
            arguments = ", ".join(argument.text for argument in member.iter("defname"))
            codes.append(f"#define {member.findtext('name')}{f'({arguments})' if arguments else ''} ")
            codes[-1] += " ".join((member.findtext("initializer") or "").replace("\\\n", " ").split())
        page = Page([member.findtext("name") for member in block], summary, header, "\n".join(codes))
        for member in block:
            page.entry("DESCRIPTION", bold(member.findtext("name")), words(member))
        yield page


def class_page(compound, header):
    name = compound.findtext("compoundname")
    members = [m for m in compound.iter("memberdef") if m.get("prot") == "public" and words(m)]
    codes = [re.sub(r"^extern ", "", prototype(m)).replace(f"{name}::", "") for m in members]
    page = Page([name], first_sentence(compound), header, "\n".join(codes))
    page.describe(compound.find("briefdescription"))
    page.describe(compound.find("detaileddescription"))
    for code, member in zip(codes, members):
        page.entry("MEMBERS", bold(code), words(member))
    return page


def header_pages(xml, path):
    """Makes the page of a header, and the pages of everything in it."""
    header, source = path.name, path.read_text()
    compound = parse(xml / (header.replace(".", "_8") + ".xml"))
    inner = [parse(xml / f"{node.get('refid')}.xml") for node in compound.findall("innerclass")]
    inner = {node.findtext("compoundname"): node for node in inner if node.get("prot") != "private"}
    summary = inline(compound.find("briefdescription")).rstrip(".")
    whole = Page([header], summary, header)
    whole.describe(compound.find("detaileddescription"))
    safety = whole.safety
    if path.suffix == ".h":
        whole.describe_safety({})
    yield whole
    macros = compound.findall(".//memberdef[@kind='define']")
    for member in macros:
        whole.entry("MACROS", bold(member.findtext("name")), first_sentence(member))
    yield from macro_pages(macros, header, source)
    for space in compound.findall("innernamespace"):
        for name, node in inner.items():
            whole.entry("CLASSES", bold(name), first_sentence(node))
            yield class_page(node, header)
        for member in parse(xml / f"{space.get('refid')}.xml").iter("memberdef"):
            name = f"{space.text}::{member.findtext('name')}"
            whole.entry("FUNCTIONS AND TYPES", bold(name), first_sentence(member))
            yield member_page(name, member, header)
    for section in compound.iter("sectiondef"):
        enums = {node.findtext("name"): node for node in section.findall("memberdef[@kind='enum']")}
        for member in section.findall("memberdef"):
            name = member.findtext("name")
            if member.get("kind") == "typedef":
                whole.entry("TYPES", bold(name), first_sentence(member))
                if name in inner:
                    yield record_page(member, list(inner[name].iter("memberdef")), header, source)
                elif name in enums:
                    yield record_page(member, enums[name].findall("enumvalue"), header, source)
                else:
                    yield member_page(name, member, header)
            elif member.get("kind") in ("function", "variable"):
                title = "FUNCTIONS" if member.get("kind") == "function" else "DATA"
                whole.entry(title, bold(name), first_sentence(member))
                page = member_page(name, member, header, section.find("description"),
                                   safety if member.get("kind") == "function" else None)
                check_scenarios(name, page.safety.get("Cancellation", "none"))
                yield page


def check_scenarios(name, cancellation):
    """What can be cancelled is cancelled: tests/faults does that in every function that its scenarios call."""
    has_points = not cancellation.startswith("none")
    if has_points and name not in CALLED and name not in NOT_IN_SCENARIOS:
        wrong.append(f"{name} has cancellation points, but no scenario of tests/faults calls it")
    if name in NOT_IN_SCENARIOS and (name in CALLED or not has_points):
        wrong.append(f"{name} need not be an exception of {sys.argv[0]}")


def parse(path):
    return ET.parse(path).getroot().find("compounddef")


def overview(modules, version):
    """Makes zxcommon(7) from its text, the list of headers, and the program in README.md."""
    program = re.search(r"^```c\n(.*?)^```$", pathlib.Path("README.md").read_text(), re.M | re.S).group(1)
    parts = {"VERSION": version, "MODULES": "\n".join(modules), "PROGRAM": escape(program.rstrip("\n"))}
    page = pathlib.Path("docs/zxcommon.7").read_text()
    return re.sub(r"@([A-Z]+)@", lambda match: parts[match.group(1)], page)


def wanted_names():
    """Yields all names that need a page, from the sources themselves and not from Doxygen's output."""
    for path in MAPS:
        yield from re.findall(r"^ *(\w+);", path.read_text(), re.M)
    for path in HEADERS:
        text = path.read_text()
        yield path.name
        yield from (name for name in re.findall(r"^# *define (\w+)", text, re.M) if not re.search("_HP*$", name))
        yield from re.findall(r"^} (\w+);|^typedef [^;{]*?\(\*(\w+)\)", text, re.M)
        for values in re.findall(r"^typedef enum \w+ {(.*?)^}", text, re.M | re.S):
            yield from re.findall(r"^ +([A-Z]\w+)", values, re.M)
        yield from (f"zxcommon::{name}" for name in re.findall(r"^(?:class|struct)\b[^{;]*?(\w+) {", text, re.M))


def main():
    xml, man, version = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), sys.argv[3]
    for folder in (man / "man3", man / "man7"):
        folder.mkdir(parents=True)
    modules = []
    for path in HEADERS:
        pages = list(header_pages(xml, path))
        for page in pages:
            page.write(man / "man3", version)
        summary = pages[0].sections["NAME"][0].split(" \\- ", 1)[1]
        modules += [".TP", f"{bold(path.name)}(3)", summary]
    (man / "man7" / "zxcommon.7").write_text(overview(modules, version))
    names = {name for found in wanted_names() for name in ([found] if isinstance(found, str) else found) if name}
    missing = sorted(name for name in names if not (man / "man3" / f"{name}.3").exists())
    wrong.extend(f"no manual page for {name}" for name in missing)
    for line in dict.fromkeys(wrong):
        print(line, file=sys.stderr)
    return 1 if wrong else 0


sys.exit(main())
