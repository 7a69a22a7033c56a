#!/usr/bin/env python3
"""Reads the kernel stage's console log and decides: every program's counts, and failure on a
failing test, a kernel panic, or a machine that did not finish.

usage: summary.py CONSOLE_LOG QEMU_EXIT_STATUS ELAPSED_SECONDS LIMIT_SECONDS
"""

import re
import sys


def main():
    log, qemu_rc, elapsed, limit = sys.argv[1], int(sys.argv[2]), sys.argv[3], sys.argv[4]
    text = open(log, errors="replace").read()
    programs = re.findall(r"^zorcam-vm: program (\S+): (\d+) passed, (\d+) failed, (\d+) skipped$",
                          text, re.M)
    booted = re.search(r"^zorcam-vm: booted in ([\d.]+) s$", text, re.M)
    done = re.search(r"^zorcam-vm: done in ([\d.]+) s: (\d+) passed, (\d+) failed, (\d+) skipped$",
                     text, re.M)
    panic = re.search(r"^.*Kernel panic.*$", text, re.M)

    print("== kernel: results")
    for name, passed, failed, skipped in programs:
        print(f"   {name:<28} {passed:>4} passed {failed:>4} failed {skipped:>4} skipped")
    problems = []
    if panic:
        problems.append(f"the kernel panicked: {panic.group(0).strip()}")
    if not done:
        problems.append(f"the machine did not finish its tests (qemu exit {qemu_rc} after "
                        f"{elapsed} s, limit {limit} s); console in {log}")
    elif int(done.group(3)):
        problems.append(f"{done.group(3)} tests failed; their output is above and in {log}")
    if booted:
        print(f"   booted in {booted.group(1)} s of guest time; VM ran {elapsed} s in all")
    if done:
        print(f"   {done.group(2)} passed, {done.group(3)} failed, {done.group(4)} skipped")
    # Each failing test's own output, up to the init's next line, so that a CI log alone says why.
    for block in re.findall(r"^zorcam-vm: FAILED .*?(?=^zorcam-vm: )", text, re.M | re.S):
        lines = block.rstrip("\n").split("\n")
        for line in lines[:80]:
            print(f"   | {line}", file=sys.stderr)
        if len(lines) > 80:
            print(f"   | ... {len(lines) - 80} more lines in {log}", file=sys.stderr)
    for problem in problems:
        print(f"kernel: {problem}", file=sys.stderr)
    sys.exit(1 if problems else 0)


if __name__ == "__main__":
    main()
