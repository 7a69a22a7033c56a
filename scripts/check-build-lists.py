#!/usr/bin/python3
"""Checks that CMake and Android.bp build the same sources from utils/std/ and platform/.

Usage: check-build-lists.py ROOT CMAKE_BUILD_DIR [ANDROID_BP]

CMake's side is what the configured build compiles (compile_commands.json); Android.bp's is
every source its modules list, globs expanded, through the modules' defaults too. Exits 1 and
names each source found on one side only, with the modules that build it.
"""
import json
import re
import sys
from pathlib import Path

from mini_soong.model import Module
from mini_soong.parser import soong

SCOPES = ("utils/std/", "platform/")
SOURCE_SUFFIXES = (".c", ".cc", ".cpp", ".cxx")


def in_scope(rel):
    return rel.startswith(SCOPES) and rel.endswith(SOURCE_SUFFIXES)


def cmake_sources(root, build):
    """{source relative to root: {cmake target, ...}} for what the build compiles."""
    found = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        path = Path(entry["directory"], entry["file"]).resolve()
        try:
            rel = path.relative_to(root).as_posix()
        except ValueError:
            continue
        if not in_scope(rel):
            continue
        # The object file names the target: .../CMakeFiles/<target>.dir/...
        target = re.search(r"CMakeFiles/([^/\s]+)\.dir/", entry.get("output", entry["command"]))
        target = target.group(1) if target else "?"
        found.setdefault(rel, set()).add(target)
    return found


def listed_srcs(props):
    """srcs of a module's properties, those under arch/target/multilib variants included."""
    srcs = list(props.get("srcs", []))
    for group in ("arch", "target", "multilib"):
        for variant in props.get(group, {}).values():
            if isinstance(variant, dict):
                srcs += variant.get("srcs", [])
    return srcs


def bp_sources(root, bp):
    """{source relative to root: {module, ...}} for what Android.bp lists."""
    modules = [m for m in soong.parseString(bp.read_text(), parseAll=True) if isinstance(m, Module)]
    by_name = {m.arguments.get("name"): m.arguments for m in modules}

    def srcs_of(props, seen=()):
        srcs = listed_srcs(props)
        for default in props.get("defaults", []):
            if default in by_name and default not in seen:
                srcs += srcs_of(by_name[default], seen + (default,))
        return srcs

    found = {}
    for module in modules:
        if module.name == "cc_defaults":
            continue
        name = module.arguments.get("name", "?")
        excluded = set()
        for pattern in module.arguments.get("exclude_srcs", []):
            excluded |= {p.relative_to(root).as_posix() for p in root.glob(pattern)}
        for pattern in srcs_of(module.arguments):
            if pattern.startswith(":"):  # another module's output
                continue
            paths = ([p.relative_to(root).as_posix() for p in sorted(root.glob(pattern))]
                     if "*" in pattern else [pattern])
            for rel in paths:
                if in_scope(rel) and rel not in excluded:
                    found.setdefault(rel, set()).add(name)
    return found


def main(argv):
    if len(argv) not in (3, 4):
        print(__doc__.strip().splitlines()[2], file=sys.stderr)
        return 2
    root = Path(argv[1]).resolve()
    build = Path(argv[2]).resolve()
    bp = Path(argv[3]) if len(argv) == 4 else root / "Android.bp"
    cmake, blueprint = cmake_sources(root, build), bp_sources(root, bp)
    problems = []
    for rel in sorted(set(cmake) - set(blueprint)):
        problems.append(f"{rel}: built by CMake ({', '.join(sorted(cmake[rel]))}), "
                        f"not listed in {bp.name}")
    for rel in sorted(set(blueprint) - set(cmake)):
        where = "" if (root / rel).exists() else ", and no such file"
        problems.append(f"{rel}: listed in {bp.name} ({', '.join(sorted(blueprint[rel]))}), "
                        f"not built by CMake{where}")
    for line in problems:
        print(f"build lists differ: {line}", file=sys.stderr)
    if not problems:
        print(f"build lists agree: {len(cmake)} sources under "
              f"{' and '.join(SCOPES)} in CMake and {bp.name}")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
