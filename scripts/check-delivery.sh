#!/usr/bin/env bash
# Checks every way the library is delivered, against the CMake build in $1 (default build/test,
# configured and built here when needed):
#   1. cmake --install into a temporary prefix whose path has a space; the installed tool runs
#      without LD_LIBRARY_PATH;
#   2. examples/consumer built and run with find_package, and with one pkg-config line; a
#      version of another major number is refused;
#   3. Android.bp: bpfmt has nothing to change; mini-soong, on a copy of the tree, builds the
#      library and the host stand-ins; their exported symbols equal the CMake build's; the CMake
#      build's unit tests pass against them; its Version.h rule gives CMake's header;
#   4. CMake and Android.bp build the same sources under utils/std/ and platform/.
# ZORCAM_DELIVERY_TIMING=1 also builds the same libraries with CMake in a fresh directory and
# prints both build times side by side.
set -euo pipefail  # no `grep -q` or `head` at a pipe's end: the writer's SIGPIPE would fail it
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(realpath -m "${1:-$root/build/test}")
jobs=$(nproc)
android_libdir=/usr/lib/$(gcc -print-multiarch)/android

work=$(mktemp -d /tmp/zorcam-delivery.XXXXXX)
trap 'rm -rf "$work"' EXIT
prefix="$work/install prefix"
started=$SECONDS

fail() {
    echo "delivery: $*" >&2
    exit 1
}
step() {
    echo "== delivery: $* (at $((SECONDS - started)) s)"
}

if [[ ! -f $build/CMakeCache.txt ]]; then
    cmake -S "$root" -B "$build" -G Ninja -DZORCAM_WERROR=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        >/dev/null
fi
cmake --build "$build" -j "$jobs" >"$work/build.log" 2>&1 ||
    { tail -n 40 "$work/build.log"; fail "the CMake build in $build failed"; }
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:[A-Z]*=//p' "$build/CMakeCache.txt")
major=${version%%.*}

step "install into '$prefix'"
cmake --install "$build" --prefix "$prefix" >/dev/null
pc=$(find "$prefix" -name zorcam-stdutils.pc)
[[ -n $pc ]] || fail "zorcam-stdutils.pc not installed"
libdir=$(dirname "$(dirname "$pc")")
for f in "$libdir/libzorcam_stdutils.so.$version" "$libdir/libzorcam_stdutils.so.$major" \
         "$libdir/libzorcam_stdutils.so" "$prefix/include/zorcam/utils/std/Version.h" \
         "$prefix/include/zorcam/utils/std/Format.h" "$prefix/bin/zorcam-util" \
         "$libdir/cmake/ZorcamStdUtils/ZorcamStdUtilsConfig.cmake" \
         "$libdir/cmake/ZorcamStdUtils/ZorcamStdUtilsConfigVersion.cmake"; do
    [[ -e $f ]] || fail "not installed: ${f#"$prefix"/}"
