# The firmware of the tests on the emulated machine, sourced by run.sh: in $work/firmware the images
# of a new release and its package, in $work/old what a camera holds before.
# shellcheck shell=bash

kept_files="network/network.conf network/wireless.conf system.conf serverinfo.conf cam_model.conf"
kept_values="tcp_server.conf stream.conf videodecoder.conf web.conf"

# settings FOLDER WORD PORT: a configuration partition whose values name the firmware they are of.
settings() {
    local to=$1 word=$2 port=$3 file
    mkdir -p "$to/network"
    for file in $kept_files; do echo "value=$word" > "$to/$file"; done
    printf 'server_port=%d\n' "$port" > "$to/tcp_server.conf"
    printf 'stream_1_port=%d\nstream_2_port=%d\nstream_3_port=%d\n' $((port + 1)) $((port + 2)) $((port + 3)) > "$to/stream.conf"
    printf 'video_type=%d\n' $((port % 10)) > "$to/videodecoder.conf"
    printf 'port=%d\n' $((port + 4)) > "$to/web.conf"
    echo "MARKER=3510" > "$to/oem_marker.conf"
    echo "$word" > "$to/release"
    : > "$to/killList"
    : > "$to/termList"
}

# kernel_image TO FIRST LAST: the boot loader's image of a file of numbers.
kernel_image() {
    seq "$2" "$3" > "$1.raw"
    mkimage -A arm -O linux -T kernel -C none -a 0x80008000 -e 0x80008000 -n kernel -d "$1.raw" "$1" > /dev/null
}

make_firmware() {
    local new=$work/firmware old=$work/old
    mkdir -p "$new" "$old"
    settings "$old/etc" old 2000 && settings "$new/etc" new 1000 || return 1
    # Noise compresses badly: a dozen erase blocks.
    awk 'BEGIN { srand(7); for (i = 0; i < 240000; ++i) printf "%c", 33 + int(rand() * 94) }' > "$new/etc/large"
    kernel_image "$old/kernel" 1 60000 && kernel_image "$new/kernel" 50000 130000 &&
        seq 1 120000 > "$old/rootfs" && seq 200000 300000 > "$new/rootfs" &&
        mkfs.jffs2 -l -n -e 16KiB -q -d "$new/etc" -o "$new/settings.jffs2" &&
        "$fwpkg" build -o "$new/pkg" "$new/kernel" "$new/rootfs" "$new/settings.jffs2"
}

# old_camera PACKAGE: a camera about to be upgraded, put into the machine's files.
old_camera() {
    mkdir -p "$root/usr"
    cp -a "$work/old" "$root/old"
    cp "$1" "$root/tmp/pkg"
    printf 'MARKER=3510\nVERSION=1\nMODEL=0000\n' > "$root/usr/upgrade"
}
