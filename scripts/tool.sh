#!/usr/bin/env bash
# Builds the library and zorcam-util, then runs the tool. With no arguments it runs the demo
# preview with its report in build/demo; otherwise the arguments go to zorcam-util as they are.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/deps.sh"
build="$root/build/release"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZORCAM_BUILD_TESTS=OFF \
    -DZORCAM_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" --target zorcam-util >/dev/null
if [[ $# -eq 0 ]]; then set -- demo --out "$root/build/demo"; fi
exec "$build/bin/zorcam-util" "$@"
