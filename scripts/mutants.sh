#!/usr/bin/env bash
# A mutation check of the test suite: small faults are put into the library and the host
# stand-ins one at a time, and the suite must notice each.
#
# usage: scripts/mutants.sh [--count N] [--seed S] [--files GLOB[,GLOB...]] [--survivors] [--list]
#
# A fixed seed draws a sample (150 by default) from every mutant of the files (utils/std/*.cpp and
# platform/*/*.cpp by default). Each is applied to a scratch clone of HEAD (build/mutants/src),
# the library and tests are rebuilt incrementally (build/mutants/build), and ctest runs with
# --stop-on-failure, the tests of the mutated module first; the file is restored after each.
# A mutant that does not build is counted apart, never as killed. One line per mutant; the last
# line is "mutants: K killed of V (P%)". --survivors prints only the survivors, --list only the
# sample. A mutant is named by its file, its line's text and its place in the line, so a sample
# stays the same across unrelated edits.
#
# Needs only python3 and the build's own tools; not part of the test command (150 mutants take
# most of an hour on a 2-core machine).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
exec env ZORCAM_ROOT="$root" python3 - "$@" <<'PYTHON'
import argparse
import fnmatch
import hashlib
import os
import re
import shutil
import subprocess
import sys
import time

ROOT = os.environ["ZORCAM_ROOT"]
DEFAULT_FILES = "utils/std/*.cpp,platform/*/*.cpp"
# Checks of the build itself, not of behaviour: they cannot see a mutant.
EXCLUDED_TESTS = "AbiCheck|BuildListsAgree"
TEST_TIMEOUT = 120


def code_mask(text):
    """The text with comments, string and character literals and preprocessor lines blanked
    (newlines kept), so that mutants only touch code."""
    out = list(text)
    i, n = 0, len(text)
    line_start = True
    while i < n:
        c = text[i]
        if line_start and c == "#":
            j = text.find("\n", i)
            j = n if j < 0 else j
            while j > 0 and text[j - 1] == "\\" and j < n:  # continued directive
                j = text.find("\n", j + 1)
                j = n if j < 0 else j
            for k in range(i, j):
                if out[k] != "\n":
                    out[k] = " "
            i = j
            continue
        if c == "\n":
            line_start = True
            i += 1
            continue
        if not c.isspace():
            line_start = False
        if text.startswith("//", i):
            j = text.find("\n", i)
            j = n if j < 0 else j
        elif text.startswith("/*", i):
            j = text.find("*/", i + 2)
            j = n if j < 0 else j + 2
        elif c in "\"'":
            if c == '"' and i > 0 and text[i - 1] == "R":  # raw string R"(...)"
                close = ")" + text[i + 1:text.find("(", i)] + '"'
                j = text.find(close, i)
                j = n if j < 0 else j + len(close)
            else:
                j = i + 1
                while j < n and text[j] != c:
                    j += 2 if text[j] == "\\" else 1
                j += 1
        else:
            i += 1
            continue
        for k in range(i, min(j, n)):
            if out[k] != "\n":
                out[k] = " "
        i = j
    return "".join(out)


# (kind, pattern in the masked line, replacement); the pattern's group 1 is what changes.
OPERATORS = [
    ("rel", re.compile(r" (<=) "), "<"),
    ("rel", re.compile(r" (<) "), "<="),
    ("rel", re.compile(r" (>=) "), ">"),
    ("rel", re.compile(r" (>) "), ">="),
    ("rel", re.compile(r" (==) "), "!="),
    ("rel", re.compile(r" (!=) "), "=="),
    ("logic", re.compile(r" (&&) "), "||"),
    ("logic", re.compile(r" (\|\|) "), "&&"),
    ("arith", re.compile(r" (\+) "), "-"),
    ("arith", re.compile(r" (-) "), "+"),
    ("arith", re.compile(r" (\*) "), "/"),
    ("bool", re.compile(r"\breturn (true);"), "false"),
    ("bool", re.compile(r"\breturn (false);"), "true"),
]
INTEGER = re.compile(r"(?<![\w.])(\d+)(?=[uUlL]*\b)(?![.\w]*\.)")
CONDITION = re.compile(r"\b(?:if|while) \(")
CALL_STATEMENT = re.compile(r"^\s*(?:[A-Za-z_][\w:]*(?:\.|->))*[A-Za-z_][\w:]*\(.*\);\s*$")
KEYWORDS = {"return", "if", "while", "for", "switch", "case", "delete", "throw", "sizeof",
            "static_assert", "new", "do", "else", "goto"}


