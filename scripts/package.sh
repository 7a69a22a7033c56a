#!/usr/bin/env bash
# Makes the Debian packages of the desk build into build/packages/: libzorcam-stdutils1,
# libzorcam-stdutils-dev, zorcam-util and zorcam-host-platform, for amd64 from the normal
# build (build/test) and for arm64 from the cross build (build/arm64), with CPack.
# usage: package.sh [--arch amd64|arm64|all]   (all by default)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
arches=(amd64 arm64)
while [[ $# -gt 0 ]]; do
    case $1 in
        --arch)
            [[ ${2:-} =~ ^(amd64|arm64|all)$ ]] || {
                echo "package.sh: --arch takes amd64, arm64 or all" >&2; exit 2; }
            [[ $2 == all ]] || arches=("$2")
            shift 2 ;;
        *) echo "package.sh: unknown argument '$1' (usage: package.sh [--arch amd64|arm64|all])" >&2
           exit 2 ;;
    esac
done
"$root/scripts/deps.sh"
"$root/scripts/deps.sh" --package
out="$root/build/packages"
mkdir -p "$out"

# Two things CPack 3.25 cannot say, settled on the package it made: dpkg's ldconfig trigger
# instead of the postinst and postrm that call ldconfig (nothing else is in them), and
# "Multi-Arch: same" for the two library packages, whose files are the same on every
# architecture but for the multiarch library folder.
finish_deb() {
    local deb=$1 tree
    tree=$(mktemp -d)
    dpkg-deb -R "$deb" "$tree"
    if [[ -f $tree/DEBIAN/postinst ]]; then
        if grep -vqE '^(#!/bin/sh|set -e|if \[ "\$1" = "(configure|remove)" \]; then|[[:space:]]*ldconfig|fi|)$' \
                "$tree/DEBIAN/postinst" "$tree/DEBIAN/postrm"; then
            echo "package.sh: unexpected maintainer script in $deb" >&2
            rm -rf "$tree"
            return 1
        fi
        rm "$tree/DEBIAN/postinst" "$tree/DEBIAN/postrm"
        echo "activate-noawait ldconfig" >"$tree/DEBIAN/triggers"
        chmod 644 "$tree/DEBIAN/triggers"
    fi
    if grep -qE '^Package: (libzorcam-stdutils1|zorcam-host-platform)$' "$tree/DEBIAN/control"; then
        sed -i '/^Architecture:/a Multi-Arch: same' "$tree/DEBIAN/control"
    fi
    dpkg-deb --root-owner-group -Zxz -b "$tree" "$deb" >/dev/null
    rm -rf "$tree"
}

for arch in "${arches[@]}"; do
    if [[ $arch == amd64 ]]; then
        build="$root/build/test"
        echo "== package amd64: build ($build)"
        cmake -S "$root" -B "$build" -G Ninja -DZORCAM_WERROR=ON \
            -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr >/dev/null
        cmake --build "$build" -j "$(nproc)" >/dev/null
        host=()
    else
        build="$root/build/arm64"
        echo "== package arm64: build ($build)"
        bash "$root/scripts/test-arm64.sh" --build-only >/dev/null
        # dpkg-shlibdeps looks the libraries up as the arm64 packages' files.
        host=(env DEB_HOST_ARCH=arm64)
    fi
    rm -f "$out"/*_"$arch".deb
    echo "== package $arch: cpack"
    # CPack's own notes (the stand-ins have no versioned soname, so no shlibs line) go to a log.
    log="$build/cpack.log"
    (cd "$build" && "${host[@]}" cpack -G DEB -B "$out" >"$log" 2>&1) || {
        cat "$log" >&2; echo "package.sh: cpack failed for $arch" >&2; exit 1; }
    rm -rf "$out/_CPack_Packages"
    for deb in "$out"/*_"$arch".deb; do finish_deb "$deb"; done
    for deb in "$out"/*_"$arch".deb; do
        printf '   %-58s %6s KiB\n' "${deb#"$root"/}" $(( $(stat -c %s "$deb") / 1024 ))
    done
done
