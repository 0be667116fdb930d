#!/bin/bash
# The main job on the virtual camera: a firmware upgrade with a real package, a refused one, and
# one with the watchdog kept fed; then a new camera is brought up and goes through the factory line. What is shown is
# what happened: every verdict below is a comparison.
#
#   demo.sh BUILD_FOLDER [CAMERA_FOLDER]
set -eu
build=$(cd "$1" && pwd)
work=${2:-$build/demo}
vcam=$build/bin/vcam
fwpkg=$build/bin/fwpkg
camera=$work/camera
line=$work/line

if [ -t 1 ]; then
    bold=$'\033[1m' dim=$'\033[2m' green=$'\033[32m' red=$'\033[31m' plain=$'\033[0m'
else
    bold='' dim='' green='' red='' plain=''
fi
failed=0
title() { printf '\n%s== %s%s\n' "$bold" "$*" "$plain"; }
note() { printf '%s%s%s\n' "$dim" "$*" "$plain"; }
good() { printf '  %sok%s    %s\n' "$green" "$plain" "$*"; }
bad() { printf '  %sFAIL%s  %s\n' "$red" "$plain" "$*"; failed=1; }
verdict() { if "${@:2}" > /dev/null 2>&1; then good "$1"; else bad "$1"; fi; }
command_line() { printf '%s$ %s%s\n' "$bold" "$*" "$plain"; }

# Runs a command in the camera: its console, then the camera's exit status in $status. Options of vcam run are
# in $options.
options=
in_camera() {
    command_line "vcam run camera ${options:+$options }-- $*"
    status=0
    "$vcam" run "$camera" $options -- "$@" > "$work/console" 2> "$work/errors" || status=$?
    sed 's/^/    /' "$work/console"
}

settings_of() { "$vcam" get "$camera" "$1" 2> /dev/null || echo "(none)"; }
hash_flash() { cat "$camera"/flash/mtd? | cksum; }

# --- images, as a firmware build makes them --------------------------------------

make_images() {
    mkdir -p "$work/settings/network"
    seq 1 400000 | head -c 1500000 > "$work/zImage"
    seq 400000 2000000 | head -c 6000000 > "$work/rootfs"
    printf 'ip_type=dhcp\nip_address=192.168.0.100\n' > "$work/settings/network/network.conf"
    printf 'wireless_enable=0\n' > "$work/settings/network/wireless.conf"
    printf 'system_name=new-firmware\n' > "$work/settings/system.conf"
    printf 'serverinfo=new-firmware\n' > "$work/settings/serverinfo.conf"
    printf 'cam_model=ZM146\n' > "$work/settings/cam_model.conf"
    printf 'server_port=1852\n' > "$work/settings/tcp_server.conf"
    printf 'stream_1_port=1852\nstream_2_port=1853\nstream_3_port=1854\n' > "$work/settings/stream.conf"
    printf 'video_type=0\n' > "$work/settings/videodecoder.conf"
    printf 'port=80\n' > "$work/settings/web.conf"
    printf '/bin/RTSPServer\n' > "$work/settings/killList"
    printf '/bin/webs\n' > "$work/settings/termList"
    mkimage -A arm -O linux -T kernel -C none -a 0x80008000 -e 0x80008000 -n 'camera kernel' \
        -d "$work/zImage" "$work/kernel" > /dev/null
    mkfs.jffs2 -l -n -e 64KiB -d "$work/settings" -o "$work/settings.jffs2"
    "$fwpkg" build -o "$work/pkg" "$work/kernel" "$work/rootfs" "$work/settings.jffs2" > /dev/null
}

