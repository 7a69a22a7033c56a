#!/usr/bin/env bash
# Cross-builds the library, the tool and every test for 64-bit Arm in build/arm64 (Debian's
# aarch64 cross compiler and arm64 libraries) and runs the tests under qemu-user.
# Extra arguments go to ctest (for example -R DebugDrawID); --build-only builds and stops.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/deps.sh"
"$root/scripts/deps.sh" --arm64
jobs=$(nproc)

# Debian's arm64 libbacktrace needs /usr/lib/p7zip/7z.so, which cannot be installed beside the
# host's own: unpack the arm64 package into a private root that the linker and qemu look in.
arm64_root="$root/build/arm64-root"
if [[ ! -f "$arm64_root/usr/lib/p7zip/7z.so" ]]; then
    scratch=$(mktemp -d)
    chmod 755 "$scratch"  # apt-get download drops privileges to write here
    (cd "$scratch" && apt-get download -qq p7zip-full:arm64)
    mkdir -p "$arm64_root"
    dpkg-deb -x "$scratch"/p7zip-full_*_arm64.deb "$arm64_root"
    rm -rf "$scratch"
fi

build="$root/build/arm64"
echo "== arm64 build"
ZORCAM_ARM64_ROOT="$arm64_root" cmake -S "$root" -B "$build" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/aarch64-linux-gnu.cmake" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZORCAM_WERROR=ON -DZORCAM_BUILD_BENCH=OFF \
    -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR=lib/aarch64-linux-gnu >/dev/null
cmake --build "$build" -j "$jobs"
[[ ${1:-} != --build-only ]] || exit 0
echo "== arm64 tests (qemu-user)"
(cd "$build" && ctest --output-on-failure -j "$jobs" --timeout 300 "$@")