def matching_paren(line, open_at):
    depth = 0
    for k in range(open_at, len(line)):
        if line[k] == "(":
            depth += 1
        elif line[k] == ")":
            depth -= 1
            if depth == 0:
                return k
    return -1


def mutants_of_line(raw, masked):
    """(kind, occurrence, new line) for each mutant of one line."""
    out = []
    counts = {}

    def add(kind, new):
        counts[kind] = counts.get(kind, 0) + 1
        out.append((kind, counts[kind] - 1, new))

    for kind, pattern, repl in OPERATORS:
        for m in pattern.finditer(masked):
            a, b = m.span(1)
            add(f"{kind}:{m.group(1)}", raw[:a] + repl + raw[b:])
    for m in INTEGER.finditer(masked):
        a, b = m.span(1)
        add("const", raw[:a] + str(int(m.group(1)) + 1) + raw[b:])
    for m in CONDITION.finditer(masked):
        open_at = m.end() - 1
        close = matching_paren(masked, open_at)
        if close > 0:
            add("negate", raw[:open_at + 1] + "!(" + raw[open_at + 1:close] + ")" + raw[close:])
    if (CALL_STATEMENT.match(masked) and "=" not in masked.split("(", 1)[0] and
            masked.count("(") == masked.count(")")):
        first = re.match(r"\s*([A-Za-z_]\w*)", masked).group(1)
        # A declaration with constructor arguments has two names before the parenthesis.
        head = masked.split("(", 1)[0].strip()
        if first not in KEYWORDS and " " not in head:
            indent = raw[:len(raw) - len(raw.lstrip())]
            add("delete-call", indent + ";")
    return out


def enumerate_mutants(files):
    """Every mutant as (file, line text, line occurrence, kind, occurrence), with its line
    number and the mutated line, sorted by id."""
    result = []
    for path in files:
        text = open(os.path.join(ROOT, path), encoding="utf-8").read()
        raw_lines = text.split("\n")
        masked_lines = code_mask(text).split("\n")
        seen = {}
        for number, (raw, masked) in enumerate(zip(raw_lines, masked_lines), start=1):
            key = raw.strip()
            occurrence = seen.get(key, 0)
            seen[key] = occurrence + 1
            if not masked.strip():
                continue
            for kind, index, new in mutants_of_line(raw, masked):
                ident = (path, key, occurrence, kind, index)
                result.append((ident, number, raw, new))
    result.sort(key=lambda m: m[0])
    return result


def run(cmd, cwd, timeout=None):
    try:
        return subprocess.run(cmd, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, timeout=timeout).returncode
    except subprocess.TimeoutExpired:
        return -1


def module_tests(path):
    """A ctest -R expression for the tests of the module a file belongs to."""
    stem = os.path.splitext(os.path.basename(path))[0]
    piece = path.split("/")[1] if path.startswith("platform/") else None
    names = {"sync": "Sync|Libsync|SwSync", "sw_sync": "Sync|Libsync|SwSync",
             "emulation": "Sync|Libsync|SwSync", "properties": "SystemProperties|Property",
             "hidl": "CamDump|Files", "stavex": "Faults|Misc", "kfdv": "Faults",
             "ulog": "ULog|Log"}
    if piece in names:
        return names[piece]
    return names.get(stem, re.sub(r"[^A-Za-z]", "", stem))


def prepare(jobs):
    scratch = os.path.join(ROOT, "build", "mutants")
    src, build = os.path.join(scratch, "src"), os.path.join(scratch, "build")
    head = subprocess.run(["git", "rev-parse", "HEAD"], cwd=ROOT, text=True,
                          stdout=subprocess.PIPE, check=True).stdout.strip()
    if not os.path.isdir(os.path.join(src, ".git")):
        shutil.rmtree(src, ignore_errors=True)
        subprocess.run(["git", "clone", "--quiet", "--shared", ROOT, src], check=True)
    subprocess.run(["git", "checkout", "--quiet", "--force", head], cwd=src, check=True)
    subprocess.run(["git", "clean", "--quiet", "-fdx"], cwd=src, check=True)
    print(f"== mutants: building HEAD ({head[:12]}) in build/mutants", file=sys.stderr)
    subprocess.run(["cmake", "-S", src, "-B", build, "-G", "Ninja",
                    "-DCMAKE_BUILD_TYPE=RelWithDebInfo", "-DZORCAM_BUILD_BENCH=OFF"],
                   stdout=subprocess.DEVNULL, check=True)
    subprocess.run(["cmake", "--build", build, "-j", str(jobs)], stdout=subprocess.DEVNULL,
                   check=True)
    if run(["ctest", "-j", str(jobs), "-E", EXCLUDED_TESTS], build) != 0:
        sys.exit("mutants: the suite fails without a mutant; fix that first")
    return src, build


