#!/usr/bin/env python3
"""docs_man.py XML_DIR MAN_DIR VERSION MAP...: manual pages from what Doxygen read.

One for every name that the version scripts MAP export, and one for every header. Doxygen's own pages
would be one a header, and one for every member of a record: "time" and "free" would hide the system's.
"""
import pathlib
import re
import sys
import textwrap
import xml.etree.ElementTree as ET

LISTS = {"itemizedlist", "orderedlist"}
ORDER = ("NAME", "SYNOPSIS", "DESCRIPTION", "PARAMETERS", "RETURN VALUE")  # then as they come
HEADINGS = {"define": "MACROS", "typedef": "TYPES", "enum": "TYPES", "variable": "DATA", "function": "FUNCTIONS"}
BLOCKS = {"simplesect", "parameterlist", "verbatim", "programlisting"} | LISTS


def escape(text):
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return re.sub(r"^([.'])", r"\\&\1", text, flags=re.M)


def runs(node):
    """Texts and blocks of a node in their order. Texts are one line; linked names in them are bold."""
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


class Page:
    def __init__(self, name, version):
        self.name = name
        self.lines = [f'.TH "{name}" 3 "" "libzxcommon {version}" "Library Functions"', ".nh", ".ad l"]
        self.sections = {}

    def section(self, title, lines):
        self.sections.setdefault(title, []).extend(lines)

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
            for item in block.iter("parameteritem"):
                names = ", ".join(inline(name) for name in item.iter("parametername"))
                text = self.text(item.find("parameterdescription"))
                self.section("PARAMETERS", [".TP", f"\\fI{names}\\fP", text])
        elif block.tag == "simplesect":
            heading = "RETURN VALUE" if block.get("kind") == "return" else inline(block.find("title"))
            self.section(heading.upper(), [".PP", self.text(block)])
        elif block.tag in LISTS:
            for item in block.iter("listitem"):
                self.section(title, [".IP \\(bu 2", self.text(item)])
        elif block.tag in ("verbatim", "programlisting"):
            code = textwrap.dedent("".join(block.itertext())).strip("\n")
            self.section(title, [".PP", ".nf", escape(code), ".fi"])

    @staticmethod
    def text(node):
        return " ".join(inline(para) for para in node.iter("para"))

    def write(self, folder):
        titles = [t for t in ORDER if t in self.sections]
        titles += [t for t in self.sections if t not in ORDER]
        for title in titles:
            self.lines += [f".SH {title}"] + self.sections[title]
        (folder / f"{self.name}.3").write_text("\n".join(self.lines) + "\n")


def first_sentence(member):
    text = " ".join(inline(para) for para in member.iterfind("briefdescription/para"))
    if not text:
        result = member.find(".//simplesect[@kind='return']")
        text = "gives " + Page.text(result) if result is not None else ""
    return re.split(r"(?<=[a-z0-9)])[.;] ", text + " ")[0].rstrip(". ")


def prototype(member):
    text = member.findtext("definition")
    if member.get("kind") == "function":
        text += member.findtext("argsstring").replace(",...", ", ...")
    else:
        text = f"extern {text}"
    return escape(re.sub(r"(?<=\w) *(\*+) *(?=\w)", r"\1 ", text) + ";")


def member_page(member, section, header, version):
    page = Page(member.findtext("name"), version)
    page.section("NAME", [f"{page.name} \\- {first_sentence(member)}"])
    page.section("SYNOPSIS", [".nf", f"#include <{escape(header)}>", "", prototype(member), ".fi"])
    page.describe(member.find("briefdescription"))
    page.describe(member.find("detaileddescription"))
    if section.find("description") is not None:
        page.describe(section.find("description"), "NOTES")
    page.section("SEE ALSO", [f"\\fB{escape(header)}\\fP(3)"])
    return page


def header_page(compound, header, version):
    page = Page(header, version)
    brief = inline(compound.find("briefdescription"))
    page.section("NAME", [f"{header} \\- {brief.rstrip('.')}"])
    page.section("SYNOPSIS", [".nf", f"#include <{escape(header)}>", ".fi"])
    page.describe(compound.find("detaileddescription"))
    for member in compound.iter("memberdef"):
        name = escape(member.findtext("name"))
        if member.get("kind") in HEADINGS and first_sentence(member):
            page.section(HEADINGS[member.get("kind")], [".TP", f"\\fB{name}\\fP", first_sentence(member)])
    return page


def main():
    xml, folder = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    version = sys.argv[3]
    scripts = "\n".join(pathlib.Path(path).read_text() for path in sys.argv[4:])
    wanted = set(re.findall(r"^ *(\w+);", scripts, re.M))
    folder.mkdir(parents=True)
    for path in sorted(xml.glob("*_8h*.xml")):
        compound = ET.parse(path).getroot().find("compounddef")
        header = compound.findtext("compoundname")
        header_page(compound, header, version).write(folder)
        for section in compound.iter("sectiondef"):
            for member in section.iter("memberdef"):
                if member.findtext("name") in wanted and member.get("kind") in ("function", "variable"):
                    wanted.discard(member.findtext("name"))
                    member_page(member, section, header, version).write(folder)
    for name in sorted(wanted):
        print(f"no manual page for {name}", file=sys.stderr)
    return 1 if wanted else 0


sys.exit(main())
