#!/bin/bash
# Every benchmark in one run: run.sh BUILD_FOLDER [--quick]. The codecs' tables take some minutes.
set -eu
build=$(realpath "$1")
here=$(cd "$(dirname "$0")" && pwd)
for program in bench_start bench_conf bench_cconf bench_proc_scan bench_cmmap bench_icom; do
    echo "== $program"
    "$build/bench/common/$program"
done
echo "== bench_boot_param"
"$build/bench/board/bench_boot_param"
echo "== bench_upgrade"
"$build/bench/upgrade/bench_upgrade"
echo "== whole upgrades on the virtual camera"
"$here/upgrade/whole_upgrade.sh" "$build"
echo "== an upgrade that somebody watches"
"$here/upgrade/page_open.sh" "$build"
echo "== settings that reach the flash at once"
"$here/upgrade/settings.sh" "$build"
echo "== encoder and decoder channels"
"$build/bench/media/bench_channels"
echo "== the audio loop over the network on the virtual camera"
"$here/media/loop.sh" "$build"
echo "== the ARP probe on a wire"
"$here/link/probe_interval.sh" "$build"
echo "== the media platform on the virtual camera"
"$here/media/media.sh" "$build"
"$here/dsp/run" "$build" "${@:2}"