def main():
    parser = argparse.ArgumentParser(prog="scripts/mutants.sh", add_help=True)
    parser.add_argument("--count", type=int, default=150)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--files", default=DEFAULT_FILES)
    parser.add_argument("--survivors", action="store_true")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 2)
    try:
        args = parser.parse_args()
    except SystemExit as e:
        sys.exit(2 if e.code else 0)
    if args.count < 1:
        print("mutants: --count takes a positive number", file=sys.stderr)
        sys.exit(2)

    tracked = subprocess.run(["git", "ls-files"], cwd=ROOT, text=True,
                             stdout=subprocess.PIPE, check=True).stdout.split()
    globs = [g for g in args.files.split(",") if g]
    files = sorted(f for f in tracked if any(fnmatch.fnmatch(f, g) for g in globs))
    if not files:
        print(f"mutants: no tracked file matches {args.files}", file=sys.stderr)
        sys.exit(2)
    everything = enumerate_mutants(files)
    # Each mutant draws its own number from the seed and its identity; the sample is the
    # lowest. Mutants that an edit adds or removes elsewhere leave the rest of the sample as
    # it was, which a draw over the whole list's positions would not.
    def draw(m):
        return hashlib.sha256(repr((args.seed,) + m[0]).encode()).digest()
    sample = sorted(sorted(everything, key=draw)[:args.count], key=lambda m: m[0])
    print(f"== mutants: {len(sample)} of {len(everything)} in {len(files)} files, "
          f"seed {args.seed}", file=sys.stderr)
    if args.list:
        for ident, number, raw, new in sample:
            print(f"{ident[0]}:{number}  {raw.strip()}  ->  {new.strip()}")
        return

    src, build = prepare(args.jobs)
    killed = survived = broken = 0
    start = time.time()
    for i, (ident, number, raw, new) in enumerate(sample, start=1):
        path = os.path.join(src, ident[0])
        original = open(path, encoding="utf-8").read()
        lines = original.split("\n")
        lines[number - 1] = new
        with open(path, "w", encoding="utf-8") as f:
            f.write("\n".join(lines))
        try:
            if run(["cmake", "--build", build, "-j", str(args.jobs)], build) != 0:
                verdict = "did not build"
                broken += 1
            else:
                first = module_tests(ident[0])
                ctest = ["ctest", "-j", str(args.jobs), "--stop-on-failure",
                         "--timeout", str(TEST_TIMEOUT)]
                failed = (run(ctest + ["-R", first, "-E", EXCLUDED_TESTS], build) != 0 or
                          run(ctest + ["-E", f"{EXCLUDED_TESTS}|{first}"], build) != 0)
                verdict = "killed" if failed else "survived"
                killed += failed
                survived += not failed
        finally:
            with open(path, "w", encoding="utf-8") as f:
                f.write(original)
        if not args.survivors or verdict == "survived":
            print(f"{verdict:<14} {ident[0]}:{number}  {raw.strip()}  ->  {new.strip()}",
                  flush=True)
        elapsed = time.time() - start
        eta = elapsed / i * (len(sample) - i)
        print(f"[{i}/{len(sample)}] {elapsed / 60:.1f} min, about {eta / 60:.0f} min left",
              file=sys.stderr, flush=True)
    # Leave the scratch build as HEAD built it.
    run(["cmake", "--build", build, "-j", str(args.jobs)], build)
    valid = killed + survived
    print(f"{broken} did not build; {(time.time() - start) / 60:.1f} min", file=sys.stderr)
    print(f"mutants: {killed} killed of {valid} ({100.0 * killed / max(valid, 1):.0f}%)")


if __name__ == "__main__":
    main()
PYTHON
