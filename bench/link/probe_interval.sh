#!/bin/bash
# probe_interval.sh BUILD_FOLDER: the ARP probe's frames as its neighbour on a wire gets them, over 10 s.
set -eu
build=$(realpath "$1")
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
"$build/bin/vcam" new "$dir/camera"
"$build/bin/vcam" run "$dir/camera" --realtime --no-preload --link 192.168.10.1 \
    --bind "$build/bench/link/bench_probe_interval" -- /run/bin/bench_probe_interval 10
