#!/usr/bin/env bash
# Builds and runs every test: the normal build, then an AddressSanitizer + UBSan build, then the
# property store's concurrency test under ThreadSanitizer.
# Extra arguments go to ctest (for example -R Format).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/deps.sh"
jobs=$(nproc)

run_suite() {
    local name=$1; shift
    local build="$root/build/$name"
    echo "== $name build"
    cmake -S "$root" -B "$build" -G Ninja -DZORCAM_WERROR=ON "$@" >/dev/null
    cmake --build "$build" -j "$jobs"
    echo "== $name tests"
    (cd "$build" && ctest --output-on-failure -j "$jobs" "${ctest_args[@]}")
}

# Builds the libFuzzer targets with clang in build/fuzz and runs each for a bounded time
# (ZORCAM_FUZZ_SECONDS, 60 by default) over its corpus in fuzz/corpus/<target>/. New inputs
# go to a scratch directory, so the corpus in the tree only changes by hand; a crash, leak
# or sanitizer report fails the run and leaves its input in build/fuzz/artifacts/.
run_fuzz() {
    local build="$root/build/fuzz"
    local seconds=${ZORCAM_FUZZ_SECONDS:-60}
    echo "== fuzz build"
    CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DZORCAM_BUILD_FUZZ=ON -DZORCAM_BUILD_TESTS=OFF -DZORCAM_BUILD_BENCH=OFF >/dev/null
    local targets=()
    for src in "$root"/fuzz/*_fuzz.cpp; do targets+=("$(basename "$src" .cpp)"); done
    [[ ${#targets[@]} -gt 0 ]] || return 0
    cmake --build "$build" -j "$jobs" --target "${targets[@]}"
    mkdir -p "$build/artifacts"
    for target in "${targets[@]}"; do
        echo "== fuzz $target (${seconds}s)"
        local scratch
        scratch=$(mktemp -d)
        local corpus="$root/fuzz/corpus/${target%_fuzz}"
        mkdir -p "$corpus"
        if ! "$build/bin/$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
                -print_final_stats=1 -artifact_prefix="$build/artifacts/$target-" \
                "$scratch" "$corpus" 2>"$build/$target.log"; then
            tail -n 60 "$build/$target.log"
            rm -rf "$scratch"
            echo "fuzz: $target failed; its input is in $build/artifacts/" >&2
            return 1
        fi
        grep -E '^(Done|stat::number_of_executed_units)' "$build/$target.log" || true
        rm -rf "$scratch"
    done
}

ctest_args=("${@}")
run_suite test -DCMAKE_BUILD_TYPE=RelWithDebInfo
"$root/scripts/abi.sh"
(
    export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
    export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
    run_suite asan -DCMAKE_BUILD_TYPE=Debug -DZORCAM_SANITIZE=ON -DZORCAM_BUILD_BENCH=OFF
)
# The property store's concurrency test once more under ThreadSanitizer. Only that program is
# built and run, which keeps the stage to well under a minute.
(
    export TSAN_OPTIONS="halt_on_error=1 suppressions=$root/tests/property_test.tsan.supp"
    build="$root/build/tsan"
    echo "== tsan build (property_test)"
    cmake -S "$root" -B "$build" -G Ninja -DZORCAM_WERROR=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
          -DZORCAM_BUILD_BENCH=OFF -DCMAKE_C_FLAGS=-fsanitize=thread \
          -DCMAKE_CXX_FLAGS=-fsanitize=thread -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread \
          -DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread >/dev/null
    cmake --build "$build" -j "$jobs" --target property_test
    echo "== tsan tests"
    timeout 300 "$build/bin/property_test"
)
run_fuzz
