#!/bin/bash
# whole_upgrade.sh BUILD_FOLDER: xupgrade on the virtual camera, beyond its documented pauses, beside a plain
# copy and compare of the same bytes to the same flash; peak memory for three package sizes.
set -eu
build=$(realpath "$1")
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cd "$dir"
PATH=$build/bin:$PATH:/usr/sbin
guest=$build/bench/upgrade/bench_in_camera

mkdir etc
echo device_name=bench > etc/system.conf
mkfs.jffs2 -q -e 0x10000 -p -d etc -o settings
head -c 1048576 /dev/urandom > kernel
mkimage -A arm -O linux -T kernel -C none -d kernel uImage > /dev/null

in_camera() { vcam run camera --bind "$guest" -- /run/bin/bench_in_camera "$@"; }

for size in 1 16 64; do
    head -c ${size}M /dev/urandom > rootfs
    fwpkg build -o package uImage rootfs settings
    vcam new camera --force --size mtd2=${size}M
    cp package camera/root/tmp/flash3
    in_camera measure xupgrade -f > /dev/null 2> upgrade.txt
    cmp -n $((size * 1048576)) rootfs camera/flash/mtd2
    cp rootfs camera/root/tmp/rootfs
    head -c ${size}M /dev/zero | tr '\0' '\377' > camera/flash/mtd2
    in_camera measure /run/bin/bench_in_camera copy /tmp/rootfs /dev/mtd2 $((size * 1048576)) 2> copy.txt
    printf 'upgrade with a file system of %2d MiB: %s peak; plain copy and compare: %s\n' \
        "$size" "$(tail -n 1 upgrade.txt)" "$(tail -n 1 copy.txt)"
done
