title="NOR flash lasts: upgrade, reset, and the new release runs with the settings put back"
. "$here/upgraded.sh"
. "$here/nor_camera.sh"
options=(-f "$dir/nor/flash")
prepare() { nor_upgrade "$dir/nor"; }
board() {
    settle_in
    upgrade_here
}

# The next boot, as a camera's: its root file system from the flash, its settings over that.
second_boot() {
    . /board/guest.sh
    mount -t jffs2 /dev/mtdblock2 /mnt && mount -t jffs2 /dev/mtdblock3 /mnt/etc && mount --bind /dev /mnt/dev || exit 1
    cp /mnt/release $out/release
    cp -a /mnt/etc $out/etc
    chroot /mnt /bin/zep | tail -n 1 > $out/applets
    chroot /mnt /bin/get_boot_param /tmp/parameters > $out/parameters # its file is written by a shell, which is not there
}
judge() {
    expected_console | says console "$out/console"
    rm -rf "$out/etc"
    {
        printf '%s\n' '#!/bin/busybox sh'
        declare -f second_boot
        echo second_boot
    } > "$dir/second"
    "$here/board.sh" -t 1500 -f "$dir/nor/flash" -o "$out" "$zep" "" "$dir/second" > "$dir/console" 2> "$dir/errors" ||
        wrong "the second boot ended with $?"
    equal "release that runs" new "$(cat "$out/release")"
    grep -q 'get_boot_param.*xupgrade' "$out/applets" || wrong "the new release's executable does not run"
    grep -q 'SERIAL_NO \[A12345\]' "$out/parameters" || wrong "the new release does not read the boot environment"
    nor_chip "$dir/nor/flash" "$out"
    flashed mtd1 "$dir/nor/new/kernel"
    same_bytes /dev/mtd2 "$dir/nor/new/rootfs" "$out/mtd2" "$(stat -c %s "$dir/nor/new/rootfs")"
    kept_settings "$dir/nor/old/etc" "$dir/nor/new/etc" "$out/etc"
}
