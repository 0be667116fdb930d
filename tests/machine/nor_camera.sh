# A camera with NOR flash about to be upgraded, sourced by the cases. Its root file system is one that
# runs: the executable, the applets' names, and a file that says which release it is.
# shellcheck shell=bash

# partition FILE KIB: the content of a partition that begins with a file.
partition() {
    cat "$1"
    head -c $(($2 * 1024 - $(stat -c %s "$1"))) /dev/zero | tr '\0' '\377'
}

# nor_release FOLDER WORD PORT FIRST LAST: kernel, rootfs and settings of a release.
nor_release() {
    local to=$1
    mkdir -p "$to"/root/{bin,dev,etc,proc,tmp}
    settings "$to/etc" "$2" "$3"
    echo "$2" > "$to/root/release"
    cp "$zep" "$to/root/bin/zep"
    ln -s zep "$to/root/bin/get_boot_param"
    kernel_image "$to/kernel" "$4" "$5" &&
        mkfs.jffs2 -l -e 64KiB -q -d "$to/root" -o "$to/rootfs" &&
        mkfs.jffs2 -l -e 64KiB -q -d "$to/etc" -o "$to/settings"
}

# nor_camera TO: the package TO/pkg and the chip TO/flash, as the camera's maker wrote it.
nor_camera() {
    local to=$1
    nor_release "$to/old" old 2000 1 10000 && nor_release "$to/new" new 1000 5000 20000 &&
        "$fwpkg" build -o "$to/pkg" "$to/new/kernel" "$to/new/rootfs" "$to/new/settings" &&
        printf 'CRC4ethaddr=00:1c:b8:01:02:03\0serial_no=A12345\0product_code=P-9\0\0' > "$to/env" || return 1
    {
        head -c 262144 /dev/zero | tr '\0' '\377'
        partition "$to/env" $((1024 - 256))
        partition "$to/old/kernel" 2048
        partition "$to/old/rootfs" 4096
        partition "$to/old/settings" 1024
    } > "$to/flash"
}

# nor_upgrade TO: that camera with the package on the board.
nor_upgrade() {
    nor_camera "$1" || wrong "no camera"
    mkdir -p "$root/usr"
    cp "$1/pkg" "$root/tmp/pkg"
    printf 'MARKER=3510\nVERSION=1\nMODEL=0000\n' > "$root/usr/upgrade"
}

# nor_chip FLASH TO: the chip's content as the files mtd0 to mtd3.
nor_chip() {
    local at=0 n=0 size
    mkdir -p "$2"
    for size in 1024 2048 4096 1024; do
        dd if="$1" of="$2/mtd$n" bs=1024 skip=$at count=$size status=none
        at=$((at + size)) n=$((n + 1))
    done
}
