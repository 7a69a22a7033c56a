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

# Every libFuzzer target for a bounded time (ZORCAM_FUZZ_SECONDS, 60 by default) over its corpus
# in fuzz/corpus/<target>/, leaving the corpus as it is; a crash, leak or sanitizer report fails
# the run and leaves its input in build/fuzz/artifacts/ (scripts/fuzz.sh).
run_fuzz() {
    "$root/scripts/fuzz.sh" --seconds "${ZORCAM_FUZZ_SECONDS:-60}" --no-merge
}

ctest_args=("${@}")
run_suite test -DCMAKE_BUILD_TYPE=RelWithDebInfo
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
