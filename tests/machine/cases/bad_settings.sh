title="a bad block under the settings image costs what stood in it, as in the virtual camera"
. "$here/upgraded.sh"
# Blocks 5 and 10 of /dev/mtd3 are bad: both hold the large file, wherever it stands.
options=(-n badblocks=197,202)
judge() {
    upgraded_flash
    cmp -s "$work/firmware/etc/large" "$out/etc/large" && wrong "/etc/large came out of a bad block"
    for file in network/network.conf release tcp_server.conf; do
        [ -s "$out/etc/$file" ] || wrong "/etc/$file is missing"
    done
    as_in_the_camera "" "" --bad mtd3:5 --bad mtd3:10
    flash_as_in_the_camera mtd1 mtd2
}
