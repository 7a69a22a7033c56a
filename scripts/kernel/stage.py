#!/usr/bin/env python3
"""Fills the kernel stage's initramfs tree: the arm64 build's programs and shared libraries,
exactly the arm64 libraries they load (followed through DT_NEEDED), the dynamic loader, and
/zorcam/tests.txt, the ctest tests' command lines for the init.

usage: stage.py BUILD_DIR STAGING_DIR [CTEST_REGEX]
"""

import json
import os
import shlex
import shutil
import subprocess
import sys

SYSTEM_DIRS = ["/lib/aarch64-linux-gnu", "/usr/lib/aarch64-linux-gnu"]


def elf_machine(path):
    try:
        with open(path, "rb") as f:
            head = f.read(20)
    except OSError:
        return None
    if len(head) < 20 or head[:4] != b"\x7fELF":
        return None
    return int.from_bytes(head[18:20], "little")


def dynamic(path):
    """The file's NEEDED names, its run paths and its program interpreter."""
    out = subprocess.run(["aarch64-linux-gnu-readelf", "-d", "-l", "-W", path],
                         capture_output=True, text=True, check=True).stdout
    needed, runpath, interp = [], [], None
    for line in out.splitlines():
        if "(NEEDED)" in line:
            needed.append(line.split("[", 1)[1].rstrip("]"))
        elif "(RUNPATH)" in line or "(RPATH)" in line:
            value = line.split("[", 1)[1].rstrip("]")
            origin = os.path.dirname(path)
            runpath += [d.replace("$ORIGIN", origin) for d in value.split(":") if d]
        elif "Requesting program interpreter:" in line:
            interp = line.split(":", 1)[1].strip().rstrip("]")
    return needed, runpath, interp


def main():
    build, staging = sys.argv[1], sys.argv[2]
    regex = sys.argv[3] if len(sys.argv) > 3 else ""
    extra = os.environ.get("ZORCAM_ARM64_ROOT") or os.path.join(os.path.dirname(build),
                                                                 "arm64-root")
    args = ["ctest", "--show-only=json-v1"] + (["-R", regex] if regex else [])
    tests = json.loads(subprocess.run(args, cwd=build, capture_output=True, text=True,
                                      check=True).stdout)["tests"]

    # Every arm64 ELF file of the build: the test programs, the programs they start, the
    # library and the host stand-ins.
    files = []
    for top, dirs, names in os.walk(build):
        dirs[:] = [d for d in dirs if d != "CMakeFiles"]
        for name in names:
            path = os.path.join(top, name)
            if not os.path.islink(path) and elf_machine(path) == 183:  # EM_AARCH64
                files.append(path)

    placed = {}  # path in the machine -> file here
    lib_dirs = []
    pending = list(files)
    for path in files:
        placed[path] = path
    while pending:
        path = pending.pop()
        needed, runpath, interp = dynamic(placed[path])
        if interp and interp not in placed:
            placed[interp] = os.path.realpath(interp)
        for lib in needed:
            # A directory is looked up in the arm64 root first (files that cannot be installed
            # beside the host's own, laid out like /), then as it is; only arm64 files count.
            found = None
            for d in runpath + SYSTEM_DIRS:
                for prefix in (extra, ""):
                    candidate = prefix + os.path.join(d, lib)
                    if elf_machine(os.path.realpath(candidate)) == 183:
                        found = (os.path.join(d, lib), os.path.realpath(candidate), d)
                        break
                if found:
                    break
            if found is None:
                sys.exit(f"stage.py: no arm64 {lib} (needed by {path}) in {runpath + SYSTEM_DIRS}")
            target, source, d = found
            if target not in placed:
                placed[target] = source
                pending.append(target)
                if d not in lib_dirs:
                    lib_dirs.append(d)

    for target, source in placed.items():
        dest = staging + target
        os.makedirs(os.path.dirname(dest), exist_ok=True)
        shutil.copyfile(source, dest)
        os.chmod(dest, 0o755)
        # Debug sections are not needed to run; symbol tables stay, for the call-stack test.
        subprocess.run(["aarch64-linux-gnu-strip", "--strip-debug", dest], check=True)

    with open(os.path.join(staging, "zorcam/env"), "w") as f:
        f.write("export PATH=/usr/bin:/bin\n")
        f.write(f"export LD_LIBRARY_PATH={shlex.quote(':'.join(lib_dirs))}\n")

    lines = []
    for test in tests:
        command = test.get("command") or []
        programs = [c for c in command if c in placed]
        if not programs:
            continue  # scripts and host-only checks
        props = {p["name"]: p["value"] for p in test.get("properties", [])}
        env = props.get("ENVIRONMENT", [])
        env = [env] if isinstance(env, str) else env
        cmd = " ".join(shlex.quote(c) for c in (["env"] + env if env else []) + command)
        cwd = props.get("WORKING_DIRECTORY", build)
        os.makedirs(staging + cwd, exist_ok=True)
        # Folders a test names (a fuzz corpus) go in at the same place.
        for arg in command[1:]:
            if os.path.isabs(arg) and os.path.isdir(arg) and not os.path.exists(staging + arg):
                shutil.copytree(arg, staging + arg)
        lines.append("\t".join([os.path.basename(programs[0]), test["name"], cwd, cmd]))
    with open(os.path.join(staging, "zorcam/tests.txt"), "w") as f:
        f.write("".join(line + "\n" for line in lines))
    print(f"   {len(lines)} tests, {len(files)} files of the build, "
          f"{len(placed) - len(files)} libraries and the loader")


if __name__ == "__main__":
    main()
