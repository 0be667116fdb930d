#!/bin/bash
# media.sh BUILD_FOLDER: the media platform's cost on the virtual camera, beside bare requests.
set -eu
build=$(realpath "$1")
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
"$build/bin/vcam" new "$dir/camera" > /dev/null
"$build/bin/vcam" run "$dir/camera" --bind "$build/bench/media/bench_media" -- /run/bin/bench_media "${@:2}"