# The settings that an upgrade keeps are given values that no firmware ships.
make_camera() {
    "$vcam" new "$camera" --model ZM131 --daemons
    settings_of /etc/network/network.conf > "$work/network.conf"
    sed -i 's/^ip_address=.*/ip_address=10.20.30.40/' "$work/network.conf"
    printf 'server_port=2852\n' > "$work/tcp_server.conf"
    printf 'stream_1_port=3001\nstream_2_port=3002\nstream_3_port=3003\n' > "$work/stream.conf"
    printf 'video_type=1\n' > "$work/videodecoder.conf"
    printf 'port=8080\n' > "$work/web.conf"
    "$vcam" put "$camera" "$work/network.conf" /etc/network/network.conf
    for f in tcp_server stream videodecoder web; do
        "$vcam" put "$camera" "$work/$f.conf" "/etc/$f.conf"
    done
    "$vcam" put "$camera" "$work/pkg" /tmp/pkg
}

kept_files="network/network.conf network/wireless.conf system.conf serverinfo.conf cam_model.conf"
kept_values="tcp_server.conf stream.conf videodecoder.conf web.conf"

save_settings() {
    mkdir -p "$work/before"
    for f in $kept_files $kept_values; do settings_of "/etc/$f" > "$work/before/${f##*/}"; done
}

begins_with() { cmp -n "$(stat -c %s "$1")" "$1" "$2"; }

# --- the three upgrades ----------------------------------------------------------------

good_package() {
    title "1. A firmware upgrade that keeps the settings"
    "$fwpkg" info "$work/pkg" | head -n 7
    note "settings before: $(settings_of /etc/network/network.conf | grep '^ip_address'), $(settings_of /etc/tcp_server.conf), $(settings_of /etc/web.conf | head -n 1), $(settings_of /etc/cam_model.conf | tail -n 1)"
    save_settings
    in_camera upgrade /tmp/pkg -v
    title "   the camera's system log"
    "$vcam" log "$camera" --last | sed 's/^/    /'
    title "   what it asked the shell to do, in order"
    "$vcam" journal "$camera" --last --source system | awk '{ t = $1; $1 = $2 = $3 = ""; printf "    %9.3f %s\n", t, $0 }'
    title "   the flash afterwards, against the package"
    verdict "mtd1 holds the kernel image, byte for byte" begins_with "$work/kernel" "$camera/flash/mtd1"
    verdict "mtd2 holds the root file system, byte for byte" begins_with "$work/rootfs" "$camera/flash/mtd2"
    verdict "mtd3 begins with the package's settings image; behind it the mounted file system has written on" \
        begins_with "$work/settings.jffs2" "$camera/flash/mtd3"
    for f in $kept_files; do
        settings_of "/etc/$f" > "$work/after"
        verdict "kept: /etc/$f" cmp "$work/before/${f##*/}" "$work/after"
    done
    for f in $kept_values; do
        while IFS='=' read -r key value; do
            verdict "kept: $key=$value in /etc/$f" grep -qx "$key=$value" <(settings_of "/etc/$f")
        done < <(grep -E '^(server_port|stream_[123]_port|video_type|port)=' "$work/before/$f")
    done
    verdict "the camera rebooted" grep -qx reboot "$camera/ending"
}

damaged_package() {
    title "2. The same package with one flipped bit"
    cp "$work/pkg" "$work/damaged"
    printf '\377' | dd of="$work/damaged" bs=1 seek=700000 conv=notrunc status=none
    "$vcam" put "$camera" "$work/damaged" /tmp/pkg
    hash_flash > "$work/hash"
    in_camera upgrade /tmp/pkg -v
    "$vcam" log "$camera" --last | sed -n 's/^[^ ]* [^ ]* /    log: /p' | grep -E 'crc32|correct|fail'
    verdict "refused" grep -q 'Upgrade fail' "$work/console"
    verdict "the flash is untouched, byte for byte" cmp "$work/hash" <(hash_flash)
    verdict "and it rebooted into the old firmware" grep -qx reboot "$camera/ending"
}

