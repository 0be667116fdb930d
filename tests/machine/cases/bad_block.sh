title="an upgrade passes over bad blocks: told, not erased, the rest as ever"
. "$here/upgraded.sh"
# Blocks 3 of /dev/mtd1, inside the image, and 40 of /dev/mtd3, behind it, are bad.
options=(-n badblocks=67,232)
judge() {
    upgraded
    for partition in 1 3; do
        printf '\n/dev/mtd%d: MTD Erase failure: Input/output error\n' $partition
        echo "upgrade: /dev/mtd$partition holds its image, and old data that could not be erased (Input/output error)"
    done | says errors "$out/errors"
    as_in_the_camera "" mtd1:3 --bad mtd1:3 --bad mtd3:40
    flash_as_in_the_camera mtd1 mtd2
}
