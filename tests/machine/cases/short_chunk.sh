title="an image that ends inside a page: NAND refuses the last chunk, the rest is written"
. "$here/upgraded.sh"
prepare() {
    "$fwpkg" build -o "$root/../pkg" --page-size 1 "$work/firmware/kernel" "$work/firmware/rootfs" "$work/firmware/settings.jffs2"
    old_camera "$root/../pkg"
}
judge() {
    local size n=0 image
    for image in kernel rootfs settings.jffs2; do
        n=$((n + 1))
        for _ in 1 2 3; do echo "[CFlash_NWrite] full_write : /dev/mtd$n : Invalid argument"; done
        echo "CFlash_QRNWrite : flash$n complete"
    done > "$out/expected"
    echo "Upgrade complete." >> "$out/expected"
    # Which setting stands in the settings' lost end depends on the order of the folder that they are made from.
    grep -v CUTIL_SetConfValue "$out/console" > "$out/lines"
    same_file console "$out/expected" "$out/lines"
    for n in 1:kernel 2:rootfs; do
        size=$(stat -c %s "$work/firmware/${n#*:}")
        head -c $((size - size % 512)) "$work/firmware/${n#*:}" > "$out/expected"
        [ $((size % 512)) != 0 ] || wrong "${n#*:} has whole pages"
        flashed "mtd${n%:*}" "$out/expected"
    done
    as_in_the_camera "" ""
    flash_as_in_the_camera mtd1 mtd2
}
