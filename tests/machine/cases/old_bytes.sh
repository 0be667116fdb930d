title="old bytes that a bad block keeps: the comparison tells them, three attempts, then on"
. "$here/upgraded.sh"
# Block 5 of /dev/mtd2 is bad: it takes what is written and is never erased.
options=(-n badblocks=133)
board() {
    furnish
    dd if=/old/rootfs of=/dev/mtd2 bs=16k skip=5 seek=5 count=1 2> /dev/null
    upgrade_here
}
judge() {
    {
        expected_console | head -n 1
        for _ in 1 2 3; do echo "[CFlash_Confirm] cmp error : /dev/mtd2 : Input/output error"; done
        expected_console | tail -n +2
    } | says console "$out/console"
    {
        for _ in 1 2 3; do printf '\n/dev/mtd2: MTD Erase failure: Input/output error\n'; done
        echo "upgrade: /dev/mtd2 does not hold its image of $(padded "$work/firmware/rootfs") bytes (cmp: Input/output error)"
    } | says errors "$out/errors"
    flashed mtd1 "$work/firmware/kernel"
    same_bytes "/dev/mtd2 before the block" "$work/firmware/rootfs" "$out/mtd2" $((5 * 16384))
    upgraded_settings
    as_in_the_camera "" "" --bad mtd2:5
    flash_as_in_the_camera mtd1
}
