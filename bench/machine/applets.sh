#!/bin/bash
# What applets take on the emulated machine: memory, stack and instructions from start to end, the kernel's for them
# included. Devices are the virtual camera's models.
#
#   applets.sh ZEP HOST_BUILD MACHINE_BUILD
#
#   ZEP            the camera's executable
#   HOST_BUILD     build folder with vcam and fwpkg
#   MACHINE_BUILD  build folder with vcam-cuse for the machine
#
# Needs what ./dev machine needs, and g++-arm-linux-gnueabi.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
machine=$here/../../tests/machine
zep=$(realpath "$1") vcam=$(realpath "$2/bin/vcam") fwpkg=$(realpath "$2/bin/fwpkg") server=$(realpath "$3/bin/vcam-cuse")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
root=$work/root
mkdir -p "$root/board/bin" "$root/board/out" "$root/tmp" "$root/usr"
arm-linux-gnueabi-gcc -std=gnu11 -O1 -static "$here/account.c" -o "$root/board/bin/account"
cp "$server" "$root/board/bin/"
cp "$machine"/{cameras.sh,keep.sh,fuser} "$root/board/"
"$vcam" new "$root/camera" --model ZM130 --i2c 0x34 --mac 00:16:6c:12:34:56 > /dev/null
"$vcam" pin "$root/camera" "4.0 wire 5.0" > /dev/null
for line in ttyAMA1 ttyAMA2; do "$vcam" plug "$root/camera" $line loopback > /dev/null; done
mkdir "$root/etc"
echo cam_model=ZM130 > "$root/etc/cam_model.conf"

cat > "$work/script" <<'SCRIPT'
#!/bin/busybox sh
. /board/guest.sh
. /board/cameras.sh
enable_registers
vcam-cuse /camera > /dev/null
take() { account $out/applets "$@" > $out/said 2>&1 < /dev/null; echo "$? $*" >> $out/statuses; cat $out/said >> $out/statuses; }
of() { name=$1; shift; take $name $BOARD_EXE "$@"; }
cp /board/bin/account /bin/recorder
of zep
of get_boot_param /tmp/boot_param
of xgpio 5 0 1
of xgpioi2c 0x34 0x04
of xi2c 0x34 0x04 0x5A
of xtime
of xkill alive /bin/recorder
of qrn_arp lo 10.0.0.77 1000
of load_drv
of test_led -v -n 1 status blink
of test_dio -n 1
of test_key -t 2
of test_rtc -n
of test_rs232
of test_rs485
of test_sdcard
of test_usb
of test_send_watchdog
of get_cb_cam_info
(sleep 5; kill $(pidof test_audio)) &
of test_audio 5000
SCRIPT
"$machine/board.sh" -d -t 600 -o "$work/out" "$zep" "$root" "$work/script" > "$work/console" 2>&1 || { cat "$work/console"; exit 1; }
[ -z "${SHOW-}" ] || cat "$work/console" "$work/out/statuses"
echo "applet, address space kB, memory kB, stack kB, instructions (a thread: stack kB of its room)"
# The emulator's time is 4 ns an instruction.
awk '$1 == "stack" { print "  " $0; next } { printf "%-20s %8d %8d %6d %12d\n", $1, $2, $3, $4, $5 / 4 }' "$work/out/applets"

. "$machine/firmware.sh"
make_firmware
root=$work/upgrade_root
mkdir -p "$root/board" "$root/tmp"
cp "$machine"/{keep.sh,fuser} "$root/board/"
"${CC:-arm-linux-gnueabi-gcc}" -static "$machine/actor.c" -o "$root/board/actor"
old_camera "$work/firmware/pkg"
cat > "$work/script" <<'SCRIPT'
#!/bin/busybox sh
. /board/guest.sh
furnish
cat > /board/before_reboot <<'HOOK'
#!/bin/busybox sh
for p in $(pidof upgrade); do
    grep -E '^Vm(Peak|Lck)' /proc/$p/status
    grep -E '^Rss' /proc/$p/smaps_rollup
    echo time $(cat /proc/$p/task/*/schedstat)
done > /board/out/upgrade
HOOK
upgrade_here
SCRIPT
"$machine/board.sh" -t 600 -o "$work/out" "$zep" "$root" "$work/script" > "$work/console" 2>&1 || [ $? = 123 ]
echo "upgrade with a package of $(stat -c %s "$work/firmware/pkg") bytes"
awk -v bytes="$(stat -c %s "$work/firmware/pkg")" '
    $1 == "time" { printf "%.1f instructions a byte\n", $2 / 4 / bytes; next } { print }' "$work/out/upgrade"
