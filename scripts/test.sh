#!/usr/bin/env bash
# Builds and runs every test, one stage after another: the normal gcc build, the installed
# package and Android.bp checks, the API reference, the ABI check, a clang build, an
# AddressSanitizer + UBSan build, a ThreadSanitizer build, the arm64 cross build under
# qemu-user, the Debian packages, the arm64 build on a real arm64 kernel in
# qemu-system-aarch64, and the fuzz targets.
# Ends with each stage's time.
# Extra arguments go to ctest (for example -R Format). ZORCAM_STAGES="test tsan" runs only the
# stages named.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/deps.sh"
jobs=$(nproc)

# Configures build/<name> with the given options (-Werror always), builds it and runs ctest.
run_suite() {
    local name=$1; shift
    local build="$root/build/$name"
    echo "== $name build"
    cmake -S "$root" -B "$build" -G Ninja -DZORCAM_WERROR=ON "$@" >/dev/null
    cmake --build "$build" -j "$jobs"
    echo "== $name tests"
    (cd "$build" && ctest --output-on-failure -j "$jobs" "${ctest_args[@]}")
}

# The normal build; installed under /usr, as the Debian packages made from it are.
stage_test() {
    run_suite test -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr
}

# Installs the normal build into a scratch prefix, builds the example consumer both ways and
# checks Android.bp with the Soong tools (needs the test stage's build).
stage_delivery() {
    "$root/scripts/check-delivery.sh" "$root/build/test"
}

# The API reference: Doxygen over include/ fails on any undocumented or wrongly documented
# name, then every symbol the library exports must belong to a documented name.
stage_docs() {
    "$root/scripts/deps.sh" --docs
    cmake --build "$root/build/test" --target docs
    python3 "$root/scripts/docs-coverage.py" "$root/build/test/docs/xml" \
        "$root/build/test/lib/libzorcam_stdutils.so"
}

# The Debian packages for amd64 and arm64 (scripts/package.sh), checked with lintian and
# installed, used and purged again (scripts/check-packages.sh). Needs the arm64 build.
stage_package() {
    bash "$root/scripts/package.sh"
    bash "$root/scripts/check-packages.sh"
}

# The binary interface of the release library, for x86_64 and arm64, against abi/
# (scripts/abi.sh; see the README's Compatibility section).
stage_abi() {
    "$root/scripts/abi.sh"
}

# Everything built with clang as well (benchmarks included), so that its warnings fail the
# build too.
stage_clang() {
    CC=clang CXX=clang++ run_suite clang -DCMAKE_BUILD_TYPE=RelWithDebInfo
}

stage_asan() {
    ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
        run_suite asan -DCMAKE_BUILD_TYPE=Debug -DZORCAM_SANITIZE=ON -DZORCAM_BUILD_BENCH=OFF
}

# Every test program under ThreadSanitizer. tests/tsan.supp names the races that TSan reports
# inside the uninstrumented Debian libraries.
stage_tsan() {
    local flags=-fsanitize=thread
    TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$root/tests/tsan.supp" \
        run_suite tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZORCAM_BUILD_BENCH=OFF \
            -DCMAKE_C_FLAGS=$flags -DCMAKE_CXX_FLAGS=$flags \
            -DCMAKE_EXE_LINKER_FLAGS=$flags -DCMAKE_SHARED_LINKER_FLAGS=$flags
}

stage_arm64() {
    bash "$root/scripts/test-arm64.sh" "${ctest_args[@]}"
}

# The arm64 build's tests on Linux 6.1 with the sw_sync driver, booted in qemu-system-aarch64
# (scripts/test-kernel.sh; the kernel is built once and kept under build/kernel/).
stage_kernel() {
    bash "$root/scripts/test-kernel.sh"
}

# Every libFuzzer target for a bounded time (ZORCAM_FUZZ_SECONDS, 60 by default) over its
# corpus in fuzz/corpus/<target>/, leaving the corpus as it is; a crash, leak or sanitizer report
# fails the stage and leaves its input in build/fuzz/artifacts/ (scripts/fuzz.sh).
stage_fuzz() {
    "$root/scripts/fuzz.sh" --seconds "${ZORCAM_FUZZ_SECONDS:-60}" --no-merge
}

# Runs each stage in turn, stopping at the first that fails, and prints every stage's time at
# the end, whether the run passed or not.
stages=(${ZORCAM_STAGES:-test delivery docs abi clang asan tsan arm64 package kernel fuzz})
ctest_args=("$@")
summary=()
print_summary() {
    echo "== stage times"
    printf '%s\n' "${summary[@]}"
    echo "   total $((SECONDS / 60))m $((SECONDS % 60))s"
}
trap print_summary EXIT
for stage in "${stages[@]}"; do
    start=$SECONDS
    # A subshell outside any condition, so that errexit holds inside the stage.
    set +e
    (set -e; "stage_$stage")
    rc=$?
    set -e
    status=passed
    [[ $rc -eq 0 ]] || status=FAILED
    elapsed=$((SECONDS - start))
    summary+=("$(printf '   %-8s %3dm %02ds  %s' "$stage" $((elapsed / 60)) $((elapsed % 60)) \
        "$status")")
    [[ $status == passed ]] || exit 1
done
