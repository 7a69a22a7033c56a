#!/usr/bin/env bash
# Checks the Debian packages in build/packages/ (scripts/package.sh) as a user meets them:
#   1. lintian on each of them: no error (the accepted warnings are listed in the README);
#   2. the amd64 packages installed with apt-get, as a user installs them;
#   3. the example consumer built against the installed packages with find_package and with
#      pkg-config, and run; zorcam-util run from /usr/bin;
#   4. the packages purged again, and the machine's package list as it was before.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out="$root/build/packages"
names=(libzorcam-stdutils1 libzorcam-stdutils-dev zorcam-util zorcam-host-platform)
sudo_cmd=()
[[ $(id -u) -eq 0 ]] || sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
fail() { echo "check-packages: $*" >&2; exit 1; }

debs=()
for arch in amd64 arm64; do
    for name in "${names[@]}"; do
        deb=$(find "$out" -maxdepth 1 -name "${name}_*_${arch}.deb" | head -1)
        [[ -n $deb ]] || fail "no $name package for $arch in $out (run scripts/package.sh)"
        debs+=("$deb")
    done
done

echo "== packages: lintian"
# Lintian runs as root here only to read the packages; it says so on stderr.
lintian --fail-on error --tag-display-limit 0 "${debs[@]}" 2> >(grep -v "running with root" >&2) |
    sed 's/^/   /' || fail "lintian reports an error"

packages_now() { dpkg-query -W -f '${binary:Package} ${Version} ${db:Status-Abbrev}\n' | sort; }
before=$(packages_now)
work=$(mktemp -d)
purge() {
    "${sudo_cmd[@]}" apt-get purge -y -qq "${names[@]}" >/dev/null 2>&1 || true
    rm -rf "$work"
}
trap purge EXIT

echo "== packages: install the amd64 packages with apt-get"
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends \
    $(printf '%s\n' "${debs[@]}" | grep '_amd64\.deb$') >/dev/null 2> >(grep -v '^debconf: delaying' >&2)
for name in "${names[@]}"; do
    dpkg-query -W -f '${Status}\n' "$name" | grep -q "install ok installed" ||
        fail "$name is not installed"
done

echo "== packages: the consumer with find_package"
cmake -S "$root/examples/consumer" -B "$work/cmake" -G Ninja >/dev/null
cmake --build "$work/cmake" >/dev/null
env -u LD_LIBRARY_PATH "$work/cmake/consumer" | sed 's/^/   /'

echo "== packages: the consumer with pkg-config"
c++ -std=c++17 "$root/examples/consumer/main.cpp" -o "$work/consumer-pc" \
    $(pkg-config --cflags --libs zorcam-stdutils)
env -u LD_LIBRARY_PATH "$work/consumer-pc" | sed 's/^/   /'

echo "== packages: /usr/bin/zorcam-util formats"
[[ $(command -v zorcam-util) == /usr/bin/zorcam-util ]] || fail "zorcam-util is not /usr/bin's"
formats=$(/usr/bin/zorcam-util formats)
echo "   $(wc -l <<<"$formats") lines, starting:"
head -3 <<<"$formats" | sed 's/^/   /'

echo "== packages: purge"
purge
trap - EXIT
for name in "${names[@]}"; do
    ! dpkg-query -W -f '${Status}\n' "$name" 2>/dev/null | grep -q "installed" ||
        fail "$name is still installed"
done
[[ ! -e /usr/include/zorcam && ! -e /usr/bin/zorcam-util ]] || fail "files left after purge"
[[ $(packages_now) == "$before" ]] || {
    diff <(echo "$before") <(packages_now) >&2; fail "the package list changed"; }
echo "== packages: all checks passed"
