#!/usr/bin/env bash
# Runs every test program of the arm64 build on a real Linux kernel: Debian's Linux 6.1 source,
# configured from allnoconfig plus scripts/kernel/zorcam.config (sync files and the sw_sync
# driver among it), cross-built once and kept under build/kernel/<key>/, booted in
# qemu-system-aarch64's `virt` machine with an initramfs holding the test programs, exactly the
# arm64 libraries they load, and busybox. Inside, timelines come from the kernel's driver
# (ZORCAM_SW_SYNC is unset) and ZORCAM_KERNEL_STAGE=1 tells the tests where they run.
#
#   scripts/test-kernel.sh [--build-dir DIR] [-R REGEX]
#
# --build-dir names the arm64 build (default build/arm64, built first if missing); -R runs only
# the ctest tests whose names match. Fails on any failing test, a kernel panic, or a machine
# that has not powered off in time (ZORCAM_VM_SECONDS, 600 by default).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build/arm64"
filter=
while [[ $# -gt 0 ]]; do
    case $1 in
        --build-dir) build=$(cd "${2:?--build-dir needs a directory}" && pwd); shift 2 ;;
        -R) filter=${2:?-R needs a regular expression}; shift 2 ;;
        *) echo "test-kernel.sh: unknown argument '$1' (use --build-dir DIR, -R REGEX)" >&2
           exit 2 ;;
    esac
done

"$root/scripts/deps.sh" --kernel
[[ -f "$build/CMakeCache.txt" ]] || bash "$root/scripts/test-arm64.sh" --build-only
kdir="$root/build/kernel"
mkdir -p "$kdir"

# The kernel, kept under a key made of the source package's version, the fragment and the
# compiler: a rebuild only when one of them changes.
fragment="$root/scripts/kernel/zorcam.config"
version=$(dpkg-query -W -f='${Version}' linux-source-6.1)
key=$( (echo "$version"; cat "$fragment"; aarch64-linux-gnu-gcc --version | head -n 1) |
       sha256sum | cut -c1-16)
image="$kdir/$key/Image"
if [[ ! -f $image ]]; then
    echo "== kernel: building Linux $version for arm64 (kept as build/kernel/$key)"
    start=$SECONDS
    work="$kdir/$key.work"
    rm -rf "$work" && mkdir -p "$work/obj"
    tar -xJf /usr/src/linux-source-6.1.tar.xz -C "$work"
    kmake=(make -s -C "$work/linux-source-6.1" O="$work/obj" ARCH=arm64
           CROSS_COMPILE=aarch64-linux-gnu-)
    "${kmake[@]}" KCONFIG_ALLCONFIG="$fragment" allnoconfig
    # allnoconfig drops what the fragment asks for when a dependency is missing: say which.
    missing=$(grep -E '^CONFIG_' "$fragment" | grep -vxF -f "$work/obj/.config" || true)
    if [[ -n $missing ]]; then
        echo "kernel: the configuration lacks:" >&2
        echo "$missing" >&2
        exit 1
    fi
    nice "${kmake[@]}" -j "$(nproc)" Image
    mkdir -p "$kdir/$key"
    cp "$work/obj/arch/arm64/boot/Image" "$work/obj/.config" "$kdir/$key/"
    rm -rf "$work"
    echo "== kernel: built in $((SECONDS - start)) s"
fi

# busybox for the init and the shell that tests start programs through, unpacked from
# Debian's arm64 package rather than installed over the host's own.
busybox="$kdir/busybox/bin/busybox"
if [[ ! -x $busybox ]]; then
    scratch=$(mktemp -d)
    chmod 755 "$scratch"  # apt-get download drops privileges to write here
    (cd "$scratch" && apt-get download -qq busybox-static:arm64 2>/dev/null)
    rm -rf "$kdir/busybox"
    dpkg-deb -x "$scratch"/busybox-static_*_arm64.deb "$kdir/busybox"
    rm -rf "$scratch"
fi

# The initramfs: the tests' programs and libraries at the paths they have here (tests name
# programs and the build's libraries by absolute path), their commands as ctest runs them.
echo "== kernel: initramfs"
staging="$kdir/rootfs"
rm -rf "$staging"
mkdir -p "$staging"/{bin,usr/bin,proc,sys,dev,tmp,zorcam}
cp "$busybox" "$staging/bin/busybox"
for applet in sh env mount poweroff timeout cat cut grep rm; do
    ln -s busybox "$staging/bin/$applet"
done
# A cross build runs the programs a test starts under ZORCAM_TEST_EMULATOR (qemu-user);
# on the kernel they run as they are.
cat > "$staging/usr/bin/qemu-aarch64" <<'EOF'
#!/bin/sh
[ "$1" = -L ] && shift 2
exec "$@"
EOF
chmod 755 "$staging/usr/bin/qemu-aarch64"
install -m 755 "$root/scripts/kernel/init" "$staging/init"
python3 "$root/scripts/kernel/stage.py" "$build" "$staging" "$filter"

# Uncompressed: the kernel unpacks it without a decompressor, and qemu loads it in a moment.
initramfs="$kdir/initramfs.cpio"
(cd "$staging" && find . -mindepth 1 | LC_ALL=C sort | cpio -o -H newc --quiet) > "$initramfs"
rm -rf "$staging"
echo "   initramfs: $(($(stat -c %s "$initramfs") / 1048576)) MiB"

echo "== kernel: booting qemu-system-aarch64 -M virt -cpu max -smp 2 -m 1G"
console="$kdir/console.log"
seconds=${ZORCAM_VM_SECONDS:-600}
start=$SECONDS
set +e
timeout --kill-after=10 "$seconds" qemu-system-aarch64 -M virt -cpu max -smp 2 -m 1G \
    -nographic -nic none -no-reboot -kernel "$image" -initrd "$initramfs" \
    -append "console=ttyAMA0 panic=-1 quiet" </dev/null 2>&1 |
    tr -d '\r' | tee "$console" | grep --line-buffered -E '^zorcam-vm: (booted|program|FAILED|skipped|done)'
qemu_rc=${PIPESTATUS[0]}
set -e
elapsed=$((SECONDS - start))

python3 "$root/scripts/kernel/summary.py" "$console" "$qemu_rc" "$elapsed" "$seconds"