done
soname=$(readelf -d "$libdir/libzorcam_stdutils.so.$version" | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')
[[ $soname == "libzorcam_stdutils.so.$major" ]] || fail "installed soname is '$soname'"
grep -q "ZORCAM_STDUTILS_VERSION_STRING \"$version\"" "$prefix/include/zorcam/utils/std/Version.h" ||
    fail "Version.h does not say $version"
while IFS= read -r -d '' elf; do
    readelf -d "$elf" | grep "RUNPATH.*$android_libdir" >/dev/null ||
        fail "${elf#"$prefix"/} has no RUNPATH to $android_libdir"
done < <(find "$prefix/bin" "$libdir" -maxdepth 1 -type f \( -name 'lib*.so*' -o -perm -u+x \) -print0)
env -u LD_LIBRARY_PATH "$prefix/bin/zorcam-util" formats >/dev/null ||
    fail "the installed zorcam-util does not run"
echo "installed $(find "$prefix" -type f | wc -l) files"

step "consumer with find_package"
consumer_build="$work/consumer build"
cmake -S "$root/examples/consumer" -B "$consumer_build" -G Ninja \
    -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$consumer_build" >/dev/null
env -u LD_LIBRARY_PATH "$consumer_build/consumer"
if cmake -S "$root/examples/consumer" -B "$work/wrong version" -G Ninja \
        -DCMAKE_PREFIX_PATH="$prefix" -DZORCAM_CONSUMER_NEEDS=$((major + 1)).0 \
        >"$work/wrong.log" 2>&1; then
    fail "find_package accepted version $((major + 1)).0"
fi
grep -q "compatible with requested version" "$work/wrong.log" ||
    fail "find_package refused version $((major + 1)).0 without saying why: $(cat "$work/wrong.log")"

step "consumer with pkg-config"
# pkg-config escapes the spaces of the prefix for the shell, so the line goes through eval.
printf -v out '%q' "$work/pkg-config consumer"
(
    export PKG_CONFIG_PATH="$(dirname "$pc")"
    cd "$root/examples/consumer"
    eval "c++ -std=c++17 -Wall -Wextra -Wshadow -Werror -DCONSUMER_BUILT_WITH='\"pkg-config\"' main.cpp -o $out \
          $(pkg-config --cflags --libs zorcam-stdutils)"
)
env -u LD_LIBRARY_PATH "$work/pkg-config consumer"

step "Android.bp format"
formatting=$(bpfmt -d "$root/Android.bp")
[[ -z $formatting ]] || fail "bpfmt would change Android.bp:"$'\n'"$formatting"

step "Android.bp build with mini-soong"
bp_tree="$work/tree"
mkdir "$bp_tree"
tar -C "$root" --exclude=./build --exclude=./.git -cf - . | tar -C "$bp_tree" -xf -
bp_started=$SECONDS
(cd "$bp_tree" && mini-soong -o soong.mk 2> >(grep -v '^WARNING: genrule not yet supported' >&2))
# The shared libraries of the `build` target. mini-soong 0.20201028 writes no compile
# variables for cc_binary modules, so their rules cannot link; CMake builds those programs.
mapfile -t bp_libs < <(sed -n 's/^build: //p' "$bp_tree/soong.mk" | tr ' ' '\n' |
                       sed -n 's/^\(lib[^ ]*\.so\)\.\$(.*/\1/p')
[[ ${#bp_libs[@]} -gt 0 ]] || fail "mini-soong's Makefile builds no shared library"
# mini-soong leaves cpp_std aside and finds Debian's AOSP headers nowhere by itself.
make -C "$bp_tree" -f soong.mk -j "$jobs" --no-print-directory \
    libzorcam_stdutils_soversion="$version" CPPFLAGS="-isystem /usr/include/android" \
    CXXFLAGS="-std=c++17" "${bp_libs[@]}" >"$work/make.log" 2>&1 ||
    { tail -n 40 "$work/make.log"; fail "the mini-soong build failed"; }
bp_seconds=$((SECONDS - bp_started))
bp_lib="$bp_tree/libzorcam_stdutils.so.$version"
[[ -f $bp_lib ]] || fail "mini-soong made no libzorcam_stdutils.so.$version"
soname=$(readelf -d "$bp_lib" | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')
[[ $soname == "libzorcam_stdutils.so.$major" ]] || fail "mini-soong's soname is '$soname'"
echo "mini-soong built ${bp_libs[*]} in ${bp_seconds} s"

step "exported symbols, CMake against Android.bp"
symbols() { nm -D --defined-only "$1" | awk '{print $(NF-1), $NF}' | sort; }
cmake_libs=$(cd "$build/lib" && find . -maxdepth 1 -type f -name 'lib*.so*' -printf '%f\n' |
             sed 's/\.so.*//' | sort)
bp_built=$(printf '%s\n' "${bp_libs[@]}" | sed 's/\.so$//' | sort)
[[ $cmake_libs == "$bp_built" ]] ||
    fail "CMake builds [$(echo $cmake_libs)], Android.bp [$(echo $bp_built)]"
for lib in $cmake_libs; do
    ours=$(find "$build/lib" -maxdepth 1 -type f -name "$lib.so*")
    theirs=$(find "$bp_tree" -maxdepth 1 -type f -name "$lib.so.*")
    if ! diff -u --label "CMake $lib" --label "Android.bp $lib" <(symbols "$ours") \
            <(symbols "$theirs") >"$work/symbols.diff"; then
        head -n 40 "$work/symbols.diff"
        fail "$lib exports other symbols from Android.bp than from CMake"
    fi
    echo "$lib: $(symbols "$ours" | wc -l) symbols, the same in both builds"
done

step "unit tests against the Android.bp libraries"
loading=0
for program in "$build"/bin/*_test; do
    if LD_LIBRARY_PATH="$bp_tree:$android_libdir" ldd "$program" |
            grep "libzorcam_stdutils.so.$major => $bp_tree/" >/dev/null; then
        loading=$((loading + 1))
    fi
done
[[ $loading -gt 0 ]] || fail "no test program loads the Android.bp library"
echo "$loading test programs load the Android.bp libraries"
LD_LIBRARY_PATH="$bp_tree:$android_libdir" ctest --test-dir "$build" -j "$jobs" \
    --output-on-failure >"$work/ctest.log" 2>&1 ||
    { tail -n 60 "$work/ctest.log"; fail "unit tests fail against the Android.bp libraries"; }
grep -E 'tests passed' "$work/ctest.log"

step "Android.bp Version.h rule"
/usr/bin/python3 - "$root/Android.bp" >"$work/version_cmd.sh" <<'EOF'
import codecs, re, sys
from mini_soong.parser import soong
from mini_soong.model import Module
for m in soong.parseString(open(sys.argv[1]).read()):
    if isinstance(m, Module) and m.arguments.get("name") == "libzorcam_stdutils_version_h":
        cmd = codecs.decode(m.arguments["cmd"], "unicode_escape")
        cmd = re.sub(r"\$\(location ([^)]+)\)", r"\1", cmd).replace("$(out)", '"$1"')
        print(cmd.replace("$$", "$"))
EOF
[[ -s $work/version_cmd.sh ]] || fail "Android.bp has no libzorcam_stdutils_version_h rule"
(cd "$root" && bash "$work/version_cmd.sh" "$work/Version.h")
diff -u "$build/generated/include/zorcam/utils/std/Version.h" "$work/Version.h" ||
    fail "Android.bp's Version.h differs from CMake's"

step "build lists"
"$root/scripts/check-build-lists.py" "$root" "$build"
# The comparison must notice a source missing from Android.bp.
dropped=$(grep -m1 -o '"utils/std/[^"]*\.cpp",' "$root/Android.bp")
grep -vF "$dropped" "$root/Android.bp" >"$work/Android.bp"
if "$root/scripts/check-build-lists.py" "$root" "$build" "$work/Android.bp" 2>/dev/null; then
    fail "the build-list check missed ${dropped%,} dropped from Android.bp"
fi

if [[ ${ZORCAM_DELIVERY_TIMING:-0} == 1 ]]; then
    step "CMake build of the same libraries, for comparison"
    cmake_started=$SECONDS
    cmake -S "$root" -B "$work/cmake" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DZORCAM_BUILD_TESTS=OFF -DZORCAM_BUILD_BENCH=OFF >/dev/null
    cmake --build "$work/cmake" -j "$jobs" --target zorcam_stdutils >/dev/null
    echo "build time: mini-soong ${bp_seconds} s, CMake $((SECONDS - cmake_started)) s" \
         "(the same $(echo $cmake_libs | wc -w) libraries, -j $jobs)"
fi

echo "== delivery: all checks passed in $((SECONDS - started)) s"
