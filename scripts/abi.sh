#!/usr/bin/env bash
# Checks the library's binary interface against the baselines in abi/, one per architecture
# the library ships for: x86_64 (the desk build) and arm64 (the device build, cross-built).
# For each, builds the release library of this tree in build/abi-<arch>, describes what it
# exports with abidw (types of the public headers only) and compares that with the baseline
# through abidiff. Any incompatible change (an exported function or variable removed or
# changed, a public type of another size or layout, a vtable changed) fails with abidiff's
# report. Added functions and variables pass, with a note that the baseline wants updating.
#
# Usage: scripts/abi.sh [--update] [--baseline-dir DIR] [--arch x86_64|arm64]...
#   --update            write the baselines from this tree's library instead of comparing
#   --baseline-dir DIR  baselines DIR/<arch>.abi instead of abi/ (also $ZORCAM_ABI_DIR)
#   --arch ARCH         only this architecture; may be repeated (default: both)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

usage() {
    echo "abi.sh: $1" >&2
    echo "usage: scripts/abi.sh [--update] [--baseline-dir DIR] [--arch x86_64|arm64]..." >&2
    exit 2
}

update=0
baselines=${ZORCAM_ABI_DIR:-$root/abi}
arches=()
while [[ $# -gt 0 ]]; do
    case $1 in
        --update) update=1 ;;
        --baseline-dir)
            [[ $# -ge 2 && -n $2 ]] || usage "--baseline-dir needs a directory"
            baselines=$2; shift ;;
        --arch)
            [[ $# -ge 2 ]] || usage "--arch needs x86_64 or arm64"
            [[ $2 == x86_64 || $2 == arm64 ]] || usage "unknown architecture '$2' (x86_64, arm64)"
            arches+=("$2"); shift ;;
        *) usage "unknown argument '$1'" ;;
    esac
    shift
done
[[ ${#arches[@]} -gt 0 ]] || arches=(x86_64 arm64)
[[ $update -eq 1 ]] && mkdir -p "$baselines"
[[ -d $baselines ]] || usage "no baseline directory '$baselines'"

"$root/scripts/deps.sh"
[[ " ${arches[*]} " == *" arm64 "* ]] && "$root/scripts/deps.sh" --arm64

# Writes the ABI description of the library built for $1 to $2. Only types defined in the
# public headers are described; paths, locations and type ids are written so that the same
# library gives the same text in any checkout.
describe() {
    local arch=$1 out=$2
    local build="$root/build/abi-$arch"
    # GCC whatever CC says, as in the cross build: another compiler describes the same interface
    # a little differently (which vtables it emits), which would read as a change.
    local compiler=(CC=gcc CXX=g++) toolchain=()
    if [[ $arch == arm64 ]]; then
        compiler=()
        toolchain=(-DCMAKE_TOOLCHAIN_FILE="$root/cmake/aarch64-linux-gnu.cmake")
    fi
    echo "== abi $arch: build (build/abi-$arch)"
    env "${compiler[@]}" cmake -S "$root" -B "$build" -G Ninja "${toolchain[@]}" \
        -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZORCAM_BUILD_TESTS=OFF -DZORCAM_BUILD_BENCH=OFF \
        >/dev/null
    local log
    if ! log=$(cmake --build "$build" --target zorcam_stdutils 2>&1); then
        echo "$log" >&2
        exit 1
    fi
    abidw --headers-dir "$root/include" --exported-interfaces-only --drop-private-types \
          --drop-undefined-syms --no-elf-needed --no-corpus-path --no-comp-dir-path \
          --no-show-locs --type-id-style hash --out-file "$out" "$build/lib/libzorcam_stdutils.so"
    sed -i "s|path='$root/|path='|" "$out"
}

failed=()
summary=()
for arch in "${arches[@]}"; do
    baseline="$baselines/$arch.abi"
    if [[ $update -eq 1 ]]; then
        describe "$arch" "$baseline"
        summary+=("$arch: wrote $baseline")
        continue
    fi
    [[ -f $baseline ]] || usage "no baseline $baseline (make one with scripts/abi.sh --update)"
    current="$root/build/abi-$arch/current.abi"
    describe "$arch" "$current"
    echo "== abi $arch: compare with $baseline"
    # abidiff's status: bit 0 error, bit 1 usage error, bit 2 a change, bit 3 an incompatible
    # one. Added symbols are a change too, so they are left out of the verdict and shown after.
    status=0
    abidiff --no-added-syms "$baseline" "$current" >/dev/null || status=$?
    if [[ $status -ne 0 ]]; then
        abidiff "$baseline" "$current" || true
        if (( status & 3 )); then
            failed+=("$arch: abidiff could not compare (status $status)")
        else
            failed+=("$arch: incompatible with $baseline")
        fi
    elif ! report=$(abidiff "$baseline" "$current"); then
        echo "$report"
        echo "abi $arch: only additions, which are compatible; update the baseline with" \
             "scripts/abi.sh --update"
        summary+=("$arch: compatible, with additions (baseline to update)")
    else
        summary+=("$arch: same as the baseline")
    fi
done

for line in "${summary[@]}"; do echo "abi: $line"; done
for line in "${failed[@]}"; do echo "abi: FAILED $line" >&2; done
[[ ${#failed[@]} -eq 0 ]]
