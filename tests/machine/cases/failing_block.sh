title="blocks that no longer erase and pages that no longer program: told, three attempts, then on"
. "$here/upgraded.sh"
# Block 3 of /dev/mtd1 and the first page in block 5 of /dev/mtd2 took the old firmware for the last time.
options=(-n "weakblocks=67:1 weakpages=4256:1")
judge() {
    {
        expected_console | head -n 1
        for _ in 1 2 3; do echo "[CFlash_NWrite] full_write : /dev/mtd2 : Input/output error"; done
        expected_console | tail -n +2
    } | says console "$out/console"
    {
        printf '\n/dev/mtd1: MTD Erase failure: Input/output error\n'
        echo "upgrade: /dev/mtd1 holds its image, and old data that could not be erased (Input/output error)"
        echo "upgrade: /dev/mtd2 does not hold its image of $(padded "$work/firmware/rootfs") bytes (write: Input/output error)"
    } | says errors "$out/errors"
    flashed mtd1 "$work/firmware/kernel"
    same_bytes "/dev/mtd2 before the page" "$work/firmware/rootfs" "$out/mtd2" $((5 * 16384))
    upgraded_settings
    as_in_the_camera $'mtd1 erase@3 0 -1 EIO\nmtd2 write@5 0 -1 EIO' mtd1:3
    flash_as_in_the_camera mtd1
}
