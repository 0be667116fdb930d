title="damaged packages are refused and leave the flash untouched"
spoil() { printf '\245' | dd of="$1" bs=1 seek="$2" conv=notrunc status=none; } # FILE OFFSET
damaged="header kernel_header kernel_data settings short long stub"
prepare() {
    old_camera "$work/firmware/pkg"
    local pkg=$root/tmp/pkg kind settings
    size=$(stat -c %s "$pkg")
    settings=$(od -A n -t u4 -j 8 -N 8 "$pkg" | awk '{ print 20 + $1 + $2 }')
    for kind in $damaged; do cp "$pkg" "$root/tmp/$kind"; done
    spoil "$root/tmp/header" 4
    spoil "$root/tmp/kernel_header" $((20 + 16))
    spoil "$root/tmp/kernel_data" $((20 + 64 + 300001))
    spoil "$root/tmp/settings" $((settings + 65536))
    truncate -s $((size - 1)) "$root/tmp/short"
    echo >> "$root/tmp/long"
    truncate -s 7 "$root/tmp/stub"
    echo "$damaged" > "$root/damaged"
}
board() {
    furnish
    # Here the reboot ends the applet alone, so that one machine refuses them all.
    printf '%s\n' '#!/bin/busybox sh' 'kill -9 $(pidof upgrade)' > /sbin/reboot
    flash_sum() { cat /dev/mtd1 /dev/mtd2 /dev/mtd3 | md5sum; }
    for kind in $(cat /damaged); do
        sync
        before=$(flash_sum)
        upgrade /tmp/$kind -v > $out/$kind 2> /dev/null
        [ "$(flash_sum)" = "$before" ] || echo "flash changed" >> $out/$kind
        grep -q ' /etc ' /proc/mounts || mount -t jffs2 /dev/mtdblock3 /etc
        cat /etc/release >> $out/$kind
    done
}
judge() {
    local kind reason
    for kind in $damaged; do
        case $kind in
        header | stub) reason="" ;;
        kernel*) reason="[ERROR] CFlash_QRNWrite : chech Image" ;;
        settings) reason="[ERROR] CFlash_QRNWrite : check JFFS2" ;;
        short) reason="[ERROR] CFlash_QRNWrite : Firmware image size : $size vs $((size - 1))" ;;
        long) reason="[ERROR] CFlash_QRNWrite : Firmware image size : $size vs $((size + 1))" ;;
        esac
        { [ -z "$reason" ] || echo "$reason"; echo "Upgrade fail."; echo old; } | says "$kind" "$out/$kind"
    done
}
