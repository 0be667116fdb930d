# An upgrade and what it leaves, sourced by the cases.
# shellcheck shell=bash

ends=123
prepare() { old_camera "$work/firmware/pkg"; }
board() {
    furnish
    upgrade_here
}

expected_console() {
    printf 'CFlash_QRNWrite : flash%d complete\n' 1 2 3
    echo "Upgrade complete."
}

# kept_settings OLD NEW FOUND: the settings that stood before, in the files of the new firmware.
kept_settings() {
    local differ file
    cp -a "$2" "$out/expected_etc"
    for file in $kept_files $kept_values; do cp "$1/$file" "$out/expected_etc/$file"; done
    differ=$(diff -r "$out/expected_etc" "$3") || wrong "settings:"$'\n'"$differ"
}

upgraded_settings() {
    grep -q '^/dev/mtdblock3 /etc jffs2 ' "$out/mounts" || wrong "/etc is not mounted"
    kept_settings "$work/old/etc" "$work/firmware/etc" "$out/etc"
}

upgraded_flash() {
    flashed mtd1 "$work/firmware/kernel"
    flashed mtd2 "$work/firmware/rootfs"
}

upgraded() {
    expected_console | says console "$out/console"
    upgraded_flash
    upgraded_settings
}

# The size of an image in a package: whole pages.
padded() { echo $((($(stat -c %s "$1") + 511) / 512 * 512)); }

# as_in_the_camera FAULTS BLANK [OPTION...]: the same upgrade in a virtual camera with the same flash
# says and logs the same and leaves the same settings. FAULTS are lines of a fault plan, BLANK blocks
# that the old firmware could not be written to, as mtd1:3.
as_in_the_camera() {
    local faults=$1 blank=$2 camera=$out/camera file block
    shift 2
    "$vcam" new "$camera" --flash nand --size mtd1=1M --size mtd2=1M --size mtd3=1M "$@" || wrong "no camera"
    (cd "$work/old/etc" && find . -type f) | while read -r file; do
        "$vcam" put "$camera" "$work/old/etc/$file" "/etc/$file" || wrong "cannot put $file"
    done
    "$vcam" put "$camera" "$root/tmp/pkg" /tmp/pkg
    cp "$work/old/kernel" "$camera/flash/mtd1"
    cp "$work/old/rootfs" "$camera/flash/mtd2"
    for block in $blank; do
        head -c 16384 /dev/zero | tr '\0' '\377' |
            dd of="$camera/flash/${block%:*}" bs=16384 seek="${block#*:}" conv=notrunc status=none
    done
    echo "$faults" > "$camera/faults"
    "$vcam" run "$camera" -- upgrade /tmp/pkg -v > "$out/camera_console" 2> "$root/errors"
    grep -v -E '^(umount|ifconfig|rmmod|kill|Killed)' "$root/errors" > "$out/camera_errors"
    same_file "console (- machine, + camera)" "$out/console" "$out/camera_console"
    same_file "errors (- machine, + camera)" "$out/errors" "$out/camera_errors"
    # Without a word from the program each C library names it in its own way.
    sed '/ syslogd started/d; s/^.\{15\} [^ :]*: //' "$out/log" > "$out/lines"
    sed 's/^[^ ]* [^ ]* [^ :]*: //; s/\\n$//' "$camera/syslog" > "$out/camera_lines"
    same_file "system log (- machine, + camera)" "$out/lines" "$out/camera_lines"
    "$vcam" get "$camera" /etc "$out/camera_etc" || wrong "the camera's /etc cannot be read"
    local differ
    differ=$(diff -r "$out/etc" "$out/camera_etc") || wrong "settings of machine and camera:"$'\n'"$differ"
}

# flash_as_in_the_camera PARTITION...
flash_as_in_the_camera() {
    local partition
    for partition; do same_bytes "$partition of machine and camera" "$out/$partition" "$out/camera/flash/$partition"; done
}
