#!/bin/bash
# page_open.sh BUILD_FOLDER [ROUNDS]: what it costs that somebody looks. A 16 MiB upgrade with a page open beside one
# without, interleaved, as the median of the rounds (9); then the processor time of the page's server and of the process
# that looks, while an upgrade that takes real time changes the flash, ten looks a second.
set -eu
build=$(realpath "$1")
rounds=${2:-9}
dir=$(mktemp -d)
web='' page='' run=''
trap 'kill $page $run $web 2> /dev/null || true; wait; rm -rf "$dir"' EXIT
cd "$dir"
PATH=$build/bin:$PATH:/usr/sbin

mkdir etc
echo device_name=bench > etc/system.conf
mkfs.jffs2 -q -e 0x10000 -p -d etc -o settings
head -c 1048576 /dev/urandom > kernel
mkimage -A arm -O linux -T kernel -C none -d kernel uImage > /dev/null
head -c 16M /dev/urandom > rootfs
fwpkg build -o package uImage rootfs settings
vcam new camera --size mtd2=16M
vcam web camera --no-open > address &
web=$!
until [ -s address ]; do sleep 0.1; done
events=$(sed 's/?/events?/' address)

open_page() {
    curl -sN "$events" > /dev/null &
    page=$!
    until [ -n "$(pgrep -P $web)" ]; do sleep 0.1; done
}
close_page() { kill $page; wait $page 2> /dev/null || true; }
# Milliseconds of one upgrade, appended to the file $1.
upgrade() {
    cp package camera/root/tmp/flash3
    local begin=$(date +%s%N)
    vcam run camera -- xupgrade -f > /dev/null 2>&1 || true
    echo $((($(date +%s%N) - begin) / 1000000)) >> "$1"
    cmp -n 16777216 rootfs camera/flash/mtd2
}
median() { sort -n "$1" | sed -n "$((rounds / 2 + 1))p"; }

upgrade warm
for _ in $(seq "$rounds"); do
    upgrade without
    open_page
    upgrade with
    close_page
done
echo "16 MiB upgrade: $(median without) ms without a page, $(median with) ms with one open:" \
    "$(awk "BEGIN { printf \"%.3f\", $(median with) / $(median without) }") times (medians of $rounds)"

# Hundredths of a second of the server and of its children.
ticks() { cat /proc/$web/stat $(pgrep -P $web | sed 's|.*|/proc/&/stat|') | awk '{ n += $14 + $15 } END { print n }'; }
open_page
cp package camera/root/tmp/flash3
vcam run camera --realtime --env VCAM_PACE=10 -- xupgrade -f > /dev/null 2>&1 &
run=$!
sleep 2
before=$(ticks) begin=$(date +%s%N)
sleep 20
used=$((($(ticks) - before) * 10)) took=$((($(date +%s%N) - begin) / 1000000))
kill -0 $run || echo "the upgrade ended too soon: the figure below is of a camera at rest"
echo "ten looks a second at 16 MiB that change: $used ms of processor in $took ms:" \
    "$(awk "BEGIN { printf \"%.1f\", 100 * $used / $took }") % of a core"
close_page
