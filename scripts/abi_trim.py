#!/usr/bin/env python3
"""Reads the output of abidw and writes the part that users of the library can see: the exported symbols
and the types that these refer to. Leaves out the places of the definitions."""
import sys
import xml.etree.ElementTree as tree

corpus = tree.parse(sys.stdin).getroot()
types, exported = {}, {}
for unit in corpus.findall("abi-instr"):
    for item in unit.iter():
        name = item.get("id")
        if name and (name not in types or types[name].get("is-declaration-only")):
            types[name] = item
        if item.get("elf-symbol-id"):
            exported[item.get("elf-symbol-id")] = item

reached, waiting = {}, list(exported.values())
while waiting:
    for part in waiting.pop().iter():
        for key in ("type-id", "naming-typedef-id"):
            name = part.get(key)
            if name in types and name not in reached:
                reached[name] = types[name]
                waiting.append(types[name])

for unit in corpus.findall("abi-instr"):
    corpus.remove(unit)
unit = tree.SubElement(corpus, "abi-instr", {"address-size": "64", "language": "LANG_C_plus_plus_14"})
unit.extend(reached[name] for name in sorted(reached))
unit.extend(exported[name] for name in sorted(exported))
tree.indent(corpus, " ")
tree.ElementTree(corpus).write(sys.stdout, encoding="unicode")
print()
