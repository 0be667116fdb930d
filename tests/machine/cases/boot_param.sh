title="get_boot_param reads the boot environment in /dev/mtd0, as in the virtual camera"
prepare() {
    printf 'CRC4bootdelay=1\0ethaddr=00:1c:b8:01:02:03\0serial_no=A12345\0product_code=P-9\0\0' > "$root/tmp/env"
}
board() {
    dd if=/tmp/env of=/dev/mtdblock0 bs=16k seek=16 conv=fsync 2> /dev/null
    get_boot_param $out/parameters > $out/console
}
judge() {
    printf 'MAC=00:1c:b8:01:02:03\nSERIAL_NO=A12345\nPRODUCT_CODE=P-9\n' | says "parameter file" "$out/parameters"
    local green=$'\033[1;32m' end=$'\n\033[0;39m'
    for line in "GET BOOT PARAM" "    MAC [00:1c:b8:01:02:03]" "    SERIAL_NO [A12345]" "    PRODUCT_CODE [P-9]"; do
        printf '%s%s%s' "$green" "$line" "$end"
    done | says console "$out/console"
    local camera=$out/camera
    "$vcam" new "$camera" --flash nand && dd if="$root/tmp/env" of="$camera/flash/mtd0" bs=16k seek=16 conv=notrunc status=none ||
        wrong "no camera"
    "$vcam" run "$camera" -- get_boot_param /tmp/parameters > "$out/camera_console" 2>&1
    "$vcam" get "$camera" /tmp/parameters "$out/camera_parameters"
    same_file "console (- machine, + camera)" "$out/console" "$out/camera_console"
    same_file "parameters (- machine, + camera)" "$out/parameters" "$out/camera_parameters"
}
