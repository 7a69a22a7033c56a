#!/usr/bin/env bash
# Builds the libFuzzer targets with clang in build/fuzz and runs each in turn over its corpus
# in fuzz/corpus/<target>/, then merges what adds coverage into that corpus, minimised
# (libFuzzer's -merge=1 over the old corpus and the new inputs).
#
#   scripts/fuzz.sh [--minutes N | --seconds N] [--no-merge] [target...]
#
# Targets are named without the _fuzz suffix (property, format, ...); all by default. The
# default run is 15 minutes a target. --no-merge leaves the corpus in the tree as it is (the
# test command uses it). A crash, leak, sanitizer report or time-out fails the run and leaves
# its input in build/fuzz/artifacts/. Ends with one line per target: executions, executions a
# second, coverage (cov/ft) and corpus size. A target may add libFuzzer flags of its own in
# fuzz/<target>_fuzz.options, one a line.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build/fuzz"

usage() {
    echo "usage: scripts/fuzz.sh [--minutes N | --seconds N] [--no-merge] [target...]" >&2
    exit 2
}

seconds=900
merge=1
targets=()
while [[ $# -gt 0 ]]; do
    case $1 in
        --minutes|--seconds)
            if [[ $# -lt 2 || ! $2 =~ ^[1-9][0-9]*$ ]]; then
                echo "fuzz.sh: $1 needs a positive count" >&2
                usage
            fi
            if [[ $1 == --minutes ]]; then seconds=$(($2 * 60)); else seconds=$2; fi
            shift 2 ;;
        --no-merge) merge=0; shift ;;
        -h|--help) usage ;;
        -*) echo "fuzz.sh: unknown option $1" >&2; usage ;;
        *) targets+=("${1%_fuzz}"); shift ;;
    esac
done
if [[ ${#targets[@]} -eq 0 ]]; then
    for src in "$root"/fuzz/*_fuzz.cpp; do
        name=$(basename "$src" .cpp)
        targets+=("${name%_fuzz}")
    done
fi
for t in "${targets[@]}"; do
    if [[ ! -f "$root/fuzz/${t}_fuzz.cpp" ]]; then
        echo "fuzz.sh: no target $t (fuzz/${t}_fuzz.cpp)" >&2
        usage
    fi
done

echo "== fuzz build"
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DZORCAM_BUILD_FUZZ=ON -DZORCAM_BUILD_TESTS=OFF -DZORCAM_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target "${targets[@]/%/_fuzz}"
mkdir -p "$build/artifacts"

summary=()
for t in "${targets[@]}"; do
    bin="$build/bin/${t}_fuzz"
    corpus="$root/fuzz/corpus/$t"
    log="$build/${t}_fuzz.log"
    scratch=$(mktemp -d)
    trap 'rm -rf "$scratch"' EXIT
    mkdir -p "$corpus"
    # A target's own libFuzzer flags, one a line, from fuzz/<target>_fuzz.options ('#' comments).
    flags=()
    if [[ -f "$root/fuzz/${t}_fuzz.options" ]]; then
        mapfile -t flags < <(grep -v -E '^[[:space:]]*(#|$)' "$root/fuzz/${t}_fuzz.options")
    fi
    echo "== fuzz $t (${seconds}s)${flags[*]:+ ${flags[*]}}"
    # New inputs go to the scratch directory (the first one named); the corpus is only read.
    if ! "$bin" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
            ${flags[@]+"${flags[@]}"} -artifact_prefix="$build/artifacts/$t-" \
            "$scratch" "$corpus" 2>"$log"; then
        tail -n 60 "$log"
        echo "fuzz: $t failed; its input is in $build/artifacts/" >&2
        exit 1
    fi
    done_line=$(grep -E '^#[0-9]+[[:space:]]+DONE' "$log" | tail -n 1)
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
    cov=$(sed -n 's/.* cov: \([0-9]*\) ft: \([0-9]*\).*/\1\/\2/p' <<<"$done_line")
    if [[ $merge -eq 1 ]]; then
        merged=$(mktemp -d)
        "$bin" -merge=1 -timeout=10 -rss_limit_mb=2048 "$merged" "$corpus" "$scratch" \
            >"$build/${t}_fuzz.merge.log" 2>&1
        rm -rf "$corpus"
        mv "$merged" "$corpus"
        chmod 755 "$corpus"
    fi
    rm -rf "$scratch"
    files=$(find "$corpus" -type f | wc -l)
    line=$(printf '%-14s %10s execs %7s exec/s  cov/ft %-11s corpus %d files' \
        "$t" "$execs" "$rate" "$cov" "$files")
    echo "$line"
    summary+=("$line")
done
echo "== fuzz summary (${seconds}s a target)"
printf '%s\n' "${summary[@]}"
