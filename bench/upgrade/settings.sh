#!/bin/bash
# settings.sh BUILD_FOLDER [ROUNDS]: what it costs that each change of settings reaches the flash at once. A small upgrade
# that puts back settings, with the host's /dev/fuse beside one where it is hidden, interleaved; medians of the rounds (15).
# Needs root, or user namespaces and a /dev/fuse for everybody.
set -eu
build=$(realpath "$1")
rounds=${2:-15}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cd "$dir"
PATH=$build/bin:$PATH:/usr/sbin

mkdir -p etc/network
echo ip_address=192.168.1.100 > etc/network/network.conf
echo system_name=new > etc/system.conf
printf 'stream_1_port=1852\nstream_2_port=1853\nstream_3_port=1854\n' > etc/stream.conf
echo server_port=1852 > etc/tcp_server.conf
mkfs.jffs2 -l -n -q -e 0x10000 -d etc -o settings
head -c 1500000 /dev/urandom > kernel
mkimage -A arm -O linux -T kernel -C none -d kernel uImage > /dev/null
head -c 3M /dev/urandom > rootfs
fwpkg build -o package uImage rootfs settings
[ "$(id -u)" = 0 ] && own=-m || own=-rm

# upgrade NAME COMMAND: milliseconds of one upgrade in a new camera, appended to the file NAME.
upgrade() {
    vcam new camera --force
    vcam put camera package /tmp/pkg
    local begin=$(date +%s%N)
    unshare $own sh -c "$2; exec vcam run camera -- upgrade /tmp/pkg -v" > /dev/null 2>&1
    echo $((($(date +%s%N) - begin) / 1000000)) >> "$1"
    cmp -n 3145728 rootfs camera/flash/mtd2
    grep -q "$3" camera/settings
}
median() { sort -n "$1" | sed -n "$((rounds / 2 + 1))p"; }

touch hidden
for _ in $(seq "$rounds"); do
    upgrade served 'mount --bind hidden hidden' '^at once$'
    upgrade late 'mount --bind hidden /dev/fuse' '^at unmount or end'
done
echo "upgrade: $(median served) ms with settings written at once, $(median late) ms at unmount or end:" \
    "$(awk "BEGIN { printf \"%.3f\", $(median served) / $(median late) }") times (medians of $rounds)"
