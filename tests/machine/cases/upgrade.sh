title="upgrade erases, writes, compares, mounts the new settings, puts the old ones back, reboots"
. "$here/upgraded.sh"
board() {
    furnish
    daemon confd /etc/system.conf
    daemon webs
    daemon stranger /etc/release # nobody stops it by name, but it uses /etc
    sleep 1
    upgrade_here
}
judge() {
    upgraded
    equal "daemons left" "" "$(grep -E '^/bin/(confd|webs|stranger)' "$out/processes")"
    as_in_the_camera "" ""
    flash_as_in_the_camera mtd1 mtd2
}