with_watchdog() {
    title "3. By hand, with the watchdog kept fed and the log sent over UDP"
    "$vcam" put "$camera" "$work/pkg" /tmp/flash3
    in_camera sh -c 'udpcat 5140 > /tmp/udp.log & exec xupgrade -i -b -r 5140'
    "$vcam" status "$camera" | grep watchdog | sed 's/^/    /'
    gap=$("$vcam" status "$camera" --json | sed 's/.*"longest_gap":\([0-9.]*\).*/\1/')
    verdict "the watchdog was never longer than 1.5 s without a sign of life ($gap s)" \
        awk "BEGIN { exit !($gap > 0 && $gap <= 1.5) }"
    verdict "the log arrived at UDP port 5140 ($("$vcam" get "$camera" /tmp/udp.log | wc -l) lines)" \
        grep -q 'CHECK VERSION' <("$vcam" get "$camera" /tmp/udp.log)
    verdict "upgraded" grep -q 'Upgrade complete' "$work/console"
}

# --- bring-up and the factory line ----------------------------------------------------

# Runs a factory test on the line's camera; its verdict word decides.
station() {
    local verdict
    verdict=$("$vcam" run "$line" --medium sd=16M --medium usb=16M -- "$@" | tail -n 1) || true
    if [ "$verdict" = successful ]; then good "$*"; else bad "$* ($verdict)"; fi
}

bring_up() {
    title "4. A camera comes to life"
    camera=$line
    "$vcam" new "$line" --model ZM130 --mac 00:16:6c:12:34:56 --serial A1B2C3D4E5 --product ZN-1000
    "$vcam" rtc "$line" --set "2026-11-21 10:20:30" > /dev/null
    in_camera load_drv
    verdict "the drivers of a ZM130 are loaded, and its registers set" grep -q 'tlv_320' "$line/modules"
    in_camera get_boot_param /tmp/boot_param
    "$vcam" get "$line" /tmp/boot_param | sed 's/^/    /'
    verdict "the start-up scripts know the MAC address" grep -qx MAC=00:16:6c:12:34:56 <("$vcam" get "$line" /tmp/boot_param)
    in_camera sh -c 'xtime; date'
    verdict "the system clock has the time of the real-time clock" grep -q '2026.*10:20:3\|10:20:3.*2026' "$work/console"
    options="--link 192.168.10.7"
    in_camera qrn_arp eth0 192.168.10.7 2000
    verdict "an address that a neighbour on the link has is in conflict" grep -q '^conflict ' "$work/console"
    in_camera qrn_arp eth0 192.168.10.8 2000
    verdict "another one is free" grep -qx free "$work/console"
    options=
}

factory_line() {
    title "5. The factory line, with its plugs in"
    "$vcam" pin "$line" "4.0 wire 5.0" "8.1 level 1" > /dev/null
    "$vcam" plug "$line" ttyAMA1 loopback > /dev/null
    "$vcam" plug "$line" ttyAMA2 loopback > /dev/null
    station test_dio
    station test_led
    station test_rs485
    station test_rs232
    "$vcam" pin "$line" "8.1 press +2 0.4 4" > /dev/null
    station test_key
    station test_sdcard
    station test_usb
    station test_rtc
    station test_send_watchdog
    "$vcam" plug "$line" ttyAMA2 block > /dev/null
    in_camera get_cb_cam_info
    verdict "the camera block is a 2M Panasonic" grep -qx 'MODEL=2M Panasonic' "$work/console"
    note "and a board with a short: line 4.0 stays low"
    "$vcam" pin "$line" "4.0 stuck 0" > /dev/null
    in_camera test_dio -v
    verdict "test_dio finds it" grep -qx failed "$work/console"
}

started=$(date +%s)
rm -rf "$work"
mkdir -p "$work"
make_images
make_camera
title "A virtual camera"
"$vcam" status "$camera" | sed "s|$work/||"
good_package
damaged_package
with_watchdog
bring_up
factory_line
title "Done in $(($(date +%s) - started)) s"
note "The cameras stay in $work."
exit $failed
