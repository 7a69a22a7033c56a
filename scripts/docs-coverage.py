#!/usr/bin/env python3
"""Checks that every symbol the library exports belongs to a name documented in the API
reference, and prints the counts.

usage: docs-coverage.py DOXYGEN_XML_DIR LIBRARY.so
Exit status 1 when an exported symbol has no documented name.
"""
import re
import subprocess
import sys
import xml.etree.ElementTree as ET


def text(node):
    return "".join(node.itertext()).strip() if node is not None else ""


def documented(node):
    return bool(text(node.find("briefdescription")) or text(node.find("detaileddescription")))


def normal(name):
    # "lockNoexcept< std::mutex >" and "lockNoexcept<std::mutex>" are one name; template
    # arguments and blanks do not tell names apart here.
    name = re.sub(r"\[abi:\w+\]", "", name)
    while True:
        stripped = re.sub(r"<[^<>]*>", "", name)
        if stripped == name:
            break
        name = stripped
    # A template function's symbol starts with its return type.
    return name.split()[-1] if name.split() else name


def doc_names(xml_dir):
    names = set()
    count = 0
    index = ET.parse(f"{xml_dir}/index.xml").getroot()
    for compound in index.findall("compound"):
        root = ET.parse(f"{xml_dir}/{compound.get('refid')}.xml").getroot()
        for cdef in root.findall("compounddef"):
            kind = cdef.get("kind")
            cname = text(cdef.find("compoundname"))
            if kind in ("class", "struct", "union") and documented(cdef):
                names.add(normal(cname))
                count += 1
            scope = cname + "::" if kind in ("class", "struct", "union", "namespace") else ""
            for member in cdef.iter("memberdef"):
                if not documented(member):
                    continue
                if member.get("prot") == "private":
                    continue
                qualified = normal(scope + text(member.find("name")))
                if qualified not in names:
                    count += 1
                names.add(qualified)
    return names, count


def entity(symbol):
    """The declared name a demangled symbol belongs to."""
    for prefix in ("vtable for ", "typeinfo name for ", "typeinfo for ", "VTT for ",
                   "virtual thunk to ", "non-virtual thunk to ", "guard variable for "):
        if symbol.startswith(prefix):
            symbol = symbol[len(prefix):]
    # Drop the parameter list (the last top-level parentheses) and any qualifiers after it.
    depth = 0
    for i in range(len(symbol) - 1, -1, -1):
        c = symbol[i]
        if c == ")":
            depth += 1
        elif c == "(":
            depth -= 1
            if depth == 0:
                symbol = symbol[:i]
                break
    return normal(symbol)


def main():
    if len(sys.argv) != 3:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    names, count = doc_names(sys.argv[1])
    out = subprocess.run(["nm", "-D", "--defined-only", "-C", sys.argv[2]], check=True,
                         capture_output=True, text=True).stdout
    symbols = [line.split(" ", 2)[2] for line in out.splitlines() if line.count(" ") >= 2]
    missing = []
    for symbol in symbols:
        name = entity(symbol)
        parts = name.split("::")
        if name in names:
            continue
        # Destructors, and members a documented class inherits the documentation of.
        if len(parts) > 1 and parts[-1].startswith("~") and "::".join(parts[:-1]) in names:
            continue
        missing.append(symbol)
    entities = {entity(s) for s in symbols}
    print(f"docs: {count} documented names; the library exports {len(symbols)} symbols "
          f"of {len(entities)} names, {len(entities) - len({entity(s) for s in missing})} "
          "of them documented")
    for symbol in missing:
        print(f"docs: exported but not documented: {symbol}")
    return 1 if missing else 0


if __name__ == "__main__":
    sys.exit(main())
